#!/bin/sh
# Lists the functions that libraries export, numbered: listExports.sh NM LIBRARY...
set -e
nm=$1
shift
for library; do
    "$nm" -D --defined-only "$library"
done | awk '$2 == "T" && $3 ~ /^(gl|egl)[A-Z]/ && !seen[$3]++ { printf "EXPORTED(%d, %s)\n", n++, $3 }'
