#NODES {"nodes":[]}
