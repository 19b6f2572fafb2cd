#NODES {"nodes":[{"class":"ExecuteNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["$a = 1\n$b = 2"],"inputTypes":{"0":2},"inputs":[""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Execute"}]}

update
	$a = 1
$b = 2
