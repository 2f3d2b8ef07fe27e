#!/usr/bin/env bash
# stptxrx-pcap against bridges it did not write, in network namespaces of its own:
#   kernel  a Linux bridge with STP: its Configuration BPDUs carry what sysfs says; a superior
#           Configuration BPDU makes it take our root; it then sends TCNs, which a TCA stops
#   ovs     Open vSwitch, userspace datapath, RSTP: its RST BPDUs carry the ids rstp/show reports; a
#           superior RST BPDU makes it report our bridge as root and its port as Root
#   veth    every kind of record sent arrives as the same record; each capture replays frame for
#           frame; bad input says one line, exits 1 and sends nothing
#   pvst    PVST+ frames of every per-VLAN kind, native and tagged, arrive as the same records, each
#           line naming its originating VLAN
#
#   interop.sh BUILD_DIR        (needs root and network namespaces; CTest: label interop)
#   interop.sh BUILD_DIR --can-run   only says whether it could run here (status 0 or 77)
#
# Exit status: 0 every check passed (a scenario whose programs are missing is skipped and says why),
# 1 a check failed, 77 nothing could run (not root, no namespaces, no tool).
#
# Nothing of a run outlives it, even when it is killed outright (SIGKILL, a CTest timeout): after its
# checks the script runs itself again as the first process of a PID namespace and a mount namespace of
# its own (unshare --kill-child: that process dies with the one the caller started, and every process
# of the namespace, detached daemons included, dies with it). There it mounts a private tmpfs on /run,
# which holds both its working folder and the names of its network namespaces (`ip netns`), so that
# these exist only in its own mount namespace: when its processes are gone, nothing holds them and
# the kernel removes them with their links. A normal exit also stops every daemon by its pid first.
# Before it starts, a run removes the leftovers of earlier runs of this suite that did not confine
# themselves (network namespaces "stx<pid>-*" of a pid no longer running, with their processes, and
# working folders "stptxrx-interop.*" untouched for 5 minutes, as well as killed.sh's own scratch
# folders "stptxrx-interop-killed.*", left when that test itself is killed).
set -uo pipefail

build=${1:?usage: interop.sh BUILD_DIR}
tool=$build/stptxrx-pcap
vectors=$(cd "$(dirname "${BASH_SOURCE[0]}")/../data" && pwd) || vectors=
prefix=stptxrx-interop
confine=(unshare --pid --fork --kill-child --mount-proc)

skip_all() { echo "interop: SKIPPED: $*"; exit 77; }

