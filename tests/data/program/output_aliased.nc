#NODES {"nodes":[{"alias":"screen","class":"OutputNode","comment":"","id":"NODE000000000000000000000001","index":-1,"inputDefaults":["1","x"],"inputTypes":{"1":1},"inputs":["",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":-1,"inputDefaults":["1"],"inputTypes":{},"inputs":[""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000003","index":3,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	output_number("screen", 0, 1)
	output_text("screen", 1, "x")
	output_number("", 0, 1)
