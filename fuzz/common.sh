# Shared by fuzz/run.sh and fuzz/smoke.sh: the clang build and the seed corpora.
# Sourced, not run. Expects FUZZ_DIR (this folder) and ROOT (the checkout).

FUZZ_TARGETS=(run reader options time ipv6 pattern any_format)
FUZZ_BUILD="${VARN_FUZZ_BUILD:-$FUZZ_DIR/build}"
SHARED_CAPTURES="${VARN_SHARED_CAPTURES:-$ROOT/../shared/captures}"
[ -d "$SHARED_CAPTURES" ] || SHARED_CAPTURES=/work/shared/captures

# Largest input per target: captures are cut to this length when loaded.
max_len_of() {
  case "$1" in
    run | reader | any_format) echo 65536 ;;
    *) echo 4096 ;;
  esac
}

fuzz_build() {
  local need=()
  command -v clang++ >/dev/null || need+=(clang)
  compgen -G "/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a" >/dev/null || need+=(libclang-rt-14-dev)
  if [ ${#need[@]} -gt 0 ]; then
    echo "installing: ${need[*]}"
    local sudo=()
    [ "$(id -u)" = 0 ] || sudo=(sudo)
    "${sudo[@]}" apt-get update </dev/null >/dev/null || true
    "${sudo[@]}" apt-get install -y "${need[@]}" </dev/null
  fi
  CC=clang CXX=clang++ cmake -S "$ROOT" -B "$FUZZ_BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVARN_FUZZ=ON -DVARN_WERROR=ON \
    -DVARN_BUILD_TESTS=OFF -DVARN_BUILD_BENCH=OFF >/dev/null
  local t targets=()
  for t in "${FUZZ_TARGETS[@]}"; do targets+=(--target "fuzz_$t"); done
  cmake --build "$FUZZ_BUILD" -j"${VARN_FUZZ_JOBS:-2}" "${targets[@]}"
}

# Writes standard input to a new seed file in directory $1, named after its content.
put_seed() {
  local dir="$1" tmp
  tmp="$(mktemp "$dir/.seed.XXXXXX")"
  cat >"$tmp"
  mv -f "$tmp" "$dir/$(md5sum <"$tmp" | cut -c1-16)"
}

# Every capture to seed from: the shared third-party captures, the regression captures, and
# those that the end-to-end tests wrote (harvested by harvest_test_captures).
seed_captures() {
  local f
  for f in "$SHARED_CAPTURES"/*.pcap "$SHARED_CAPTURES"/*.pcapng "$SHARED_CAPTURES"/*.cap \
    "$ROOT"/tests/regress/*.pcap "$FUZZ_BUILD"/harvest/*; do
    if [ -f "$f" ]; then printf '%s\n' "$f"; fi
  done
}

# The captures made with real tools for the -any_format tests.
format_captures() {
  local f
  for f in "$ROOT"/tests/formats/*.pcap "$ROOT"/tests/formats/*.pcapng; do
    if [ -f "$f" ]; then printf '%s\n' "$f"; fi
  done
}

# Runs the end-to-end tests of an existing test build ($VARN_TEST_BUILD, default build/) with a
# stand-in for the varn binary that copies every -ifile capture before running the real one.
harvest_test_captures() {
  local test_build="${VARN_TEST_BUILD:-$ROOT/build}"
  local e2e="$test_build/tests/varn_e2e_tests" real="$test_build/varn"
  [ -x "$e2e" ] && [ -x "$real" ] || return 0
  local dir="$FUZZ_BUILD/harvest" wrapper="$FUZZ_BUILD/harvest-varn.sh"
  rm -rf "$dir"
  mkdir -p "$dir"
  cat >"$wrapper" <<EOF
#!/usr/bin/env bash
prev=
for a in "\$@"; do
  if [ "\${prev,,}" = "-ifile" ] && [ -f "\$a" ] && [ "\$(stat -c %s "\$a")" -le 65536 ]; then
    cp "\$a" "$dir/\$(md5sum <"\$a" | cut -c1-16)" 2>/dev/null
  fi
  prev="\$a"
done
exec -a varn "$real" "\$@"
EOF
  chmod +x "$wrapper"
  VARN_BINARY="$wrapper" "$e2e" >/dev/null 2>&1 || true
  echo "harvested $(find "$dir" -type f | wc -l) captures from the end-to-end tests"
}

# The control block of the whole-run target (see fuzz_run.cpp) as printf escapes: c[0], c[1],
# c[2], then 21 bytes of parameters.
run_prefix() {
  local c0="$1" c1="$2" c2="$3" params="${4:-}"
  printf "\\x$c0\\x$c1\\x$c2"
  if [ -n "$params" ]; then printf "$params"; else head -c 21 /dev/zero; fi
}

make_seeds() {
  local target="$1" dir="$2" f size
  mkdir -p "$dir"
  case "$target" in
    run)
      # default; every dump in hex; ascii payload; strings; binary to /dev/null; list mode with
      # -filter and a missing name; every filter and list at once
      local prefixes=("00 00 00" "1c 00 00" "11 00 00" "17 00 00" "9a 00 00" "44 00 50" "04 ff 07")
      local params='\x03\x40\x00\xc0\xa8\x01\x02\xc0\xa8\x01\x01\x01\x02\x00\x45\x00\x01\x02\x08\x00\x00'
      local i base
      while read -r f; do
        size=$(stat -c %s "$f")
        base="${f##*/}"
        for i in "${!prefixes[@]}"; do
          # shellcheck disable=SC2086
          { run_prefix ${prefixes[$i]} "$params"; head -c "$(max_len_of run)" "$f"; } >"$dir/$base.$i"
          # Large captures get the first two command lines only.
          if [ "$size" -gt 4096 ] && [ "$i" -ge 1 ]; then break; fi
        done
      done < <(seed_captures)
      ;;
    reader)
      while read -r f; do head -c "$(max_len_of reader)" "$f" >"$dir/${f##*/}"; done < <(seed_captures)
      ;;
    any_format)
      # Every capture as it is, and (with editcap) converted to pcapng, nanosecond and modified
      # pcap, so that each format and variant is seeded with real content.
      local conv base
      while read -r f; do
        base="${f##*/}"
        head -c "$(max_len_of any_format)" "$f" >"$dir/$base"
        if command -v editcap >/dev/null; then
          for conv in pcapng nsecpcap modpcap; do
            editcap -F "$conv" "$f" - 2>/dev/null | head -c "$(max_len_of any_format)" >"$dir/$base.$conv" || true
            [ -s "$dir/$base.$conv" ] || rm -f "$dir/$base.$conv"
          done
        fi
      done < <(seed_captures; format_captures)
      ;;
    options)
      # The command lines of the golden cases ("== args" lines; double quotes group words).
      python3 - "$ROOT/tests/cases" "$dir" <<'PY'
