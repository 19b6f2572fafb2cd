#NODES {"nodes":[{"class":"PIDControllerNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["0","0","1","0","0","","","100"],"inputTypes":{},"inputs":["","","","","","","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"PID Controller"},{"class":"PIDControllerNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["0","0","1","0","0","","",""],"inputTypes":{},"inputs":["","","","","","","NODE0000000000000000000000F1",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"PID Controller"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000003","index":0,"inputDefaults":["",""],"inputTypes":{},"inputs":["NODE000000000000000000000001","NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

function @_plant_pid1($_setpoint:number, $_processvalue:number, $_kp:number, $_ki:number, $_kd:number, $_max:number, $_integral:number, $_prev_error:number) : number
	var $_error = $_setpoint - $_processvalue
	var $_dt = delta_time
	var $_derivative = ($_error - $_prev_error) / $_dt
	var $_proportional = $_kp * $_error
	$_integral += $_error * $_dt
	if $_integral > $_max
		$_integral = $_max
	$_prev_error = $_error
	var $_output = $_proportional + $_ki * $_integral + $_kd * $_derivative
	if $_output > $_max
		$_output = $_max
	return $_output
function @_plant_pid2($_setpoint:number, $_processvalue:number, $_kp:number, $_ki:number, $_kd:number, $_min:number, $_integral:number, $_prev_error:number) : number
	var $_error = $_setpoint - $_processvalue
	var $_dt = delta_time
	var $_derivative = ($_error - $_prev_error) / $_dt
	var $_proportional = $_kp * $_error
	$_integral += $_error * $_dt
	if $_integral < $_min
		$_integral = $_min
	$_prev_error = $_error
	var $_output = $_proportional + $_ki * $_integral + $_kd * $_derivative
	if $_output < $_min
		$_output = $_min
	return $_output

update
	var $_pid1 = @_plant_pid1(0, 0, 1, 0, 0, 100)
	output_number(0, 0, $_pid1)
	var $_pid2 = @_plant_pid2(0, 0, 1, 0, 0, 0)
	output_number(0, 1, $_pid2)
