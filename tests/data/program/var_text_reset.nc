#NODES {"nodes":[{"alias":"","channel":0,"class":"InputNode","comment":"","id":"NODE000000000000000000000001","index":2,"inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Input","type":0},{"class":"VarTextNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["hello","","$clear"],"inputTypes":{"0":1},"inputs":["","NODE000000000000000000000001",""],"name":"msg","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Text Variable"}]}

var $msg : text

update
	var $_input_number_2_0 = input_number(2, 0)
	if $_input_number_2_0
		$msg = "hello"
	if $clear
		$msg = ""
