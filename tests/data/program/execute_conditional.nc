#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"TimeNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Time"},{"class":"StatementNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"text":"print(a)","title":"Statement"},{"class":"ConditionalNode","comment":"","id":"NODE000000000000000000000004","inputDefaults":["","","$x = 1"],"inputTypes":{"1":2,"2":2},"inputs":["NODE000000000000000000000001","NODE000000000000000000000003",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Conditional"},{"class":"ExecuteNode","comment":"","id":"NODE000000000000000000000005","inputDefaults":["","$y += 1",""],"inputTypes":{"0":2,"1":2,"2":2},"inputs":["NODE000000000000000000000004","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Execute"}]}

update
	var $_input_number_0_0 = input_number(0, 0)
	if $_input_number_0_0
		print(time)
	else
		$x = 1
	$y += 1
