#NODES {"nodes":[{"class":"VarNumberNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["0",""],"inputTypes":{},"inputs":["",""],"name":"n","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Number Variable"},{"class":"VarTextNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["","","",""],"inputTypes":{"0":1},"inputs":["","","",""],"name":"t","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Text Variable"},{"class":"PrintNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":["",""],"inputTypes":{"0":1,"1":1},"inputs":["NODE000000000000000000000001","NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Print"}]}

update
	print($n, $t)
