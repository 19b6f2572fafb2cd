#NODES {"nodes":[{"class":"TimeNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Time"},{"class":"PrintNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["","","","-.5"],"inputTypes":{"0":1,"1":1},"inputs":["NODE000000000000000000000001","","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Print"}]}

update
	print(time, "", -0.5)
