#NODES {"nodes":[{"class":"BlinkerNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[".5"],"inputTypes":{},"inputs":[""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Blinker"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	var $_blinker1 = round(time / 0.5) % 2 == 0
	output_number(0, 0, $_blinker1)
