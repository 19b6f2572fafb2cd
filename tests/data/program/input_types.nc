#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":1},{"class":"PrintNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":["",""],"inputTypes":{"0":1,"1":1},"inputs":["NODE000000000000000000000001","NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Print"}]}

update
	var $_input_number_0_0 = input_number(0, 0)
	var $_input_text_0_0 = input_text(0, 0)
	print($_input_number_0_0, $_input_text_0_0)