import glob, hashlib, os, shlex, sys
cases, out = sys.argv[1], sys.argv[2]
for path in glob.glob(os.path.join(cases, "*.case")):
    with open(path, encoding="utf-8", errors="replace") as f:
        for line in f:
            if line.startswith("== args"):
                try:
                    words = shlex.split(line[len("== args"):])
                except ValueError:
                    continue
                data = "\0".join(["varn"] + words).encode()
                name = hashlib.md5(data).hexdigest()[:16]
                with open(os.path.join(out, name), "wb") as seed:
                    seed.write(data)
PY
      # One command line per line, the arguments separated by tabs.
      local line
      while IFS= read -r line; do printf '%s' "$line" | tr '\t' '\0' | put_seed "$dir"; done <<'EOF'
varn	-ifile	a.pcap
varn	-pipe	-filter	*.pcap|*.cap	-dump_meta
varn	-pipe	-filter	a,b|c*	-FILTER	**x*y*
varn	-ofile	-ascii	-ifile	x	-binary	-strings
varn	-ifile	x	-start_time	01/02/03 04:05:06	-stop_time	15-Jan-2021 4:05 pm
varn	-ifile	x	-start_time	nonsense	-stop_time
varn	-ifile	x	-find_pattern	0x45 ? ? 10	-find_pattern_h	45 00 ff
varn	-ifile	x	-icmp_type	0,8;3|11	-icmp_code	x1f	-icmp_id	o17 256	-frame	1 2 +3 -4
varn	-ifile	x	-srcip	0x0101A8C0	-dstip	192.168.1.1	-min_size	'A'	-track_replies
varn	-ifile	x	-srcipv6	2001:db8::1	-dstipv6	::	-enumdir	.	-dateformat	dd
EOF
      ;;
    time)
      local line
      while IFS= read -r line; do
        { printf '\x00\xe1\xf5\x05\x3f\x42\x0f\x00'; printf '%s' "$line"; } | put_seed "$dir"
      done <<'EOF'
01/02/03 04:05:06
15-Jan-2021
15-JAN-2021 10:00:02 pm
2/30/21
1/1/21 04:05:06.5
1/1/21 4:05 pm
12/31/30 12:00 am
1/1/31 00:00:00.9996
03/01/00 23:59:59
6-Feb-2000 1:2:3
1/1/1601
12/31/9999 65535:99:99
10/10/300  7 : 8 : 9.25
Dec-1-21
EOF
      printf '\x00\x00\x00\x80\xff\xff\xff\xff' | put_seed "$dir"
      printf '\xff\xff\xff\x7f\x3f\x42\x0f\x00' | put_seed "$dir"
      ;;
    ipv6)
      local line
      while IFS= read -r line; do printf '%s' "$line" | put_seed "$dir"; done <<'EOF'
2001:0db8:0000:0000:0000:0000:0000:0001
2001:db8::1
::1
::
fe80::1:0:0:2
1:2:3:4:5:6:7:8
12345::ffff0
1.2.3.4
:::::::::
fe80::%eth0
EOF
      printf '' | put_seed "$dir"
      ;;
    pattern)
      printf '\x000x45 ? ? 0x10\0\x00\x45\x01\x02\x10\x45' | put_seed "$dir"
      printf '\x0145 ? ? 10\0E..\x10' | put_seed "$dir"
      printf "\\x00? ? 'A' o101 x41\\0zzAAA" | put_seed "$dir"
      printf '\x02\x23\x01ABCDEFGHIJ' | put_seed "$dir"
      printf '\x03\x07\x05\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09' | put_seed "$dir"
      ;;
  esac
  return 0
}
