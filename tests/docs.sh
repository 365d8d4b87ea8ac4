#!/usr/bin/env bash
# Runs every box of commands marked `sh` in the README and the guides, in the order of the text, in a
# scratch folder that looks like the project's. Usage: docs.sh SOURCE BUILD
set -euo pipefail
source=$1
build=$2

# The demo works in the project's own build folder; a test of another build must not build there.
if [ "$build" != "$source/build" ]; then
    echo "skipped: only for the build in $source/build"
    exit 77
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
ln -s "$build" "$scratch/build"
ln -s "$source/examples" "$scratch/examples"
cd "$scratch"

ran=0
for page in "$source/README.md" "$source"/docs/*.md; do
    # The tests themselves are what runs this, and the measurements take their time.
    commands=$(sed -n '/^```sh$/,/^```$/{/^```/!p}' "$page" |
        sed "s|^scripts/demo|$source/&|" | grep -vE '^scripts/(test|bench|fuzz)') || continue
    echo "== $page"
    if ! bash -euxc "$commands"; then
        echo "a command of $page failed" >&2
        exit 1
    fi
    ran=$((ran + $(wc -l <<<"$commands")))
done
echo "$ran commands ran"
[ "$ran" -ge 10 ]
for picture in wall.png atlantis.png demo.png; do
    [ -s "$picture" ] || { echo "$picture is missing" >&2; exit 1; }
done
