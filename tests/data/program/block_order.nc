#NODES {"nodes":[{"class":"DelayNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["1","",""],"inputTypes":{},"inputs":["","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Delay"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"},{"class":"ConstTextNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":[],"inputTypes":{},"inputs":[],"name":"t","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Constant Text","value":"x"},{"class":"ConstNumberNode","comment":"","id":"NODE000000000000000000000004","inputDefaults":[],"inputTypes":{},"inputs":[],"name":"n","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Constant Number","value":1.5},{"class":"IncludeNode","comment":"","id":"NODE000000000000000000000005","inputDefaults":[],"inputTypes":{},"inputs":[],"path":"lib.nc","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Include"},{"class":"PIDControllerNode","comment":"","id":"NODE000000000000000000000006","inputDefaults":["0","0","1","0","0","","",""],"inputTypes":{},"inputs":["","","","","","","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"PID Controller"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000007","index":1,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000006"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

include "lib.nc"

const $n = 1.500000

const $t = "x"

var $_test_delay1 = 0

function @_test_pid1($_setpoint:number, $_processvalue:number, $_kp:number, $_ki:number, $_kd:number, $_integral:number, $_prev_error:number) : number
	var $_error = $_setpoint - $_processvalue
	var $_dt = delta_time
	var $_derivative = ($_error - $_prev_error) / $_dt
	var $_proportional = $_kp * $_error
	$_integral += $_error * $_dt
	$_prev_error = $_error
	var $_output = $_proportional + $_ki * $_integral + $_kd * $_derivative
	return $_output

update
	var $_test_delay1_ = $_test_delay1 > 0 and $_test_delay1 < time
	output_number(0, 0, $_test_delay1_)
	var $_pid1 = @_test_pid1(0, 0, 1, 0, 0)
	output_number(1, 0, $_pid1)
