#NODES {"nodes":[{"class":"PulseToggleNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["",""],"inputTypes":{},"inputs":["",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Pulse Toggle"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":0,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

var $_test_pulse1 = 0

update
	output_number(0, 0, $_test_pulse1)
