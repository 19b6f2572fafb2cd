#NODES {"nodes":[{"class":"IncludeNode","comment":"","id":"NODE000000000000000000000001","inputDefaults":[],"inputTypes":{},"inputs":[],"path":"lib/util.nc","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Include"},{"class":"IncludeNode","comment":"","id":"NODE000000000000000000000002","inputDefaults":[],"inputTypes":{},"inputs":[],"path":"","pos":{"x":0.0,"y":0.0},"size":{"x":0.0,"y":0.0},"title":"Include"}]}

include "lib/util.nc"
