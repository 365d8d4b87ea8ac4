#!/usr/bin/env bash
# A wall of two machines, as the operating guide has it, and what goes wrong with one: hosts made of
# namespaces, each with its own name, address, ssh and X display. Usage: nodes_test.sh SOURCE BUILD
# Status 77: not possible here.
set -euo pipefail
source=$1
build=$2
nodes=$source/tests/nodes/nodes
gears=$source/examples/gears.mws
skip() { echo "skipped: $*"; exit 77; }
for tool in ip ssh /usr/sbin/sshd Xvfb; do
    command -v "$tool" >/dev/null || skip "no $tool: scripts/install-packages nodes"
done
unshare --net --uts --ipc --pid --mount --fork true 2>/dev/null ||
    skip "this machine permits no namespaces"

scratch=$(mktemp -d "$build/nodes.XXXXXX")
export NODES_STATE=$scratch/state MOSA_BANNER_TIME=0
trap '"$nodes" down; rm -rf "$scratch"' EXIT
cd "$scratch"
fail() {
    echo "FAILED: $*"
    cat out 2>/dev/null || true
    exit 1
}
wall() { # what mosa-wall says on the application's host goes to out
    timeout 60 "$nodes" run "$build/mosa-wall" "$@" >out 2>&1
}
said() { grep -q -- "$1" out || fail "not said: $1"; }

"$nodes" up 2 --screen 150x300 --share "$source" >log 2>&1 || { cat log; skip "the nodes do not come up"; }
printf 'node1:1\nnode2:1\n' >hosts
wall layout 2x1 150x300 --hosts hosts -o wall.conf || fail layout
wall check wall.conf --hosts hosts || fail check
said "2 servers, no fault"

# The picture is that of two displays of one machine.
wall run --wall wall.conf --hosts hosts --snapshot two.png --stats "$gears" || fail run
said "MOSA: framelock: 2 servers swap together, by network"
said "server 1 on node2 was the last at"
timeout 60 "$build/mosa-wall" demo "$gears" --wall 2x1 --tile 150x300 -o one.png >out 2>&1 || fail demo
cmp one.png two.png || fail "the pictures differ"

# An area that one display shows alone has its server on that node.
wall run --wall wall.conf --hosts hosts --at 100x100+180+20 "$gears" || fail "an area"
said "MOSA: Server node2 completed MPI_Init as task 1"
! grep -q "as task 2" out || fail "more than one server"

# A running program's mouse pointer, in the middle of its desk, is on both sides of the seam.
windows() { # of a node's display
    "$nodes" in "$1" python3 -c "import sys; sys.path.append('$source/scripts'); import xclient
print(len(xclient.windows(xclient.connect(':0'))))"
}
wall run --wall wall.conf --hosts hosts --pointer -- glxgears -geometry 1280x1024+0+0 &
job=$!
for _ in {1..300}; do
    [ "$(windows 1) $(windows 2)" != "2 2" ] || break
    sleep 0.1
done
[ "$(windows 1) $(windows 2)" = "2 2" ] || fail "no pointer: $(windows 1), $(windows 2) windows"
"$nodes" in 0 pkill -TERM -f "^$build/mosa-wall run"
! wait $job || fail "it was told to end"
[ "$(windows 1) $(windows 2)" = "0 0" ] || fail "left behind: $(windows 1), $(windows 2) windows"

# Before a job starts, what is wrong with a node is said in one line that names it.
faulty() { # how, back again, what is said
    "$nodes" in 2 bash -c "$1"
    ! wall check wall.conf --hosts hosts || fail "check found nothing: $1"
    said "server 1 (line [0-9]*) on node2: .*$3"
    said "2 servers, 1 fault"
    "$nodes" in 2 bash -c "$2"
}
covered="mount --bind /dev/null"
faulty "$covered $build/mosa-wall" "umount $build/mosa-wall" "mosa-wall"
faulty "$covered $build/server" "umount $build/server" "server is not there"
faulty "printf '#!/bin/sh\necho 0.9' >/tmp/old; chmod +x /tmp/old; mount --bind /tmp/old $build/server" \
    "umount $build/server" "is of version 0.9, not"
faulty "$covered $scratch/wall.conf" "umount $scratch/wall.conf" "wall.conf"
display="Xvfb :0 -screen 0 150x300x24 -ac -noreset -listen tcp &>/dev/null &
    until [ -e /tmp/.X11-unix/X0 ]; do sleep 0.1; done"
faulty "pkill Xvfb; while pgrep Xvfb >/dev/null; do sleep 0.1; done" "$display" "the display :0 cannot be opened"
faulty "mount -t tmpfs -o size=100k full /dev/shm" "umount /dev/shm" "/dev/shm has room for 100 KiB only"
faulty "pkill -f sbin/sshd" "/usr/sbin/sshd -f $scratch/state/sshd_config" "Connection refused"
# A node that takes another's name for its own loopback; hosts in another order than the entries.
faulty "(cat /etc/hosts; echo 127.0.1.1 node1) | sed 's/^[0-9.]* node1\$/127.0.1.1 node1/' >/tmp/hosts
    mount --bind /tmp/hosts /etc/hosts" "umount /etc/hosts" "the name node1 leads to this node itself"
printf 'node2\nnode1\n' >others
! wall check wall.conf --hosts others || fail "hosts in the wrong order"
said "the entry is for node1, its server is on node2: the hosts stand in another order"
printf 'node1\nelsewhere\n' >others
! wall check wall.conf --hosts others || fail "a host that there is not"
said "on elsewhere: .*Could not resolve"
printf 'node1\nnode2\nelsewhere\n' >others
wall check wall.conf --hosts others || fail "a host too many"
said "places for 3 servers, the wall has 2: the last are not used"

# While it runs, too; soon everything has ended everywhere, and a node that comes back is free.
breaks() { # how, what is said, back again
    rm -f out # what the last one said
    wall run --wall wall.conf --hosts hosts --loop 1000000 "$gears" &
    local job=$! start
    for _ in {1..300}; do grep -q "swap together" out 2>/dev/null && break; sleep 0.1; done
    said "swap together"
    eval "$1"
    start=$SECONDS
    ! wait $job || fail "no fault: $1"
    [ $((SECONDS - start)) -le 15 ] || fail "$((SECONDS - start)) seconds: $1"
    said "$2"
    for _ in {1..300}; do "$nodes" ps | grep -q "$build/" || break; sleep 0.1; done
    ! "$nodes" ps | grep "$build/" || fail "left behind: $1"
    eval "$3"
}
breaks '"$nodes" cut 2' "mosa-wall: node2 cannot be reached any more" '"$nodes" heal 2'
breaks '"$nodes" in 2 pkill -KILL -f "^$build/server"' "on node2 has ended, exit code 9\|server \(1 \)\?on node2 has gone" :
breaks '"$nodes" in 0 pkill -KILL -f "^$build/play"' "on app has ended, exit code 9\|its client has gone" :
breaks '"$nodes" in 2 pkill -KILL Xvfb' "lost the connection to display :0.0 on node2" \
    '"$nodes" in 2 bash -c "rm -f /tmp/.X11-unix/X0 /tmp/.X0-lock; $display"'
breaks '"$nodes" kill 1' "mosa-wall: node1 cannot be reached any more" '"$nodes" boot 1'
echo passed
