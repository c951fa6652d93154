#!/usr/bin/env bash
# Runs varn where the captures are: on every host of a fleet (sensors that keep their own
# captures), over the same folder on each, and brings back only the reports, as one stream of
# JSON Lines in which every object names its host. Nothing is lost without a word: a host that
# cannot be reached or goes away, and a capture whose report did not come back, make the status
# 1 and are listed on standard error.
#
#   contrib/fleet.sh -S LOGIN[,LOGIN...] [options] FOLDER [-- VARN_OPTIONS...]
#
#   -S LOGINS       hosts as ssh logins (analyst@sensor1,sensor2), comma-separated; repeatable
#   --hosts FILE    one more ssh login per line (# starts a comment)
#   -o FILE         write the JSON Lines to FILE instead of standard output
#   --varn PATH     the varn program on the hosts (default: varn)
#   --name PATTERN  capture names to read (find -name; repeatable; default *.pcap *.pcapng *.cap)
#   -j N            hosts at a time (default: all)
#
# On each host, FOLDER and its sub-folders are searched with find; the names, sorted, are listed
# back first, then read with "varn -pipe -json VARN_OPTIONS". varn writes one "file" event per
# capture, in list order, after the capture's frames, so the captures after the last "file"
# event that came back are exactly those whose report is missing. After each host's lines comes
# one event of the recipe's own: {"host":...,"event_type":"fleet_host","listed":N,
# "reported":N,"varn_status":N or null,"complete":true or false}.
#
# Needs GNU parallel and ssh here; a POSIX shell, find, sort, perl (for GNU parallel) and varn on
# the hosts. The ssh command is $FLEET_SSH (default "ssh"); it is given -o BatchMode=yes,
# keep-alives every $FLEET_ALIVE seconds (default 10), so that a host that vanishes without
# closing its connection is given up after three missed answers, and three times as long to
# connect.
set -euo pipefail

usage() { sed -n '/^#   contrib/,/^#   -j/p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2; }
die() { echo "fleet: $*" >&2; exit 2; }

logins=()
output=
remote_varn=varn
names=()
jobs=0
while [ $# -gt 0 ]; do
  case $1 in
    -S) [ $# -ge 2 ] || usage; IFS=, read -r -a more <<<"$2"; logins+=("${more[@]}"); shift 2 ;;
    --hosts)
      [ $# -ge 2 ] || usage
      while IFS= read -r line || [ -n "$line" ]; do
        read -r line _ <<<"${line%%#*}" || true
        [ -z "$line" ] || logins+=("$line")
      done <"$2"
      shift 2
      ;;
    -o) [ $# -ge 2 ] || usage; output=$2; shift 2 ;;
    --varn) [ $# -ge 2 ] || usage; remote_varn=$2; shift 2 ;;
    --name) [ $# -ge 2 ] || usage; names+=("$2"); shift 2 ;;
    -j) [ $# -ge 2 ] || usage; jobs=$2; shift 2 ;;
    -h | --help) usage ;;
    -*) die "unknown option $1 (see $0 --help)" ;;
    *) break ;;
  esac
