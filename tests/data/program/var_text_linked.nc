#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":0,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":1},{"class":"VarTextNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["","1",""],"inputTypes":{"0":1},"inputs":["NODE000000000000000000000001","",""],"name":"msg","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Text Variable"}]}

var $msg : text

update
	var $_input_text_0_0 = input_text(0, 0)
	if 1
		$msg = $_input_text_0_0
