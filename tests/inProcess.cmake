# inProcess
