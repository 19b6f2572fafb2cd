#NODES {"nodes":[{"alias":"","channel":1,"class":"InputNode","comment":"button","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":10.0,"y":20.0},"size":{"x":170.5,"y":90.25},"title":"Input","type":0},{"alias":"door","channel":2,"class":"InputNode","comment":"","id":"NODE000000000000000000000002","index":-1,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":10.0,"y":120.0},"size":{"x":170.5,"y":90.25},"title":"Input","type":1},{"class":"ConstNumberNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":[],"inputTypes":{},"inputs":[],"name":"gain","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Constant Number","value":0.1},{"class":"ConstTextNode","comment":"","id":"NODE000000000000000000000004","inputDefaults":[],"inputTypes":{},"inputs":[],"name":"label","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Constant Text","value":"Lamp"},{"class":"TimeNode","comment":"","id":"NODE000000000000000000000005","inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Time"},{"class":"BasicNumberNode","comment":"","id":"NODE000000000000000000000006","inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Basic Number"},{"class":"DelayNode","comment":"","id":"NODE000000000000000000000007","inputDefaults":["2","",""],"inputTypes":{},"inputs":["","NODE000000000000000000000001",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Delay"},{"class":"BlinkerNode","comment":"","id":"NODE000000000000000000000008","inputDefaults":[".5"],"inputTypes":{},"inputs":[""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Blinker"},{"class":"CounterNode","comment":"","id":"NODE000000000000000000000009","inputDefaults":["1","0","","10",""],"inputTypes":{},"inputs":["NODE000000000000000000000008","","","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Counter"},{"class":"SmoothNode","comment":"","id":"NODE00000000000000000000000A","inputDefaults":["0","1",""],"inputTypes":{},"inputs":["NODE000000000000000000000009","","NODE000000000000000000000007"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Smooth"},{"class":"ExpressionNode","comment":"","id":"NODE00000000000000000000000B","inputDefaults":["",""],"inputTypes":{},"inputs":["NODE00000000000000000000000A","NODE000000000000000000000003"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"text":"a * b + $gain","title":"Expression"},{"class":"PulseNode","comment":"","id":"NODE00000000000000000000000C","inputDefaults":["",""],"inputTypes":{},"inputs":["NODE000000000000000000000001",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Pulse"},{"class":"PulseToggleNode","comment":"","id":"NODE00000000000000000000000D","inputDefaults":["",""],"inputTypes":{},"inputs":["NODE00000000000000000000000C","NODE000000000000000000000005"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Pulse Toggle"},{"class":"SwitchNode","comment":"","id":"NODE00000000000000000000000E","inputDefaults":["","off","on"],"inputTypes":{"1":1,"2":1},"inputs":["NODE00000000000000000000000D","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Switch","type":1},{"class":"VarNumberNode","comment":"","id":"NODE00000000000000000000000F","inputDefaults":["0","",""],"inputTypes":{},"inputs":["NODE00000000000000000000000B","NODE00000000000000000000000C",""],"name":"level","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Number Variable"},{"class":"VarTextNode","comment":"","id":"NODE000000000000000000000010","inputDefaults":["","1",""],"inputTypes":{"0":1},"inputs":["NODE00000000000000000000000E","",""],"name":"state","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Text Variable"},{"class":"TextNode","comment":"","id":"NODE000000000000000000000011","inputDefaults":["",""],"inputTypes":{"0":1,"1":1},"inputs":["NODE000000000000000000000004","NODE000000000000000000000010"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"text":"{} {}","title":"Text"},{"class":"MathNode","comment":"","id":"NODE000000000000000000000012","inputDefaults":["","1"],"inputTypes":{},"inputs":["NODE00000000000000000000000F",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"ADD"},{"class":"MathNode","comment":"","id":"NODE000000000000000000000013","inputDefaults":["","1","0.5"],"inputTypes":{},"inputs":["","","NODE000000000000000000000012"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"LERP"},{"class":"PIDControllerNode","comment":"","id":"NODE000000000000000000000014","inputDefaults":["0","0","1","0","0","","","5"],"inputTypes":{},"inputs":["NODE000000000000000000000013","NODE000000000000000000000002","","","","","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"PID Controller"},{"class":"StatementNode","comment":"","id":"NODE000000000000000000000015","inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000014"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"text":"$level = a","title":"Statement"},{"class":"ConditionalNode","comment":"","id":"NODE000000000000000000000016","inputDefaults":["","","print(\"idle\")"],"inputTypes":{"1":2,"2":2},"inputs":["NODE00000000000000000000000C","NODE000000000000000000000015",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Conditional"},{"class":"ExecuteNode","comment":"","id":"NODE000000000000000000000017","inputDefaults":[""],"inputTypes":{"0":2},"inputs":["NODE000000000000000000000016"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Execute"},{"class":"PrintNode","comment":"","id":"NODE000000000000000000000018","inputDefaults":[""],"inputTypes":{"0":1},"inputs":["NODE000000000000000000000011"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Print"},{"alias":"lamp","class":"OutputNode","comment":"","id":"NODE000000000000000000000019","index":-1,"inputDefaults":["","x"],"inputTypes":{"1":1},"inputs":["NODE000000000000000000000013",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"},{"class":"IncludeNode","comment":"","id":"NODE00000000000000000000001A","inputDefaults":[],"inputTypes":{},"inputs":[],"path":"lib/util.nc","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Include"}]}

