#NODES {"nodes":[{"class":"SwitchNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["2","a","b","c"],"inputTypes":{"1":1,"2":1,"3":1},"inputs":["","","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Switch","type":1},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[""],"inputTypes":{"0":1},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	var $_switch1 = ""
	if 2 == 0
		$_switch1 = "a"
	elseif 2 == 1
		$_switch1 = "b"
	elseif 2 == 2
		$_switch1 = "c"
	output_text(0, 0, $_switch1)