# sweep_stale: removes what earlier, unconfined runs left behind (see above).
sweep_stale() {
    local path name owner p f
    for path in /run/netns/stx*-*; do
        name=${path##*/} owner=${name%%-*} owner=${owner#stx}
        [[ -e $path && $owner =~ ^[0-9]+$ ]] && ! kill -0 "$owner" 2>/dev/null || continue
        for p in $(ip netns pids "$name" 2>/dev/null); do kill -9 "$p" 2>/dev/null; done
        ip netns del "$name" 2>/dev/null && echo "interop: removed stale network namespace $name"
    done
    for path in "${TMPDIR:-/tmp}/$prefix".* "${TMPDIR:-/tmp}/$prefix"-killed.*; do  # killed.sh's scratch too
        [[ -d $path && -n $(find "$path" -maxdepth 0 -mmin +5) ]] || continue
        for f in "$path"/ovs/*.pid; do
            [[ -s $f ]] && p=$(cat "$f") && [[ $(cat "/proc/$p/comm" 2>/dev/null) == ovs* ]] && kill -9 "$p"
        done
        rm -rf "$path" && echo "interop: removed stale folder $path"
    done
}

if [[ ${STPTXRX_INTEROP_CONFINED:-} != 1 ]]; then
    ((EUID == 0)) || skip_all "needs root (network namespaces, raw sockets)"
    [[ -x $tool ]] || skip_all "$tool is not built (it needs libpcap)"
    command -v ip >/dev/null || skip_all "no ip command (iproute2)"
    command -v unshare >/dev/null || skip_all "no unshare command (util-linux)"
    why=$("${confine[@]}" --net true 2>&1) || skip_all "unshare fails: $(head -n1 <<<"$why")"
    [[ ${2:-} == --can-run ]] && { echo "interop: can run"; exit 0; }
    sweep_stale
    STPTXRX_INTEROP_CONFINED=1 exec "${confine[@]}" bash "${BASH_SOURCE[0]}" "$@"
fi

# From here on: the first process of the run's own PID and mount namespaces.
mount -t tmpfs "$prefix" /run || { echo "interop: cannot mount a private /run"; exit 1; }
tag=stx
work=/run/$prefix
mkdir -p "$work"
namespaces=() pids=() pidfiles=() passed=0 failed=0 ran=0

cleanup() {
    local p f
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done
    for f in "${pidfiles[@]}"; do [[ -s $f ]] && kill "$(cat "$f" 2>/dev/null)" 2>/dev/null; done
    for p in "${pids[@]}"; do wait "$p" 2>/dev/null; done
    for f in "${pidfiles[@]}"; do  # a daemon leaves its namespace busy until it is gone
        for _ in {1..50}; do [[ -s $f ]] && kill -0 "$(cat "$f" 2>/dev/null)" 2>/dev/null || break; sleep 0.1; done
    done
    for p in "${namespaces[@]}"; do ip netns del "$p" 2>/dev/null; done
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

check() {  # check NAME COMMAND...: one result line
    if "${@:2}"; then echo "ok - $1"; ((passed++)); else echo "FAILED - $1"; ((failed++)); fi
}
same() { [[ $1 == "$2" ]] || { echo "  expected: $2"; echo "  got:      $1"; return 1; }; }
# until SECONDS COMMAND...: runs COMMAND every 0.2 s until it succeeds, at most SECONDS.
until_ok() { local end=$((SECONDS + $1)); until "${@:2}"; do ((SECONDS < end)) || return 1; sleep 0.2; done; }

ip netns add "$tag-probe" 2>"$work/netns.err" || skip_all "ip netns add fails: $(head -n1 "$work/netns.err")"
ip netns del "$tag-probe"

# new_ns NAME: a namespace of this run (removed at exit), its name in $ns.
new_ns() { ns=$tag-$1; ip netns add "$ns" && namespaces+=("$ns") && ip -n "$ns" link set lo up; }
in_ns() { timeout 30 ip netns exec "$ns" "$@"; }
# listen_bg OUT IFACE ARGS...: a listener in the background (pid in $listener), ready when it returns.
listen_bg() {
    local out=$1
    rm -f "$out" "$out.err"  # an earlier listener's "listening" must not count
    ip netns exec "$ns" "$tool" --listen "${@:2}" >"$out" 2>"$out.err" &
    listener=$!
    pids+=("$listener")
    until_ok 10 grep -qs "listening on" "$out.err"
}
# send_bg ARGS...: a sender in the background (pid in $sender).
send_bg() { ip netns exec "$ns" "$tool" --send "$@" >/dev/null 2>&1 & sender=$!; pids+=("$sender"); }
# reap PID: waits for a background program of ours (bounded by its own timeout); stop PID ends it first.
# Either way its pid leaves the list, so that cleanup never signals a pid that may have been reused.
reap() { wait "$1" 2>/dev/null; local p kept=(); for p in "${pids[@]}"; do [[ $p == "$1" ]] || kept+=("$p"); done; pids=("${kept[@]}"); }
stop() { kill "$1" 2>/dev/null; reap "$1"; }
veth() { in_ns ip link add "$1" type veth peer name "$2" && in_ns ip link set "$1" up && in_ns ip link set "$2" up; }
# field NAME LINE: the value of NAME=... in a decoded line.
field() { grep -o " $1=[^ ]*" <<<"$2" | head -n1 | cut -d= -f2; }

# ---- kernel bridge
kernel_bridge() {
    new_ns kb || return 1
    # Timers as short as the bridge takes: hello 1 s, forward delay 2 s, max age 6 s.
    if ! in_ns ip link add br0 type bridge stp_state 1 hello_time 100 forward_delay 200 max_age 600 2>"$work/br.err"; then
        echo "skipped - kernel bridge: $(head -n1 "$work/br.err")"
        return 0
    fi
    ((ran++))
    veth b0 b1 && in_ns ip link set b0 master br0 && in_ns ip link set br0 up || return 1
    local sys=/sys/class/net/br0/bridge
    in_ns "$tool" --listen b1 --count 2 --timeout 10 >"$work/kb-config" 2>/dev/null
    local id prio mac expect line
    id=$(in_ns cat $sys/bridge_id)  # 8000.0a1b2c3d4e5f
    prio=$((16#${id%%.*})) mac=$(sed -E 's/(..)/\1:/g; s/:$//' <<<"${id#*.}")
    expect="root=$prio.0.$mac cost=0 bridge=$prio.0.$mac"
    expect+=" port=128.1 age=0s maxage=$(($(in_ns cat $sys/max_age) / 100))s"
    expect+=" hello=$(($(in_ns cat $sys/hello_time) / 100))s fwd=$(($(in_ns cat $sys/forward_delay) / 100))s"
    check "kernel: two Configuration BPDUs with sysfs's bridge_id and timers" \
        same "$(grep -c "^[12] config src [0-9a-f:]* flags=[a-z,]* $expect$" "$work/kb-config")" 2

    # Once its port forwards as designated the bridge has a topology change to report; a superior root
    # then turns the port into its root port and the report into TCNs toward us.
    forwarding() { [[ $(in_ns cat /sys/class/net/b0/brport/state) == 3 ]]; }
    ours_is_root() { [[ $(in_ns cat $sys/root_id)/$(in_ns cat $sys/root_port) == 0000.020000000001/1 ]]; }
    until_ok 15 forwarding
    local ours="version=0,type=0,root=0/0/02:00:00:00:00:01,cost=0,bridge=0/0/02:00:00:00:00:01,port=128/1"
    ours+=",maxage=0x600,hello=0x100,fwd=0x200"
    send_bg b1 --count 60 --interval 0.5 --record "$ours,flags=0"
    check "kernel: a superior Configuration BPDU makes it root_id 0000.020000000001 via root_port 1" \
        until_ok 10 ours_is_root
    in_ns "$tool" --listen b1 --count 2 --timeout 10 >"$work/kb-tcn" 2>/dev/null
    check "kernel: then TCNs toward the new root" same "$(grep -c "^[12] tcn src [0-9a-f:]*$" "$work/kb-tcn")" 2
    stop "$sender"
    send_bg b1 --count 60 --interval 0.5 --record "$ours,flags=0x80"
    sleep 1.5
    in_ns "$tool" --listen b1 --timeout 3 >"$work/kb-tca" 2>/dev/null
    check "kernel: a Configuration BPDU with TCA stops them (none in three hello times)" \
        same "$(tail -n1 "$work/kb-tca")" "summary: frames=0 config=0 tcn=0 rst=0 mst=0 rejected=0 rate-limited=0"
    stop "$sender"
    sed 's/^/  kernel sent: /' "$work/kb-config" "$work/kb-tcn"
}

# ---- Open vSwitch, userspace datapath, RSTP
open_vswitch() {
    local p
    for p in ovsdb-tool ovsdb-server ovs-vswitchd ovs-vsctl ovs-appctl; do
        command -v $p >/dev/null || { echo "skipped - Open vSwitch: no $p (apt-get install openvswitch-switch)"; return 0; }
    done
    local schema=/usr/share/openvswitch/vswitch.ovsschema run=$work/ovs
    [[ -f $schema ]] || { echo "skipped - Open vSwitch: no $schema"; return 0; }
    ((ran++))
    new_ns ovs || return 1
    mkdir -p "$run"
    pidfiles+=("$run/ovsdb.pid" "$run/vswitchd.pid")
    local env=(env OVS_RUNDIR="$run" OVS_DBDIR="$run" OVS_LOGDIR="$run" OVS_SYSCONFDIR="$run")
    in_ns "${env[@]}" ovsdb-tool create "$run/conf.db" "$schema" &&
        in_ns "${env[@]}" ovsdb-server "$run/conf.db" --remote="punix:$run/db.sock" --unixctl="$run/db.ctl" \
            --pidfile="$run/ovsdb.pid" --detach --no-chdir --log-file="$run/ovsdb.log" 2>/dev/null &&
        in_ns "${env[@]}" ovs-vswitchd "unix:$run/db.sock" --unixctl="$run/vs.ctl" --pidfile="$run/vswitchd.pid" \
            --detach --no-chdir --disable-system --log-file="$run/vswitchd.log" 2>/dev/null || return 1
    veth o0 o1 &&
        in_ns ovs-vsctl --db="unix:$run/db.sock" --timeout=10 add-br br0 -- set bridge br0 datapath_type=netdev \
            -- add-port br0 o0 -- set bridge br0 rstp_enable=true other_config:rstp-max-age=6 \
            other_config:rstp-forward-delay=4 || return 1
    ovs_show() { in_ns ovs-appctl -t "$run/vs.ctl" rstp/show br0; }
    # ovs_id Root|Bridge: "PRIORITY.0.MAC" of the "Root ID:" or "Bridge ID:" section of rstp/show.
    ovs_id() { ovs_show | awk -v s="$1 ID:" '$0==s{f=1} f&&$1=="stp-priority"{p=$2} f&&$1=="stp-system-id"{print p ".0." $2; exit}'; }

    in_ns "$tool" --listen o1 --count 2 --timeout 10 >"$work/ovs-rst" 2>/dev/null
    local line
    line=$(head -n1 "$work/ovs-rst")
    check "ovs: RST BPDUs with the root and bridge identifiers rstp/show reports" \
        same "$(grep -c '^[12] rst ' "$work/ovs-rst")/$(field root "$line")/$(field bridge "$line")" "2/$(ovs_id Root)/$(ovs_id Bridge)"
    send_bg o1 --count 40 --interval 0.5 --record "version=2,type=2,flags=0x3c,root=4096/0/02:00:00:00:00:01,cost=0,bridge=4096/0/02:00:00:00:00:01,port=128/1,maxage=0x600,hello=0x200,fwd=0x400"
    is_root() { [[ $(ovs_id Root) == 4096.0.02:00:00:00:00:01 ]] && ovs_show | grep -Eq '^ +o0 +Root '; }
    check "ovs: a superior RST BPDU makes it report our bridge as root, port o0 Root" until_ok 10 is_root
    stop "$sender"
    sed 's/^/  ovs sent: /' "$work/ovs-rst"
}

# ---- veth pair: every kind, every capture, bad input
veth_pair() {
    ((ran++))
    new_ns veth && veth v0 v1 || return 1
    local mst=version=3,type=2,name=interop,revision=7,digest=0x00112233445566778899aabbccddeeff,hops=9
    local m1=msti=1/0x7c/32768/00:11:22:33:44:55/20000/32768/128/20 m64="" i
    for i in {1..64}; do m64+=",msti=$i/0x$(printf %x $((i * 3 % 256)))/$((i % 16 * 4096))/02:00:00:00:01:$(printf %02x $i)/$i/$((i % 16 * 4096))/$((i % 16 * 16))/$i"; done
    local kinds=(version=0,type=0,flags=0x81 version=0,type=0x80 version=2,type=2,flags=0x7e "$mst" "$mst,$m1" "$mst$m64")
    local records=() k
    for k in "${kinds[@]}"; do records+=(--record "$k" --record "$k,vlan=100"); done
    "$tool" "${records[@]}" "$work/kinds.pcap" 2>/dev/null && "$tool" --read "$work/kinds.pcap" >"$work/kinds.want" || return 1
    listen_bg "$work/kinds.got" v1 --count 12 --timeout 20 && in_ns "$tool" --send v0 "${records[@]}" 2>/dev/null
    reap "$listener"
    check "veth: Config, TCN, RST, MST with 0, 1 and 64 MSTIs, untagged and tagged, arrive as sent" \
        cmp -s "$work/kinds.got" "$work/kinds.want"

    local capture n
    for capture in "$vectors"/*.pcap; do
        [[ -f $capture ]] || { check "veth replay: captures in tests/data" false; break; }
        "$tool" --read "$capture" >"$work/capture.want"
        n=$(($(wc -l <"$work/capture.want") - 1))
        listen_bg "$work/capture.got" v1 --count "$n" --timeout 20 && in_ns "$tool" --send v0 --replay "$capture" 2>/dev/null
        reap "$listener"
        check "veth: --replay $(basename "$capture") arrives frame for frame ($n)" cmp -s "$work/capture.got" "$work/capture.want"
    done
    if [[ -n $vectors ]] && command -v editcap >/dev/null; then
        capture=$vectors/MSTP_Intra-Region_BPDUs.pcap
        editcap -F pcapng "$capture" "$work/mst.pcapng" && "$tool" --read "$capture" >"$work/mst.want"
        check "pcapng: the editcap -F pcapng copy reads to the same lines" \
            same "$("$tool" --read "$work/mst.pcapng")" "$(cat "$work/mst.want")"
    else
        echo "skipped - pcapng: no editcap (tshark's package) or no captures"
    fi

    # Bad input: one line on standard error, status 1, and nothing reaches the listener.
    head -c -10 "$work/kinds.pcap" >"$work/cut.pcap"
    echo "not a capture" >"$work/junk.pcap"
    listen_bg "$work/bad.got" v1 --timeout 3
    bad() {  # bad NAME COMMAND...
        "${@:2}" >/dev/null 2>"$work/bad.err"
        local status=$?
        check "bad input: $1: status 1, one line ($(head -n1 "$work/bad.err"))" \
            same "$status/$(wc -l <"$work/bad.err")" 1/1
    }
    bad "--listen on a missing interface" in_ns "$tool" --listen "no$tag"
    bad "--replay of a cut capture" in_ns "$tool" --send v0 --replay "$work/cut.pcap"
    bad "--replay of a file that is no capture" in_ns "$tool" --send v0 --replay "$work/junk.pcap"
    bad "--record the encoder refuses" in_ns "$tool" --send v0 --record "version=3,type=2,name=$(printf 'n%.0s' {1..33})"
    if command -v setpriv >/dev/null; then
        bad "--send without permission" in_ns setpriv --bounding-set=-net_raw "$tool" --send v0 --sample golden
    else
        echo "skipped - bad input: --send without permission: no setpriv"
    fi
    reap "$listener"
    check "bad input: nothing was sent" same "$(tail -n1 "$work/bad.got")" \
        "summary: frames=0 config=0 tcn=0 rst=0 mst=0 rejected=0 rate-limited=0"
}

# ---- veth pair, PVST+: every per-VLAN kind, native and tagged, through --send and --listen
pvst_veth() {
    ((ran++))
    new_ns pvst && veth p0 p1 || return 1
    local records=() k
    for k in version=0,type=0,flags=0x81 version=0,type=0x80 version=2,type=2,flags=0x7e; do
        records+=(--record "$k,pvst=1" --record "$k,pvst=4094,vlan=4094")
    done
    records+=(--record version=2,type=2,vlan=7)  # an IEEE frame among them still arrives as one
    "$tool" "${records[@]}" "$work/pvst.pcap" 2>/dev/null && "$tool" --read "$work/pvst.pcap" >"$work/pvst.want" || return 1
    listen_bg "$work/pvst.got" p1 --count 7 --timeout 20 && in_ns "$tool" --send p0 "${records[@]}" 2>/dev/null
    reap "$listener"
    check "pvst: Config, TCN, RST as PVST+, native and tagged, arrive as written" cmp -s "$work/pvst.got" "$work/pvst.want"
    check "pvst: each line names its originating VLAN (an untagged TCN none), the summary counts six" \
        same "$(head -n7 "$work/pvst.got" | cut -d' ' -f2-5 | tr '\n' '|')$(tail -n1 "$work/pvst.got")" \
        "config pvst 1 src|config pvst 4094 vlan|tcn pvst 0 src|tcn pvst 4094 vlan|rst pvst 1 src|rst pvst 4094 vlan|rst vlan 7 src|summary: frames=7 config=2 tcn=2 rst=3 mst=0 rejected=0 rate-limited=0 pvst=6"
    sed 's/^/  pvst received: /' "$work/pvst.got"
}

start=$SECONDS
for scenario in kernel_bridge open_vswitch veth_pair pvst_veth; do
    "$scenario" || check "$scenario: setting up" false
done
((ran > 0)) || skip_all "no scenario could run"
echo "interop: $((SECONDS - start)) s"
echo "$passed passed, $failed failed"
((failed == 0))
