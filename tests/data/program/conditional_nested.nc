#NODES {"nodes":[{"class":"ConditionalNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["$b","$c = 1\n\n$d = 2",""],"inputTypes":{"1":2,"2":2},"inputs":["","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Conditional"},{"class":"ConditionalNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["1","",""],"inputTypes":{"1":2,"2":2},"inputs":["","NODE000000000000000000000001",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Conditional"},{"class":"ExecuteNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":[""],"inputTypes":{"0":2},"inputs":["NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Execute"}]}

update
	if 1
		if $b
			$c = 1
			$d = 2
