#NODES {"nodes":[{"class":"SwitchNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["0"],"inputTypes":{},"inputs":[""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Switch","type":0},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	var $_switch1 = 0
	output_number(0, 0, $_switch1)
