#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":1,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"PulseToggleNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["",""],"inputTypes":{},"inputs":["","NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Pulse Toggle"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000003","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

var $_test_pulse1 = 0
var $_test_pulse1_last_down = 1

update
	var $_input_number_1_0 = input_number(1, 0)
	if !$_input_number_1_0 and $_test_pulse1_last_down
		$_test_pulse1!!
	$_test_pulse1_last_down = $_input_number_1_0
	output_number(0, 0, $_test_pulse1)
