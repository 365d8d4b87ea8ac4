#!/bin/sh
# Turns a list of exports into a version script: exportMap.sh LIST
echo '{ global:'
sed -n 's/^EXPORTED([0-9]*, \(.*\))$/\1;/p' "$1"
echo 'local: *; };'
