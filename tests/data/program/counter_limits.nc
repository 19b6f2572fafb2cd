#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000002","index":4,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"CounterNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":["1","5","0","10",""],"inputTypes":{},"inputs":["NODE000000000000000000000001","","","","NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Counter"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000004","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000003"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

var $_test_counter1 : number
var $_test_counter1_init = 0

update
	var $_input_number_0_0 = input_number(0, 0)
	var $_input_number_4_0 = input_number(4, 0)
	$_test_counter1 += $_input_number_0_0
	if !$_test_counter1_init
		$_test_counter1 = 5
		$_test_counter1_init = 1
	if $_test_counter1 < 0
		$_test_counter1 = 0
	if $_test_counter1 > 10
		$_test_counter1 = 10
	if $_input_number_4_0
		$_test_counter1 = 5
	output_number(0, 0, $_test_counter1)
