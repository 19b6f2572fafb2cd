#NODES {"nodes":[{"class":"ExpressionNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["hi","x + 1",""],"inputTypes":{"0":1,"1":7},"inputs":["","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"text":"a + b + c","title":"Expression"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	var $_expr1 = "hi" + x + 1 + 0
	output_number(0, 0, $_expr1)
