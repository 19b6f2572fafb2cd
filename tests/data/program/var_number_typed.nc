#NODES {"nodes":[{"class":"VarNumberNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[".5","1",""],"inputTypes":{"0":1},"inputs":["","",""],"name":"v","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Number Variable"}]}

var $v : number

update
	if 1
		$v = 0.5
	if 0
		$v = 0
