#NODES {"nodes":[{"class":"MathNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["2","3"],"inputTypes":{},"inputs":["",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"MULTIPLY"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":["",""],"inputTypes":{},"inputs":["NODE000000000000000000000001","NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	output_number(0, 0, (2 * 3))
	output_number(0, 1, (2 * 3))
