#NODES {"nodes":[{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":["","7"],"inputTypes":{},"inputs":["NODE0000000000000000000000F1","NODE0000000000000000000000F2"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	output_number(0, 1, 7)
