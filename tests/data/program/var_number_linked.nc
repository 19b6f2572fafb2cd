#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000002","index":1,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"VarNumberNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":["0",""," "],"inputTypes":{},"inputs":["NODE000000000000000000000001","NODE000000000000000000000002",""],"name":"count","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Number Variable"}]}

var $count : number

update
	var $_input_number_0_0 = input_number(0, 0)
	var $_input_number_1_0 = input_number(1, 0)
	if $_input_number_1_0
		$count = $_input_number_0_0
