#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"MathNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["$x"],"inputTypes":{},"inputs":[""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"NOT"},{"class":"PulseNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":["",""],"inputTypes":{},"inputs":["NODE000000000000000000000001","NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Pulse"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000004","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000003"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

var $_test_pulse1_last_up = 0
var $_test_pulse1_last_down = 1

update
	var $_input_number_0_0 = input_number(0, 0)
	var $_test_pulse1 = 0
	var $_test_pulse1_down_ = (!$x)
	if ($_input_number_0_0 and !$_test_pulse1_last_up) or (!$_test_pulse1_down_ and $_test_pulse1_last_down)
		$_test_pulse1!!
	$_test_pulse1_last_up = $_input_number_0_0
	$_test_pulse1_last_down = $_test_pulse1_down_
	output_number(0, 0, $_test_pulse1)
