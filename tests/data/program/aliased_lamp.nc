#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"MathNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["",".5"],"inputTypes":{},"inputs":["NODE000000000000000000000001",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"ADD"},{"alias":"lamp","class":"OutputNode","comment":"","id":"NODE000000000000000000000003","index":-1,"inputDefaults":[""],"inputTypes":{},"inputs":["NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	var $_input_number_0_0 = input_number(0, 0)
	output_number("lamp", 0, ($_input_number_0_0 + 0.5))
