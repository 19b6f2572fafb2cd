#NODES {"nodes":[{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":["  "],"inputTypes":{},"inputs":[""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	output_number(0, 0, )
