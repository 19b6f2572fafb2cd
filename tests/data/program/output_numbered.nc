#NODES {"nodes":[{"class":"TimeNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Time"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000002","index":2,"inputDefaults":["","","5",".5"],"inputTypes":{"2":1},"inputs":["NODE000000000000000000000001","","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	output_number(2, 0, time)
	output_text(2, 2, "5")
	output_number(2, 3, 0.5)
