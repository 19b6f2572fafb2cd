#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"SmoothNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["7","0",""],"inputTypes":{},"inputs":["","","NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Smooth"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000003","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

var $_test_smooth1 : number
var $_test_smooth1_a : number
var $_test_smooth1_b : number
var $_test_smooth1_t0 : number
var $_test_smooth1_t1 : number

update
	var $_input_number_0_0 = input_number(0, 0)
	if $_input_number_0_0
		$_test_smooth1_a = $_test_smooth1
		$_test_smooth1_b = 7
		$_test_smooth1_t0 = time
		$_test_smooth1_t1 = time + 1
	$_test_smooth1 = lerp($_test_smooth1_a, $_test_smooth1_b, smoothstep($_test_smooth1_t0, $_test_smooth1_t1, time))
	output_number(0, 0, $_test_smooth1)
