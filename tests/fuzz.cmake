# fuzz
