module ivrexa

go 1.19
