#NODES {"nodes":[{"class":"PrintNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[""],"inputTypes":{"0":1},"inputs":[""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Print"}]}

update
	print("")
