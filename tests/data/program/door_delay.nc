#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"DelayNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["2","",""],"inputTypes":{},"inputs":["","NODE000000000000000000000001",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Delay"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000003","index":1,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

var $_door_delay1 = 0

update
	var $_input_number_0_0 = input_number(0, 0)
	var $_door_delay1_ = $_door_delay1 > 0 and $_door_delay1 < time
	if $_input_number_0_0
		$_door_delay1 = time + 2
	output_number(1, 0, $_door_delay1_)
