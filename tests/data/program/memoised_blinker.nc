#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"BlinkerNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["1"],"inputTypes":{},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Blinker"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000003","index":0,"inputDefaults":["","",""],"inputTypes":{},"inputs":["NODE000000000000000000000002","NODE000000000000000000000002","NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	var $_input_number_0_0 = input_number(0, 0)
	var $_blinker1 = round(time / $_input_number_0_0) % 2 == 0
	output_number(0, 0, $_blinker1)
	output_number(0, 1, $_blinker1)
	output_number(0, 2, $_blinker1)
