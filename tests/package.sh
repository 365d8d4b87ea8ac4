#!/usr/bin/env bash
# Makes the Debian package, installs it into a root of its own, runs what it brought there, and
# removes it again. Usage: package.sh BUILD [CPACK]. Status 77: nothing to make a package with.
set -euo pipefail
build=$1
cpack=${2:-cpack}
for tool in dpkg dpkg-deb dpkg-shlibdeps; do
    command -v "$tool" >/dev/null || { echo "skipped: no $tool"; exit 77; }
done
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
root=$scratch/root
bin=$root/usr/bin
share=$root/usr/share

fail() {
    echo "FAILED: $*"
    exit 1
}

"$cpack" --config "$build/CPackConfig.cmake" -G DEB -B "$scratch" >"$scratch/log" ||
    { cat "$scratch/log"; fail "cpack"; }
deb=$(echo "$scratch"/mosa_*.deb)
for dependency in mpich libc6 libmpich12 libx11-6 libpng16-16 zlib1g; do
    dpkg-deb -f "$deb" Depends | grep -qw "$dependency" || fail "no dependency on $dependency"
done

# The dependencies are the machine's own: in the new root there are none.
dpkg_there() {
    dpkg --root="$root" --log=/dev/null --force-depends --force-bad-path \
        --path-include="*" "$@" \
        >>"$scratch/log" 2>&1 || { cat "$scratch/log"; fail "dpkg $*"; }
}
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
touch "$root/var/lib/dpkg/status"
if [ "$(id -u)" -eq 0 ]; then
    dpkg_there --install "$deb"
else
    dpkg-deb --extract "$deb" "$root" # only root may give files to root
fi

for program in mosa-server mosa-play mosa-wall streamdump; do
    [ "$("$bin/$program" --version)" = "$(dpkg-deb -f "$deb" Version)" ] || fail "$program --version"
    [ -s "$share/man/man1/$program.1" ] || fail "no manual page of $program"
done
if command -v groff >/dev/null; then
    for page in "$share"/man/man?/*; do
        groff -man -ww -z "$page" >"$scratch/log" 2>&1 || fail "$page"
        [ ! -s "$scratch/log" ] || { cat "$scratch/log"; fail "$page"; }
    done
fi
"$bin/streamdump" --stats "$share/mosa/examples/gears.mws" | grep -q '^20 buffers' ||
    fail "streamdump of an installed example"
[ -s "$share/doc/mosa/messages.md" ] || fail "no documentation"

# A job of the installed server and player, found by the installed tool.
(cd "$scratch" && timeout 300 "$bin/mosa-wall" demo --wall 1x1 -o wall.png) >"$scratch/log" 2>&1 ||
    { cat "$scratch/log"; fail "mosa-wall demo"; }
[ -s "$scratch/wall.png" ] || fail "no picture"
(cd "$scratch" && timeout 300 "$bin/mosa-wall" record -o live.mws --frames 5 -- glxgears) \
    >"$scratch/log" 2>&1 || { cat "$scratch/log"; fail "mosa-wall record"; }

if [ "$(id -u)" -eq 0 ]; then
    dpkg_there --remove mosa
    [ ! -e "$root/usr" ] || fail "left behind: $(find "$root/usr" ! -type d)"
fi
echo "passed"
