#NODES {"nodes":[{"class":"TextNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[],"inputTypes":{},"inputs":[],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"text":"hi","title":"Text"},{"class":"PrintNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":[""],"inputTypes":{"0":1},"inputs":["NODE000000000000000000000001"],"pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Print"}]}

update
	var $_text1 = text("hi")
	print($_text1)
