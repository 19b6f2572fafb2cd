#NODES {"nodes":[{"class":"TimeNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Time"},{"class":"ExpressionNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["",".5"],"inputTypes":{},"inputs":["NODE000000000000000000000001",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"text":" a + b ","title":"Expression"},{"class":"StatementNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"text":"print(a)","title":"Statement"},{"class":"ExecuteNode","comment":"","id":"NODE000000000000000000000004","inputDefaults":[""],"inputTypes":{"0":2},"inputs":["NODE000000000000000000000003"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Execute"}]}

update
	var $_expr1 = time + 0.5
	print($_expr1)
