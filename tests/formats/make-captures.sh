#!/usr/bin/env bash
# Makes the captures of this folder with real capture tools between two network namespaces
# (fmt-a, fmt-b) joined by a veth pair, and a tun device. Run as root; needs iproute2, tcpdump,
# dumpcap (wireshark-common), ping (iputils-ping) and Debian's python3-scapy. The namespaces are
# removed at the end. See README.md for what each capture holds.
set -euo pipefail
cd "$(dirname "$0")"
py=/usr/bin/python3

cleanup() {
  for pid in $(jobs -p); do kill "$pid" 2>/dev/null || true; done
  ip netns del fmt-a 2>/dev/null || true
  ip netns del fmt-b 2>/dev/null || true
}
trap cleanup EXIT
cleanup

ip netns add fmt-a
ip netns add fmt-b
ip link add fmt-va netns fmt-a type veth peer name fmt-vb netns fmt-b
ip -n fmt-a addr add 10.77.0.1/24 dev fmt-va
ip -n fmt-b addr add 10.77.0.2/24 dev fmt-vb
ip -n fmt-a addr add fd77::1/64 dev fmt-va nodad
ip -n fmt-b addr add fd77::2/64 dev fmt-vb nodad
for ns in fmt-a fmt-b; do ip -n "$ns" link set lo up; done
ip -n fmt-a link set fmt-va up
ip -n fmt-b link set fmt-vb up
sleep 2  # link-local addresses and routes settle

in_a=(ip netns exec fmt-a)
in_b=(ip netns exec fmt-b)
a() { "${in_a[@]}" "$@"; }

# Starts a capture (a plain command, so that its process gets the signal) in the background and
# waits until it is running.
start() {
  "$@" 2>capture.log &
  capture_pid=$!
  for _ in $(seq 50); do grep -q -i -E 'listening|capturing' capture.log && break; sleep 0.1; done
  sleep 0.3
}
stop() {
  sleep 0.5
  kill -INT "$capture_pid"
  wait "$capture_pid" || true
  capture_pid=
  rm -f capture.log
}

# Both address families, a reply each way, a ping large enough to be fragmented, and an
# unreachable port (its error quotes the datagram).
traffic() {
  a ping -c 2 -i 0.2 -W 1 10.77.0.2 >/dev/null
  a ping -6 -c 2 -i 0.2 -W 1 fd77::2 >/dev/null
  a ping -c 1 -s 2000 -W 1 10.77.0.2 >/dev/null
  a ping -6 -c 1 -s 2000 -W 1 fd77::2 >/dev/null
  a "$py" -c 'import socket; s=socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.sendto(b"probe", ("10.77.0.2", 9))'
}

# Linux cooked captures (tcpdump -i any), version 1 (microseconds) and version 2 (nanoseconds).
start "${in_a[@]}" tcpdump -i any -y LINUX_SLL -w cooked-v1.pcap 'icmp or icmp6 or udp or (ip[6:2] & 0x1fff != 0)'
traffic
stop
start "${in_a[@]}" tcpdump -i any -y LINUX_SLL2 --nano -w cooked-v2-nano.pcap 'icmp or icmp6 or udp or (ip[6:2] & 0x1fff != 0)'
traffic
stop

# pcapng from dumpcap over two interfaces of different link types: the veth (Ethernet) and
# "any" (Linux cooked v2).
start "${in_a[@]}" dumpcap -q -i fmt-va -i any -y LINUX_SLL2 -f 'icmp or icmp6' -w dumpcap-two-interfaces.pcapng
a ping -c 2 -i 0.2 -W 1 10.77.0.2 >/dev/null
a ping -c 1 -W 1 127.0.0.1 >/dev/null
a ping -6 -c 1 -W 1 ::1 >/dev/null
stop

# Raw IP: tcpdump on a tun device. A script plays the far end of the tunnel: it writes echo
# requests into the tun device, and the kernel answers them through it.
a ip tuntap add dev fmt-tun mode tun
a ip addr add 10.78.0.1/24 dev fmt-tun
a ip addr add fd78::1/64 dev fmt-tun nodad
a ip link set fmt-tun up
a "$py" - <<'PY' &
import fcntl, os, struct, time
fd = os.open("/dev/net/tun", os.O_RDWR)
fcntl.ioctl(fd, 0x400454ca, struct.pack("16sH", b"fmt-tun", 0x0001 | 0x1000))  # TUNSETIFF: IFF_TUN | IFF_NO_PI
time.sleep(3)
from scapy.all import IP, IPv6, ICMP, ICMPv6EchoRequest, raw
for seq in (1, 2):
    os.write(fd, raw(IP(src="10.78.0.2", dst="10.78.0.1", ttl=61) / ICMP(id=0x7801, seq=seq) / (b"tun-v4 %d" % seq)))
    os.write(fd, raw(IPv6(src="fd78::2", dst="fd78::1", hlim=60) / ICMPv6EchoRequest(id=0x7802, seq=seq, data=b"tun-v6 %d" % seq)))
    time.sleep(0.2)
