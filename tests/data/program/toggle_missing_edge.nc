#NODES {"nodes":[{"class":"PulseToggleNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["-1",""],"inputTypes":{},"inputs":["NODE0000000000000000000000F1",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Pulse Toggle"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

var $_test_pulse1 = 0
var $_test_pulse1_last_up = 0

update
	var $_test_pulse1_up_ = -1
	if $_test_pulse1_up_ and !$_test_pulse1_last_up
		$_test_pulse1!!
	$_test_pulse1_last_up = $_test_pulse1_up_
	output_number(0, 0, $_test_pulse1)
