#!/usr/bin/env bash
# Checks what a user installs: builds the Debian package from a configured and built build
# folder, unpacks it into a scratch root, runs the packaged varn from there, and checks that the
# manual page renders without warnings and that the bash completion is valid bash.
#
#   .ci/packaging.sh BUILD_DIR
#
# Exits non-zero on the first failed check.
set -euo pipefail

[ $# -eq 1 ] || { echo "usage: $0 BUILD_DIR" >&2; exit 2; }
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(cd "$1" && pwd)

fail() { echo "packaging: FAILED: $*" >&2; exit 1; }

command -v cpack >/dev/null || fail "cpack is missing (package cmake)"
command -v dpkg-deb >/dev/null || fail "dpkg-deb is missing (package dpkg)"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

echo "== package: cpack -G DEB in $build"
rm -f "$build"/varn_*.deb
(cd "$build" && cpack -G DEB >"$scratch/cpack.log" 2>&1) || { cat "$scratch/cpack.log" >&2; fail "cpack -G DEB"; }
debs=("$build"/varn_*.deb)
[ -f "${debs[0]}" ] || fail "cpack made no varn_*.deb in $build"
[ ${#debs[@]} -eq 1 ] || fail "more than one package: ${debs[*]}"
deb=${debs[0]}
echo "made $(basename "$deb")"

info=$(dpkg-deb --field "$deb" Package Version Maintainer Depends)
echo "$info"
grep -qx 'Package: varn' <<<"$info" || fail "package name is not varn"
grep -q '^Version: 0\.40' <<<"$info" || fail "package version is not 0.40"
grep -qx 'Maintainer: varn developers <varn@example.invalid>' <<<"$info" || fail "maintainer"
grep -q '^Depends: .*libc6' <<<"$info" || fail "Depends does not name libc6"

echo "== unpack into a scratch root (dpkg -x)"
root=$scratch/root
dpkg -x "$deb" "$root"
for f in usr/bin/varn usr/share/man/man1/varn.1 usr/share/bash-completion/completions/varn; do
  [ -f "$root/$f" ] || fail "the package does not install /$f"
done
cmp -s "$root/usr/share/man/man1/varn.1" "$repo/varn.1" || fail "packaged varn.1 differs from the checkout"
cmp -s "$root/usr/share/bash-completion/completions/varn" "$repo/completions/varn" ||
  fail "packaged completion differs from the checkout"

echo "== run the packaged varn: $root/usr/bin/varn -help"
status=0
"$root/usr/bin/varn" -help >"$scratch/help.out" 2>"$scratch/help.err" </dev/null || status=$?
[ "$status" -eq 0 ] || fail "varn -help exited with status $status"
[ ! -s "$scratch/help.out" ] || fail "varn -help wrote to standard output"
grep -q '^Usage$' "$scratch/help.err" || fail "varn -help printed no usage on standard error"
grep -qF ' varn [-ifile <pcap file> | -pipe | -help] [options]' "$scratch/help.err" ||
  fail "the usage has no synopsis line"
echo "usage text on standard error, status 0"

echo "== run the packaged varn on examples/sample.pcap"
"$root/usr/bin/varn" -ifile "$repo/examples/sample.pcap" >"$scratch/sample.out" </dev/null ||
  fail "varn -ifile examples/sample.pcap exited with status $?"
records=$(grep -cE '^ +[0-9]+ , ' "$scratch/sample.out" || true)
[ "$records" -eq 9 ] || fail "expected 9 metadata lines for examples/sample.pcap, got $records"
echo "9 metadata lines"

echo "== manual page: man --warnings -l varn.1"
if command -v man >/dev/null; then
  for page in "$repo/varn.1" "$root/usr/share/man/man1/varn.1"; do
    MANWIDTH=80 man --warnings -l "$page" >"$scratch/man.out" 2>"$scratch/man.err" || {
      cat "$scratch/man.err" >&2
      fail "man could not render $page"
    }
    if [ -s "$scratch/man.err" ]; then
      cat "$scratch/man.err" >&2
      fail "man --warnings reported problems in $page"
    fi
    grep -q 'VARN(1)' "$scratch/man.out" || fail "$page rendered without its title"
  done
  echo "varn.1 renders without warnings"
else
  echo "SKIPPED: man is not installed (package man-db); the manual page was not checked"
fi

echo "== bash completion: bash -n completions/varn"
bash -n "$repo/completions/varn" || fail "completions/varn is not valid bash"
# Source it and ask for the options that begin with -dump_.
words=$(bash -c 'source "$1"; COMP_WORDS=(varn -dump_); COMP_CWORD=1; _varn; echo "${COMPREPLY[*]}"' \
  _ "$root/usr/share/bash-completion/completions/varn")
[ "$words" = "-dump_meta -dump_hdr -dump_payload" ] || fail "completion of -dump_ gave: $words"
echo "completion loads and completes -dump_"

echo "== packaging checks passed"
