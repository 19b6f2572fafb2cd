#NODES {"nodes":[{"class":"SmoothNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["1","2.5","1"],"inputTypes":{},"inputs":["","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Smooth"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

var $_test_smooth1 : number
var $_test_smooth1_a : number
var $_test_smooth1_b : number
var $_test_smooth1_t0 : number
var $_test_smooth1_t1 : number

update
	if 1
		$_test_smooth1_a = $_test_smooth1
		$_test_smooth1_b = 1
		$_test_smooth1_t0 = time
		$_test_smooth1_t1 = time + 2.5
	$_test_smooth1 = lerp($_test_smooth1_a, $_test_smooth1_b, smoothstep($_test_smooth1_t0, $_test_smooth1_t1, time))
	output_number(0, 0, $_test_smooth1)
