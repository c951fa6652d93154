#!/usr/bin/env bash
# contrib/fleet.sh over a fleet of two hosts made of network namespaces, each with its own sshd
# and an "analyst" user, as an analyst would run it from a workstation (this namespace):
#   1. every report comes back, tagged with its host, byte for byte what varn writes on the
#      host itself, also for capture names that need shell quoting; status 0;
#   2. a capture that stops varn on one host, and the other host killed mid-run: status 1, and
#      the list of missing reports names exactly the captures whose report did not come back.
#
#   tests/fleet/fleet_test.sh VARN_BINARY
#
# Needs root (namespaces, sshd, mounts), sshd, ssh, ssh-keygen and GNU parallel; exits 77
# (skipped) and says why when one is missing. Namespaces are named pkg-fleet-*; everything made
# is removed on exit.
set -euo pipefail

skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "fleet test: FAILED: $*" >&2; exit 1; }

[ $# -eq 1 ] || { echo "usage: $0 VARN_BINARY" >&2; exit 2; }
varn=$(realpath "$1")
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
fleet=$repo/contrib/fleet.sh
[ -x "$varn" ] || fail "no varn binary at $1"

[ "$(id -u)" = 0 ] || skip "needs root to make network namespaces and run sshd"
PATH=$PATH:/usr/sbin:/sbin
for tool in ip sshd ssh ssh-keygen parallel unshare mount; do
  command -v "$tool" >/dev/null || skip "$tool is not installed (packages iproute2, openssh-server, openssh-client, parallel, util-linux)"
done
ip netns list >/dev/null 2>&1 || skip "ip netns does not work here"
[ "$("$varn" -ifile "$repo/examples/sample.pcap" -json 2>/dev/null | head -c 1)" = "{" ] ||
  skip "this varn does not write JSON Lines with -json, which the recipe brings back"

now() { date +%s.%N; }
since() { awk -v a="$1" -v b="$(now)" 'BEGIN { printf "%.2f", b - a }'; }

# --- the fleet --------------------------------------------------------------------------------
tag=$$
tmp=$(mktemp -d "/tmp/pkg-fleet.XXXXXX")
chmod 755 "$tmp"
hosts=(a b)
declare -A ns addr pid_file
net=""
for n in $(shuf -i 20-250 -n 40); do  # two free /30 networks of 10.213.0.0/16
  if ! ip route show | grep -q "^10\.213\.$n\." && ! ip route show | grep -q "^10\.213\.$((n + 1))\."; then
    net=$n
    break
  fi
done
[ -n "$net" ] || skip "no free 10.213.x.0/30 network for the test hosts"

cleanup() {
  local h
  for h in "${hosts[@]}"; do
    if [ -n "${pid_file[$h]:-}" ] && [ -s "${pid_file[$h]}" ]; then kill "$(cat "${pid_file[$h]}")" 2>/dev/null || true; fi
    if [ -n "${ns[$h]:-}" ]; then
      ip netns pids "${ns[$h]}" 2>/dev/null | xargs -r kill -9 2>/dev/null || true
      ip netns del "${ns[$h]}" 2>/dev/null || true
      rm -rf "/etc/netns/${ns[$h]}"
    fi
  done
  rm -rf "$tmp"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# The analyst's account exists only on the test hosts: their /etc/passwd, group and shadow are
# copies with one more entry, which "ip netns exec" mounts over /etc for the processes it runs.
uid=$(( $(cut -d: -f3 /etc/passwd | sort -n | awk '$1 < 60000' | tail -1) + 1 ))
home=$tmp/home
mkdir -p "$home/.ssh"
ssh-keygen -q -t ed25519 -N '' -C analyst -f "$tmp/analyst_key"
cp "$tmp/analyst_key.pub" "$home/.ssh/authorized_keys"
chown -R "$uid:$uid" "$home"
chmod 700 "$home/.ssh"

# Both hosts keep their captures in the same folder, /srv-like: $tmp/captures is bind-mounted
# from each host's own folder in that host's mount namespace.
mkdir -p "$tmp/captures"
: >"$tmp/known_hosts"
i=0
for h in "${hosts[@]}"; do
  ns[$h]=pkg-fleet-$h-$tag
  addr[$h]=10.213.$((net + i)).2
  dir=$tmp/host-$h
  mkdir -p "$dir/captures" "/etc/netns/${ns[$h]}"
  for f in passwd group shadow; do cp "/etc/$f" "/etc/netns/${ns[$h]}/$f"; done
  echo "analyst:x:$uid:$uid:analyst:$home:/bin/sh" >>"/etc/netns/${ns[$h]}/passwd"
  echo "analyst:x:$uid:" >>"/etc/netns/${ns[$h]}/group"
  echo "analyst:*:19000:0:99999:7:::" >>"/etc/netns/${ns[$h]}/shadow"

  ip netns add "${ns[$h]}"
  ip link add "pkgf$h$tag" type veth peer name eth0 netns "${ns[$h]}"
  ip addr add "10.213.$((net + i)).1/30" dev "pkgf$h$tag"
  ip link set "pkgf$h$tag" up
  ip -n "${ns[$h]}" addr add "${addr[$h]}/30" dev eth0
  ip -n "${ns[$h]}" link set eth0 up
  ip -n "${ns[$h]}" link set lo up

  ssh-keygen -q -t ed25519 -N '' -f "$dir/host_key"
  echo "${addr[$h]} $(cut -d' ' -f1,2 "$dir/host_key.pub")" >>"$tmp/known_hosts"
  pid_file[$h]=$dir/sshd.pid
  cat >"$dir/sshd_config" <<EOF
ListenAddress ${addr[$h]}
HostKey $dir/host_key
PidFile ${pid_file[$h]}
AuthorizedKeysFile $home/.ssh/authorized_keys
AllowUsers analyst
PasswordAuthentication no
KbdInteractiveAuthentication no
UsePAM no
PermitRootLogin no
MaxStartups 100
MaxSessions 100
EOF
  mkdir -p /run/sshd
  ip netns exec "${ns[$h]}" sh -c 'mount --bind "$1" "$2" && exec /usr/sbin/sshd -f "$3" -E "$4"' _ \
    "$dir/captures" "$tmp/captures" "$dir/sshd_config" "$dir/sshd.log"
  i=$((i + 1))
done
cat >"$tmp/ssh_config" <<EOF
Host *
  User analyst
  IdentityFile $tmp/analyst_key
  IdentitiesOnly yes
  UserKnownHostsFile $tmp/known_hosts
  StrictHostKeyChecking yes
  LogLevel ERROR
EOF
export FLEET_SSH="ssh -F $tmp/ssh_config"
for h in "${hosts[@]}"; do
  for try in $(seq 50); do
    [ -s "${pid_file[$h]}" ] && $FLEET_SSH -o BatchMode=yes "${addr[$h]}" true 2>/dev/null && break
    [ "$try" -lt 50 ] || fail "sshd of host $h does not answer (log: $(cat "$tmp/host-$h/sshd.log" 2>/dev/null))"
    sleep 0.1
  done
done
echo "two hosts up: ${addr[a]} (${ns[a]}) and ${addr[b]} (${ns[b]}), user analyst, each with its own sshd"

# Captures: the sample, shared captures and names that need shell quoting.
sample=$repo/examples/sample.pcap
shared=${VARN_SHARED_CAPTURES:-$repo/../shared/captures}
put() { mkdir -p "$(dirname "$2")"; cp "$1" "$2"; }
put "$sample" "$tmp/host-a/captures/a-sample.pcap"
put "$sample" "$tmp/host-a/captures/b with space.pcap"
put "$sample" "$tmp/host-a/captures/c'quote\"double.pcap"
put "$sample" "$tmp/host-a/captures/d\$HOME;\`x\`.pcap"
put "$sample" "$tmp/host-a/captures/sensor-2/e-sample.pcap"
echo "not a capture" >"$tmp/host-a/captures/notes.txt"
for n in 1 2 3 4 5 6; do put "$sample" "$tmp/host-b/captures/day-$n.pcap"; done
if [ -d "$shared" ]; then
  for f in icmpv6.pcap icmp-rfc8335.pcap; do [ -f "$shared/$f" ] && put "$shared/$f" "$tmp/host-b/captures/shared/$f"; done
fi

# What varn writes for a host's folder on the host itself, in the same order as the recipe.
local_report() {
  ip netns exec "${ns[$1]}" sh -c 'mount --bind "$1" "$2" && find "$2" -type f \( -name "*.pcap" -o -name "*.pcapng" -o -name "*.cap" \) | LC_ALL=C sort | "$3" -pipe -json' _ \
    "$tmp/host-$1/captures" "$tmp/captures" "$varn"
}
# The fleet's lines of one host, with the "host" member the recipe put first taken away.
fleet_lines_of() {
  grep -F "{\"host\":\"$1\"," "$2" 2>/dev/null | grep -v '"event_type":"fleet_host"' | sed "s/^{\"host\":\"$1\",/{/" || true
}

# --- 1. every report comes back -----------------------------------------------------------------
echo "== 1. both hosts up: every report comes back"
status=0
start=$(now)
printf '# the sensors\n%s\n\n%s  # second\n' "${addr[a]}" "${addr[b]}" >"$tmp/hosts"
"$fleet" --hosts "$tmp/hosts" -o "$tmp/run1.jsonl" --varn "$varn" "$tmp/captures" 2>"$tmp/run1.err" || status=$?
seconds=$(since "$start")
cat "$tmp/run1.err"
[ "$status" -eq 0 ] || fail "fleet.sh exited with status $status with both hosts up"
for h in a b; do
  local_report "$h" >"$tmp/local-$h.jsonl"
  fleet_lines_of "${addr[$h]}" "$tmp/run1.jsonl" >"$tmp/fleet-$h.jsonl"
  cmp -s "$tmp/local-$h.jsonl" "$tmp/fleet-$h.jsonl" || {
    diff "$tmp/local-$h.jsonl" "$tmp/fleet-$h.jsonl" | head -20
    fail "the reports of host $h differ from a run of varn on the host itself"
  }
done
reports=$(grep -c '"event_type":"file"' "$tmp/run1.jsonl" || true)
expected=$(cat "$tmp"/local-*.jsonl | grep -c '"event_type":"file"' || true)
[ "$reports" -eq "$expected" ] && [ "$reports" -ge 11 ] || fail "$reports file reports came back, $expected expected"
grep -qF "b with space.pcap" "$tmp/run1.jsonl" || fail "the capture named with a space has no report"
grep -qF 'd$HOME;`x`.pcap' "$tmp/run1.jsonl" || fail "the capture named with \$ and backquotes has no report"
printf 'run 1: %s reports from 2 hosts in %.2f s, identical to varn run on each host\n' "$reports" "$seconds"

# --- 2. a report lost to a capture that stops varn, a host lost mid-run ------------------------
echo "== 2. a capture stops varn on host a, host b is killed mid-run"
# A snapshot length above what the classic reader takes, in a capture above 128 KiB: varn stops
# with a fatal assertion (status 134) at it; the captures after it in the list get no report.
{ head -c 16 "$sample"; printf '\x00\x00\x04\x00'; tail -c +21 "$sample" | head -c 4; for n in $(seq 400); do tail -c +25 "$sample"; done; } \
  >"$tmp/host-a/captures/b-stops-varn.pcap"
# A name with a line end cannot go through -pipe: it is left out of the list, and said so.
put "$sample" "$tmp/host-a/captures/f-line
end.pcap"
# The hosts read slowly, one varn per capture 0.4 s apart, stopping at the first failure as one
# "varn -pipe" does; so reports come back one by one and host b can be killed after the first.
for n in $(seq 7 30); do put "$sample" "$tmp/host-b/captures/day-$n.pcap"; done
cat >"$tmp/slow-varn" <<EOF
#!/bin/sh
while IFS= read -r name; do
  printf '%s\n' "\$name" | "$varn" "\$@" || exit \$?
  sleep 0.4
done
EOF
chmod 755 "$tmp/slow-varn"

status=0
# Keep-alives every second: a host that vanishes is noticed after about three seconds.
FLEET_ALIVE=1 "$fleet" -S "${addr[a]},${addr[b]}" -o "$tmp/run2.jsonl" --varn "$tmp/slow-varn" "$tmp/captures" 2>"$tmp/run2.err" &
fleet_pid=$!
# Mid-run: once three reports of host b have come back.
for try in $(seq 300); do
  [ "$(fleet_lines_of "${addr[b]}" "$tmp/run2.jsonl" | grep -c '"event_type":"file"')" -ge 3 ] && break
  [ "$try" -lt 300 ] || fail "host b sent no report within 30 s"
  sleep 0.1
done
# The host dies as with a power cut: its link is gone, then every process in it is killed (no
# connection is closed in good order).
ip link del "pkgfb$tag"
ip netns pids "${ns[b]}" | xargs -r kill -9
killed_at=$(now)
wait "$fleet_pid" || status=$?
noticed=$(since "$killed_at")
cat "$tmp/run2.err"
[ "$status" -eq 1 ] || fail "fleet.sh exited with status $status after losing a host (1 expected)"

# What is missing: on host a the captures after the one that stopped varn, on host b those
# after its last report.
listed_a=$(cd "$tmp/host-a" && find captures -type f \( -name '*.pcap' -o -name '*.pcapng' -o -name '*.cap' \) | LC_ALL=C sort)
missing_a=$(sed -n '/b-stops-varn.pcap/,$p' <<<"$listed_a" | grep -v '^end.pcap$' | grep -v 'f-line$' | sed "s|^|${addr[a]}	$tmp/|"
  echo "${addr[a]}	(a capture whose name holds a line end)")
got_b=$(fleet_lines_of "${addr[b]}" "$tmp/run2.jsonl" | grep -c '"event_type":"file"' || true)
listed_b=$(cd "$tmp/host-b" && find captures -type f \( -name '*.pcap' -o -name '*.pcapng' -o -name '*.cap' \) | LC_ALL=C sort)
missing_b=$(tail -n +"$((got_b + 1))" <<<"$listed_b" | sed "s|^|${addr[b]}	$tmp/|")
expected_missing=$(printf '%s\n%s\n' "$missing_a" "$missing_b" | grep . | LC_ALL=C sort)
reported_missing=$(sed -n '/^fleet: missing reports/,/^fleet: FAILED/p' "$tmp/run2.err" | grep -v '^fleet: ' | LC_ALL=C sort)
[ "$reported_missing" = "$expected_missing" ] || {
  diff <(echo "$expected_missing") <(echo "$reported_missing") || true
  fail "the list of missing reports is not what was lost"
}
grep -q "^fleet: ${addr[b]}: LOST" "$tmp/run2.err" || fail "host b is not reported lost"
[ "$got_b" -ge 3 ] && [ "$got_b" -lt "$(grep -c . <<<"$listed_b")" ] || fail "host b was not killed mid-run ($got_b reports)"
[ "$(fleet_lines_of "${addr[b]}" "$tmp/run2.jsonl" | tail -1 | grep -c '"event_type":"file"')" -eq 1 ] ||
  fail "host b's lines after its last finished capture were passed on"
grep -q "^fleet: ${addr[a]}: .*varn status 134" "$tmp/run2.err" || fail "varn's abort on host a is not reported"
lost=$(grep -c . <<<"$expected_missing")
printf 'run 2: status 1, %s missing reports listed (host a: %s from the capture that stopped varn on; host b: %s after it was killed), loss noticed %s s after the kill\n' \
  "$lost" "$(grep -c . <<<"$missing_a")" "$(grep -c . <<<"$missing_b")" "$noticed"
# --- 3. a folder that is not there ---------------------------------------------------------------
echo "== 3. the folder is missing on host a, host b is gone before the run"
status=0
FLEET_ALIVE=1 "$fleet" -S "${addr[a]},${addr[b]}" -o "$tmp/run3.jsonl" --varn "$varn" "$tmp/no-such-folder" 2>"$tmp/run3.err" || status=$?
cat "$tmp/run3.err"
[ "$status" -eq 1 ] || fail "fleet.sh exited with status $status for a missing folder (1 expected)"
grep -q "^fleet: ${addr[a]}: no folder $tmp/no-such-folder on this host" "$tmp/run3.err" || fail "the missing folder is not named"
grep -q "^fleet: ${addr[b]}: LOST before it listed its captures (ssh status 255)" "$tmp/run3.err" ||
  fail "the host that is gone is not reported lost"

# Every line that came back is one JSON object, also from the host that was cut off.
for run in run1 run2 run3; do
  /usr/bin/python3 -c 'import json, sys
for n, line in enumerate(open(sys.argv[1], encoding="utf-8"), 1):
    event = json.loads(line)
    assert isinstance(event, dict) and "host" in event and "event_type" in event, n' "$tmp/$run.jsonl" ||
    fail "$run.jsonl holds a line that is not a JSON object with host and event_type"
done
echo "fleet test passed"
