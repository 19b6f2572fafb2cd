#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000002","index":1,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000003","index":5,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"PIDControllerNode","comment":"","id":"NODE000000000000000000000004","inputDefaults":["0","0","2",".1","0.01","","-1","1"],"inputTypes":{},"inputs":["NODE000000000000000000000001","NODE000000000000000000000002","","","","NODE000000000000000000000003","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"PID Controller"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000005","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000004"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

function @_test_pid1($_setpoint:number, $_processvalue:number, $_kp:number, $_ki:number, $_kd:number, $_min:number, $_max:number, $_integral:number, $_prev_error:number) : number
	var $_error = $_setpoint - $_processvalue
	var $_dt = delta_time
	var $_derivative = ($_error - $_prev_error) / $_dt
	var $_proportional = $_kp * $_error
	$_integral += $_error * $_dt
	if $_integral < $_min
		$_integral = $_min
	if $_integral > $_max
		$_integral = $_max
	$_prev_error = $_error
	var $_output = $_proportional + $_ki * $_integral + $_kd * $_derivative
	if $_output < $_min
		$_output = $_min
	if $_output > $_max
		$_output = $_max
	return $_output

update
	var $_input_number_0_0 = input_number(0, 0)
	var $_input_number_1_0 = input_number(1, 0)
	var $_input_number_5_0 = input_number(5, 0)
	var $_pid1 = 0
	if $_input_number_5_0
		$_pid1 = @_test_pid1($_input_number_0_0, $_input_number_1_0, 2, 0.1, 0.01, -1, 1, 0, 0)
	else
		$_pid1 = @_test_pid1($_input_number_0_0, $_input_number_1_0, 2, 0.1, 0.01, -1, 1)
	output_number(0, 0, $_pid1)
