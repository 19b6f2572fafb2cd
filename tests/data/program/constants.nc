#NODES {"nodes":[{"class":"ConstNumberNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[],"inputTypes":{},"inputs":[],"name":"pi","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Constant Number","value":3.14159},{"class":"ConstTextNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":[],"inputTypes":{},"inputs":[],"name":"greeting","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Constant Text","value":"hi there"},{"class":"ConstNumberNode","comment":"","id":"NODE000000000000000000000003","inputDefaults":[],"inputTypes":{},"inputs":[],"name":"big","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Constant Number","value":-1e+20}]}

const $pi = 3.141590
const $big = -100000000000000000000.000000

const $greeting = "hi there"
