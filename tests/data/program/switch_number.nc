#NODES {"nodes":[{"class":"SwitchNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["-1","10","20"],"inputTypes":{},"inputs":["","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Switch","type":0},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	var $_switch1 = 0
	var $_switch1_ = -1
	if $_switch1_ == 0
		$_switch1 = 10
	elseif $_switch1_ == 1
		$_switch1 = 20
	output_number(0, 0, $_switch1)
