#!/usr/bin/env bash
# Looks for messages of the sources that docs/messages.md does not explain: up to the first value in
# them, or the end of the string. Usage: messages.sh SOURCE
set -euo pipefail
cd "$1"
missing=0
while IFS= read -r text; do
    grep -qF -- "$text" docs/messages.md || { echo "not in docs/messages.md: $text"; missing=1; }
done < <({
    grep -rhoE '"(Error |Attention )?MOSA: [^"\\%]*' coding overload shuffle client
    grep -rhoE '(fputs|fprintf)\([^"]*"[A-Za-z][^"\\%]{9,}' coding overload shuffle
    grep -hoE '^ +"[A-Za-z][^"\\%]{9,}' overload/loader.cpp
    # Of capture's reasons each whole text, whose parts stand on lines of their own.
    tr -d '\n' < capture/reasons.cpp | sed 's/" *"//g' | grep -oE 'Told::[a-zA-Z]+, +"[^"]*'
} | sed -E 's/^[^"]*"//; s/[[:space:](<]+$//' | sort -u)
exit $missing
