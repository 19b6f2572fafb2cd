#NODES {"nodes":[]}

include "lib/util.nc"

const $speed = 2.500000
const $label = "door"

var $_door_delay1 = 0
var $_door_counter1 : number

function @_door_pid1($_setpoint:number, $_kp:number, $_min:number) : number
	var $_error = $_setpoint - $_processvalue
	if $_integral < $_min
		$_integral = $_min
	return $_output

update
	var $_input_number_0_0 = input_number(0, 0)
	if $_input_number_0_0 and !$_door_delay1_last_up
		$_door_pulse1!!
	output_number("lamp", 0, ($_input_number_0_0 + 0.5))
	print(text("value {}", $_x))
  # a note
elseif else xor or sqrt lerp foo $
# A quote ends a string (no escapes); an open one runs to the end of its line.
print("a\" + $x
"open $y
$x = 1e5 * 2.5e-3 / .5 % 1e + 3E+2 - 7.
ab
var $t : text = text("x")
