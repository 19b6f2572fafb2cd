#NODES {"nodes":[{"class":"BasicNumberNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Basic Number"},{"class":"IncludeNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":[],"inputTypes":{},"inputs":[],"path":"","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Include"},{"alias":"","class":"OutputNode","comment":"","id":"NODE000000000000000000000003","index":0,"inputDefaults":["",""],"inputTypes":{},"inputs":["NODE000000000000000000000001","NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Output"}]}

update
	output_number(0, 0, )
	output_number(0, 1, )
