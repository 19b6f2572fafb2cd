#NODES {"nodes":[{"class":"CounterNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["1","0","","",""],"inputTypes":{},"inputs":["","","","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Counter"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

var $_test_counter1 : number
var $_test_counter1_init = 0

update
	$_test_counter1 += 1
	if 0
		$_test_counter1 = 0
	output_number(0, 0, $_test_counter1)
