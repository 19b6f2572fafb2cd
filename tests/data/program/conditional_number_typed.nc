#NODES {"nodes":[{"class":"ConditionalNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":["","",""],"inputTypes":{},"inputs":["","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Conditional"},{"class":"ExecuteNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":[""],"inputTypes":{"0":2},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Execute"}]}

update
	if 0
		0
	else
		0