done
[ $# -ge 1 ] || usage
folder=$1
shift
if [ $# -gt 0 ]; then
  [ "$1" = -- ] || die "varn options go after --: $*"
  shift
fi
varn_options=("$@")
[ ${#logins[@]} -gt 0 ] || die "no host given (-S or --hosts)"
[ ${#names[@]} -gt 0 ] || names=('*.pcap' '*.pcapng' '*.cap')
command -v parallel >/dev/null || die "GNU parallel is missing (package parallel)"
for login in "${logins[@]}"; do
  case $login in *[[:space:]\"\\]* | "") die "unusable host login: '$login'" ;; esac
done
[ "$(printf '%s\n' "${logins[@]}" | sort | uniq -d)" = "" ] || die "a host is named twice"

# A word for the hosts' POSIX shell, in single quotes.
quote() { printf "'%s'" "$(printf '%s' "$1" | sed "s/'/'\\\\''/g")"; }

find_names=""
for n in "${names[@]}"; do find_names+="${find_names:+ -o }-name $(quote "$n")"; done
varn_words="$(quote "$remote_varn") -pipe -json"
for o in "${varn_options[@]}"; do varn_words+=" $(quote "$o")"; done
# The host's side: the list ("varn-fleet list COUNT FIND_STATUS LEFT_OUT", then the names), the
# reports, the end mark with varn's status. Names holding a line end cannot go through -pipe:
# they are left out of the list and counted.
nl='
'
remote="folder=$(quote "$folder")
[ -d \"\$folder\" ] || { printf 'varn-fleet no-folder\\n'; exit 0; }
find_status=0
names=\$(find \"\$folder\" -type f \\( $find_names \\) ! -name '*$nl*') || find_status=\$?
left_out=\$(find \"\$folder\" -type f \\( $find_names \\) -name '*$nl*' -exec printf x \\; | wc -c)
names=\$(printf '%s\\n' \"\$names\" | LC_ALL=C sort)
count=\$(printf '%s' \"\$names\" | grep -c '' || true)
printf 'varn-fleet list %s %s %s\\n' \"\$count\" \"\$find_status\" \$left_out
[ \"\$count\" -eq 0 ] || printf '%s\\n' \"\$names\"
status=0
[ \"\$count\" -eq 0 ] || printf '%s\\n' \"\$names\" | $varn_words || status=\$?
printf 'varn-fleet end %s\\n' \"\$status\""

alive=${FLEET_ALIVE:-10}
case $alive in '' | *[!0-9]* | 0) die "FLEET_ALIVE must be a number of seconds above 0" ;; esac
ssh_command="${FLEET_SSH:-ssh} -o BatchMode=yes -o ConnectTimeout=$((3 * alive)) -o ServerAliveInterval=$alive -o ServerAliveCountMax=3"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
if [ -n "$output" ]; then : >"$output"; else output=/dev/stdout; fi

started=$(date +%s.%N)
login_list=$(IFS=,; echo "${logins[*]}")
# Each host's lines, as they come: the list, then varn's JSON Lines, then the end mark. A
# report is passed on once its capture's "file" event has come (the frames before it are kept
# in a scratch file until then), so a host lost in the middle of a capture leaves no partial
# report and no cut line behind; what it had not finished is listed as missing.
checker='
function json_string(s) { gsub(/\\/, "\\\\", s); gsub(/"/, "\\\"", s); return "\"" s "\"" }
function keep(h, text) {
  if (!(h in pending_file)) pending_file[h] = scratch "/pending." (++files)
  print text > pending_file[h]
  ++pending[h]
}
function pass_on(h,   text) {
  if (pending[h] > 0) {
    close(pending_file[h])
    while ((getline text < pending_file[h]) > 0) print text > out
    close(pending_file[h])
    pending[h] = 0
  }
}
{
  tab = index($0, "\t")
  host = substr($0, 1, tab - 1); line = substr($0, tab + 1)
  if (!(host in state)) state[host] = "start"
  if (state[host] == "start" && line ~ /^varn-fleet list [0-9]+ [0-9]+ [0-9]+$/) {
    split(line, word, " ")
    listed[host] = word[3] + 0; find_status[host] = word[4] + 0; left_out[host] = word[5] + 0
    state[host] = listed[host] > 0 ? "names" : "reports"
  } else if (state[host] == "start" && line == "varn-fleet no-folder") {
    no_folder[host] = 1
    state[host] = "ended"
  } else if (state[host] == "names") {
    name[host, ++named[host]] = line
    if (named[host] == listed[host]) state[host] = "reports"
  } else if (state[host] == "reports" && line ~ /^varn-fleet end [0-9]+$/) {
    ended[host] = substr(line, 16) + 0
    state[host] = "ended"
    pass_on(host)
    fflush(out)
  } else if (state[host] == "reports" && line ~ /^\{.*\}$/) {
    text = "{\"host\":" json_string(host) "," substr(line, 2)
    if (line ~ /"event_type" *: *"file"/) {
      pass_on(host)
      print text > out
      fflush(out)
      ++reported[host]
    } else {
      keep(host, text)
    }
  } else {
    ++unexpected[host]
    print "fleet: " host ": unexpected line: " line > "/dev/stderr"
  }
}
END {
  while ((getline row < joblog) > 0) {
    split(row, f, "\t")
    if (f[1] != "Seq") job_status[f[2]] = f[7] + 0
  }
  hosts = split(logins, host_list, ",")
  failed_hosts = 0; missing = 0; unknown = 0
  for (i = 1; i <= hosts; ++i) {
    h = host_list[i]
    got = reported[h] + 0
    complete = (h in ended) && ended[h] == 0 && (h in listed) && got == listed[h] && !unexpected[h] && \
      job_status[h] == 0 && !find_status[h] && !left_out[h]
    print "{\"host\":" json_string(h) ",\"event_type\":\"fleet_host\",\"listed\":" ((h in listed) ? listed[h] : "null") \
      ",\"reported\":" got ",\"varn_status\":" ((h in ended) ? ended[h] : "null") ",\"complete\":" \
      (complete ? "true" : "false") "}" > out
    ssh = "ssh status " ((h in job_status) ? job_status[h] : "unknown")
    if (h in no_folder)
      text = "no folder " folder " on this host"
    else if (!(h in listed))
      text = "LOST before it listed its captures (" ssh ")"
    else if (!(h in ended))
      text = "LOST after " got " of " listed[h] " reports (" ssh ", no end mark)"
    else
      text = got " of " listed[h] " reports, varn status " ended[h] (job_status[h] == 0 ? "" : ", " ssh)
    if (pending[h] > 0) text = text ", " pending[h] " lines after its last finished capture left out"
    if (unexpected[h]) text = text ", " unexpected[h] " unexpected lines"
    if (find_status[h]) text = text ", find status " find_status[h] " (a folder could not be read)"
    if (left_out[h]) text = text ", " left_out[h] " captures left out (a line end in the name)"
    print "fleet: " h ": " text > "/dev/stderr"
    if (complete) continue
    ++failed_hosts
    if (h in no_folder) { missing_name[++missing] = h "\t(no folder " folder ")"; ++unknown; continue }
    if (!(h in listed)) { missing_name[++missing] = h "\t(every capture: the host did not list them)"; ++unknown; continue }
    for (k = got + 1; k <= listed[h]; ++k)
      missing_name[++missing] = h "\t" (k <= named[h] ? name[h, k] : "(name not received)")
    if (find_status[h]) { missing_name[++missing] = h "\t(captures in folders find could not read)"; ++unknown }
    for (k = 1; k <= left_out[h]; ++k) missing_name[++missing] = h "\t(a capture whose name holds a line end)"
  }
  if (failed_hosts > 0) {
    print "fleet: missing reports (host, capture):" > "/dev/stderr"
    for (k = 1; k <= missing; ++k) print missing_name[k] > "/dev/stderr"
    print "fleet: FAILED: " (missing - unknown) " reports missing" (unknown ? " and " unknown " lists incomplete" : "") \
      ", " failed_hosts " of " hosts " hosts incomplete" > "/dev/stderr"
    exit 1
  }
}'

# --nonall: the command once on every host; --tag: each line begins with the host and a tab.
set +e
parallel --nonall -S "$login_list" --ssh "$ssh_command" -j "$jobs" --tag --line-buffer \
  --joblog "$scratch/joblog" "sh -c $(quote "$remote")" </dev/null |
  awk -v out="$output" -v logins="$login_list" -v folder="$folder" -v joblog="$scratch/joblog" -v scratch="$scratch" "$checker"
statuses=("${PIPESTATUS[@]}")
set -e
elapsed=$(awk -v a="$started" -v b="$(date +%s.%N)" 'BEGIN { printf "%.2f", b - a }')
# awk has judged every host, parallel's own status included (from its job log).
[ "${statuses[1]}" -eq 0 ] || exit 1
echo "fleet: every report of ${#logins[@]} hosts came back in $elapsed s" >&2
