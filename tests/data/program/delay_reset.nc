#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000002","index":1,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"DelayNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":["0","",""],"inputTypes":{},"inputs":["","NODE000000000000000000000001","NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Delay"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000004","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000003"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

var $_test_delay1 = 0

update
	var $_input_number_0_0 = input_number(0, 0)
	var $_input_number_1_0 = input_number(1, 0)
	var $_test_delay1_ = $_test_delay1 > 0 and $_test_delay1 < time
	if $_input_number_0_0
		$_test_delay1 = time + 1
	if $_input_number_1_0
		$_test_delay1 = 0
	output_number(0, 0, $_test_delay1_)