include "lib/util.nc"

const $gain = 0.100000

const $label = "Lamp"

var $level : number
var $_plant_control_counter1 : number
var $_plant_control_counter1_init = 0
var $_plant_control_delay1 = 0
var $_plant_control_smooth1 : number
var $_plant_control_smooth1_a : number
var $_plant_control_smooth1_b : number
var $_plant_control_smooth1_t0 : number
var $_plant_control_smooth1_t1 : number
var $_plant_control_pulse1_last_up = 0
var $state : text
var $_plant_control_pulse2 = 0
var $_plant_control_pulse2_last_up = 0
var $_plant_control_pulse2_last_down = 1

function @_plant_control_pid1($_setpoint:number, $_processvalue:number, $_kp:number, $_ki:number, $_kd:number, $_max:number, $_integral:number, $_prev_error:number) : number
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

update
	var $_blinker1 = round(time / 0.5) % 2 == 0
	$_plant_control_counter1 += $_blinker1
	if $_plant_control_counter1 > 10
		$_plant_control_counter1 = 10
	if 0
		$_plant_control_counter1 = 0
	var $_input_number_0_1 = input_number(0, 1)
	var $_plant_control_delay1_ = $_plant_control_delay1 > 0 and $_plant_control_delay1 < time
	if $_input_number_0_1
		$_plant_control_delay1 = time + 2
	if $_plant_control_delay1_
		$_plant_control_smooth1_a = $_plant_control_smooth1
		$_plant_control_smooth1_b = $_plant_control_counter1
		$_plant_control_smooth1_t0 = time
		$_plant_control_smooth1_t1 = time + 1
	$_plant_control_smooth1 = lerp($_plant_control_smooth1_a, $_plant_control_smooth1_b, smoothstep($_plant_control_smooth1_t0, $_plant_control_smooth1_t1, time))
	var $_expr1 = $_plant_control_smooth1 * $gain + $gain
	var $_plant_control_pulse1 = 0
	if $_input_number_0_1 and !$_plant_control_pulse1_last_up
		$_plant_control_pulse1!!
	$_plant_control_pulse1_last_up = $_input_number_0_1
	if $_plant_control_pulse1
		$level = $_expr1
	if 0
		$level = 0
	var $_plant_control_pulse2_down_ = time
	if ($_plant_control_pulse1 and !$_plant_control_pulse2_last_up) or (!$_plant_control_pulse2_down_ and $_plant_control_pulse2_last_down)
		$_plant_control_pulse2!!
	$_plant_control_pulse2_last_up = $_plant_control_pulse1
	$_plant_control_pulse2_last_down = $_plant_control_pulse2_down_
	var $_switch1 = ""
	if $_plant_control_pulse2 == 0
		$_switch1 = "off"
	elseif $_plant_control_pulse2 == 1
		$_switch1 = "on"
	if 1
		$state = $_switch1
	var $_input_alias_1 = input_text("door", 2)
	var $_pid1 = @_plant_control_pid1(lerp(0, 1, ($level + 1)), $_input_alias_1, 1, 0, 0, 5)
	if $_plant_control_pulse1
		$level = $_pid1
	else
		print("idle")
	var $_text1 = text("{} {}", $label, $state)
	print($_text1)
	output_number("lamp", 0, lerp(0, 1, ($level + 1)))
	output_text("lamp", 1, "x")
