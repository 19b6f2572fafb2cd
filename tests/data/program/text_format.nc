#NODES {"nodes":[{"class":"TimeNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Time"},{"class":"TextNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":["","s","4"],"inputTypes":{"0":1,"1":1},"inputs":["NODE000000000000000000000001","",""],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"text":"t={} \"q\"","title":"Text"},{"class":"PrintNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":[""],"inputTypes":{"0":1},"inputs":["NODE000000000000000000000002"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Print"}]}

update
	var $_text1 = text("t={} "q"", time, "s", 4)
	print($_text1)