time.sleep(1)
PY
tun_pid=$!
sleep 1
start "${in_a[@]}" tcpdump -i fmt-tun -w tun-raw.pcap 'icmp or icmp6'
wait "$tun_pid"
stop

# Tagged frames and IPv6 extension headers sent with scapy on the veth, captured on its peer.
start "${in_b[@]}" tcpdump -i fmt-vb -w scapy-tags-exthdrs.pcap 'not (icmp6 and ip6[40] == 133) and not (ip6 and ip6[6] == 58 and ip6[40] == 143)'
a "$py" - <<'PY'
from scapy.all import (Ether, Dot1Q, Dot1AD, IP, IPv6, ICMP, UDP, ICMPv6EchoRequest, ICMPv6EchoReply,
                       ICMPv6MLReport2, ICMPv6ND_NS, IPv6ExtHdrHopByHop, IPv6ExtHdrRouting, IPv6ExtHdrDestOpt,
                       IPv6ExtHdrFragment, RouterAlert, IPOption_Router_Alert, sendp)
src, dst = "02:00:00:77:00:01", "02:00:00:77:00:02"
v4 = dict(src="10.77.0.1", dst="10.77.0.2")
v6 = dict(src="fd77::1", dst="fd77::2")
frames = [
    Ether(src=src, dst=dst) / Dot1Q(vlan=10) / IP(**v4, ttl=33) / ICMP(id=0x0a01, seq=1) / b"one 802.1Q tag",
    Ether(src=src, dst=dst) / Dot1AD(vlan=100) / Dot1Q(vlan=10) / IP(**v4, ttl=34) / ICMP(id=0x0a02, seq=2) / b"802.1ad then 802.1Q",
    Ether(src=src, dst=dst, type=0x8100) / Dot1Q(vlan=7, type=0x8100) / Dot1Q(vlan=8) / IP(**v4) / ICMP(type=13, id=0x0a03),
    Ether(src=src, dst=dst) / Dot1Q(vlan=10) / IP(**v4) / UDP(sport=1000, dport=53) / b"not icmp",
    Ether(src=src, dst=dst) / Dot1Q(vlan=20) / IPv6(**v6, hlim=35) / ICMPv6EchoRequest(id=0x0b01, seq=1, data=b"tagged v6"),
    Ether(src=src, dst=dst) / Dot1AD(vlan=200) / Dot1Q(vlan=20) / IPv6(**v6) / IPv6ExtHdrHopByHop(options=[RouterAlert()]) / ICMPv6MLReport2(),
    Ether(src=src, dst=dst) / IPv6(**v6) / IPv6ExtHdrHopByHop(options=[RouterAlert()]) / ICMPv6MLReport2(),
    Ether(src=src, dst=dst) / IPv6(**v6) / IPv6ExtHdrRouting(addresses=["fd77::9"], segleft=0) / ICMPv6EchoRequest(id=0x0b02, seq=2, data=b"behind routing"),
    Ether(src=src, dst=dst) / IPv6(**v6) / IPv6ExtHdrDestOpt() / ICMPv6EchoRequest(id=0x0b03, seq=3, data=b"behind dest opts"),
    Ether(src=src, dst=dst) / IPv6(**v6) / IPv6ExtHdrHopByHop() / IPv6ExtHdrDestOpt() / IPv6ExtHdrRouting(segleft=0) / IPv6ExtHdrDestOpt() / ICMPv6EchoReply(id=0x0b04, seq=4, data=b"four headers"),
    Ether(src=src, dst=dst) / IPv6(**v6) / IPv6ExtHdrFragment(offset=0, m=0, id=0x5151) / ICMPv6EchoRequest(id=0x0b05, seq=5, data=b"atomic fragment"),
    Ether(src=src, dst=dst) / IPv6(**v6) / IPv6ExtHdrFragment(offset=0, m=1, id=0x5252, nh=58) / bytes(ICMPv6EchoRequest(id=0x0b06, seq=6, cksum=0, data=b"A" * 40))[:32],
    Ether(src=src, dst=dst) / IPv6(**v6) / IPv6ExtHdrFragment(offset=4, m=0, id=0x5252, nh=58) / (b"A" * 16),
    Ether(src=src, dst=dst) / IPv6(**v6) / IPv6ExtHdrHopByHop() / UDP(sport=1000, dport=53) / b"not icmp",
    Ether(src=src, dst=dst) / IP(**v4, options=[IPOption_Router_Alert()]) / ICMP(id=0x0c01, seq=1) / b"ipv4 options",
    Ether(src=src, dst=dst) / IP(**v4, flags="MF", frag=0, id=0x4242, proto=1) / bytes(ICMP(id=0x0c02, seq=2) / (b"B" * 40))[:24],
    Ether(src=src, dst=dst) / IP(**v4, frag=3, id=0x4242, proto=1) / (b"B" * 24),
]
sendp(frames, iface="fmt-va", verbose=False, inter=0.05)
PY
stop

ls -l ./*.pcap ./*.pcapng
