#NODES {"nodes":[{"class":"DelayNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["1","",""],"inputTypes":{},"inputs":["","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Delay"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":["",""],"inputTypes":{},"inputs":["NODE000000000000000000000001","NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

var $_test_delay1 = 0

update
	var $_test_delay1_ = $_test_delay1 > 0 and $_test_delay1 < time
	output_number(0, 0, $_test_delay1_)
	output_number(0, 1, $_test_delay1_)
