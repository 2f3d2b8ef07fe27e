#!/usr/bin/env bash
# The interop suite killed outright leaves nothing behind: starts tests/interop/interop.sh, kills it
# with SIGKILL at a few moments of its run (as it starts, at the kernel bridge, with the Open vSwitch
# daemons running, at the veth pair) and checks, within a bounded wait, that none of what it had made
# remains:
# no process it had (below it or in its PID namespace: daemons, listeners, senders) nor any later one of
# its PID namespace, no network namespace it had made (held
# by a process or by a name, on the host or anywhere; no new name of its "stx" prefix on the host),
# no link of its names on the host, no folder in its TMPDIR or in the host's /run.
#
#   killed.sh BUILD_DIR [MOMENT...]     (CTest: label interop)
#
# A moment is a number of seconds after the start, or a command line: the suite is killed as soon as
# one of its processes runs it (its program's directory left out; waited for 60 s at most, not seeing
# it is a failure). Default: 0.05 3 ovs-vswitchd "stptxrx-pcap --listen v1" (the Open vSwitch moment
# only where it is installed).
#
# Exit status: 0 nothing remained after any kill, 1 something did (it is named), 77 the suite cannot
# run here (the reason of its own skip).
set -uo pipefail

build=${1:?usage: killed.sh BUILD_DIR [MOMENT...]}
shift
moments=("$@")
if ((${#moments[@]} == 0)); then
    moments=(0.05 3)
    command -v ovs-vswitchd >/dev/null && moments+=(ovs-vswitchd)
    moments+=("stptxrx-pcap --listen v1")
fi
suite=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/interop.sh
# The names the suite gives its links; none may appear on the host.
our_links=(b0 b1 br0 o0 o1 ovs-netdev v0 v1)

scratch=$(mktemp -d "${TMPDIR:-/tmp}/stptxrx-interop-killed.XXXXXX")
tmp=$scratch/tmp log=$scratch/suite.log  # tmp: the suite's TMPDIR, to be found empty after each kill
mkdir "$tmp"
running=
cleanup() {
    [[ -n $running ]] && kill -9 "$running" 2>/dev/null && wait "$running" 2>/dev/null
    rm -rf "$scratch"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# Whether the suite can run here at all: its skip is ours.
probe=$(bash "$suite" "$build" --can-run 2>&1)
(($? == 77)) && { echo "killed: ${probe#interop: }"; exit 77; }

failed=0 saw_daemons=0
fail() { echo "FAILED - $*"; failed=1; }
ns_of() { readlink "/proc/$1/ns/$2" 2>/dev/null; }
# members PIDNS: the pids (one a line, "pid comm") of the processes in a PID namespace.
members() { holders pid "$1" | while read -r p; do echo "$p $(cat "/proc/$p/comm" 2>/dev/null)"; done; }
# holders TYPE NS: the pids of the processes in namespace NS ("net:[...]") of TYPE (pid, net).
holders() { ls -l /proc/[0-9]*/ns/"$1" 2>/dev/null | awk -v ns="$2" '$NF == ns {split($(NF-2), f, "/"); print f[3]}'; }
# descendants PID: PID and the processes below it ("pid comm" lines).
descendants() {
    local p
    echo "$1 $(cat "/proc/$1/comm" 2>/dev/null)"
    for p in $(pgrep -P "$1"); do descendants "$p"; done
}
# started PID: the start time of a process (empty when it is gone).
started() { awk '{print $22}' "/proc/$1/stat" 2>/dev/null; }
host_links() { ip -o link show | awk -F': ' '{print $2}' | cut -d@ -f1; }
netns_names() { ip netns list 2>/dev/null | awk '$1 ~ /^stx/ {print $1}'; }
run_entries() { find /run -maxdepth 1 -name 'stptxrx-interop*' 2>/dev/null; }

host_net=$(ns_of self net) host_pid=$(ns_of self pid)
# confined: the PID namespace of the running suite in $pidns, empty while it has not confined itself
# yet (its first process is then still on the host, maybe with a probe or the sweep as its child).
confined() {
    local child
    pidns=""
    for child in $(pgrep -P "$running"); do
        pidns=$(ns_of "$child" pid)
        [[ -n $pidns && $pidns != "$host_pid" ]] && return
    done
    pidns=""
}
# until_seen TEXT: waits (60 s at most, while the suite runs) for a process of it named TEXT or whose
# command line, its program's directory left out, starts with TEXT.
until_seen() {
    local end=$((SECONDS + 60)) p comm cmd prog
    while ((SECONDS < end)) && kill -0 "$running" 2>/dev/null; do
        confined
        if [[ -n $pidns ]]; then
            while read -r p comm; do
                cmd=$({ tr '\0' ' ' <"/proc/$p/cmdline"; } 2>/dev/null)
                prog=${cmd%% *}
                [[ $comm == "$1" || ${prog##*/}${cmd#"$prog"} == "$1"* ]] && return 0
            done < <(members "$pidns")
        fi
        sleep 0.1
    done
    return 1
}
for moment in "${moments[@]}"; do
    links_before=$(host_links) run_before=$(run_entries) names_before=$(netns_names)
    TMPDIR=$tmp STPTXRX_INTEROP_CONFINED= bash "$suite" "$build" >"$log" 2>&1 </dev/null &
    running=$!
    if [[ $moment =~ ^[0-9.]+$ ]]; then
        sleep "$moment"
        confined
    elif ! until_seen "$moment"; then
        fail "the suite never ran a process with \"$moment\" (60 s)"
        sed 's/^/  suite: /' "$log"
    fi
    # What the suite has at this moment: its processes (those below it and those of its PID namespace,
    # where detached daemons are) with their start times, and their network namespaces.
    held=() seen="" starts=()
    seen=$({ descendants "$running"; [[ -n $pidns ]] && members "$pidns"; } | sort -un)
    while read -r p _; do
        starts+=("$p/$(started "$p")")
        n=$(ns_of "$p" net)
        [[ -n $n && $n != "$host_net" && " ${held[*]} " != *" $n "* ]] && held+=("$n")
    done <<<"$seen"
    kill -9 "$running" 2>/dev/null
    wait "$running" 2>/dev/null
    running=
    names=$(awk 'NF {printf "%s ", $2}' <<<"$seen")
    echo "killed at $moment: $(grep -c . <<<"$seen") processes (${names% }), ${#held[@]} network namespaces"
    [[ $names == *ovs-vswitchd* || $names == *ovsdb-server* ]] && saw_daemons=1

    # The kernel removes a namespace and its links after its last holder; allow it 10 s.
    leftovers() {
        local left="" n d
        for n in "${starts[@]}"; do
            [[ -n ${n#*/} && $(started "${n%/*}") == "${n#*/}" ]] && left+=" process ${n%/*};"
        done
        if [[ -n $pidns ]]; then
            d=$(members "$pidns")
            [[ -n $d ]] && left+=" processes: $(tr '\n' ' ' <<<"$d");"
        fi
        for n in "${held[@]}"; do
            d=$(holders net "$n" | tr '\n' ' ')
            [[ -n $d ]] && left+=" $n held by pids $d;"
            grep -qF "${n#net:}" /proc/self/mountinfo && left+=" $n pinned by a name on the host;"
        done
        for n in $(comm -13 <(sort <<<"$links_before") <(host_links | sort)); do
            [[ " ${our_links[*]} " == *" $n "* || $n == stx* ]] && left+=" host link $n;"
        done
        d=$(comm -13 <(sort <<<"$names_before") <(netns_names | sort))
        [[ -n $d ]] && left+=" network namespace names on the host: $d;"
        d=$(find "$tmp" -mindepth 1 -maxdepth 1)
        [[ -n $d ]] && left+=" in TMPDIR: $d;"
        d=$(comm -13 <(sort <<<"$run_before") <(run_entries | sort))
        [[ -n $d ]] && left+=" in /run: $d;"
        echo "$left"
    }
    left=$(leftovers)
    for _ in {1..50}; do
        [[ -z $left ]] && break
        sleep 0.2
        left=$(leftovers)
    done
    if [[ -n $left ]]; then
        fail "killed at $moment, left:$left"
        sed 's/^/  suite: /' "$log"
    else
        echo "ok - killed at $moment: nothing remains"
    fi
done

# The moments must have caught the suite with its daemons running, or the test proved little.
if command -v ovs-vswitchd >/dev/null && ((saw_daemons == 0)); then
    fail "no kill caught the Open vSwitch daemons running (moments: ${moments[*]})"
fi
exit "$failed"
