#NODES {"nodes":[{"class":"PIDControllerNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["0","0","1","0","0","","",""],"inputTypes":{},"inputs":["","","","","","","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"PID Controller"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

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
	var $_pid1 = @_test_pid1(0, 0, 1, 0, 0)
	output_number(0, 0, $_pid1)
