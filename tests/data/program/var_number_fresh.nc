#NODES {"nodes":[{"class":"VarNumberNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["0","",""],"inputTypes":{},"inputs":["","",""],"name":"count","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Number Variable"}]}

var $count : number

update
	if 0
		$count = 0
	if 0
		$count = 0
