#NODES {"nodes":[{"class":"ConstNumberNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[],"inputTypes":{},"inputs":[],"name":"k","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Constant Number","value":0.0},{"class":"ConstTextNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":[],"inputTypes":{},"inputs":[],"name":"s","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Constant Text","value":""},{"class":"PrintNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":["",""],"inputTypes":{"0":1,"1":1},"inputs":["NODE000000000000000000000001","NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Print"}]}

const $k = 0.000000

const $s = ""

update
	print($k, $s)
