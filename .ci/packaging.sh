#!/usr/bin/env bash
# Checks what a user installs: builds the Debian package from a configured and built build
# folder, runs lintian on it (any error or warning fails), unpacks it into a scratch root, runs
# the packaged varn from there, and checks the copyright file, the changelog, that the manual
# page renders without warnings, that the bash completion completes and that the zsh completion
# loads and completes (when zsh is installed).
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
grep -qx 'Version: 0\.40' <<<"$info" || fail "package version is not 0.40"
grep -qx 'Maintainer: varn developers <varn@example.invalid>' <<<"$info" || fail "maintainer"
grep -q '^Depends: .*libc6' <<<"$info" || fail "Depends does not name libc6"

echo "== lintian (fails on any error or warning; information tags are shown)"
if command -v lintian >/dev/null; then
  # lintian warns on its own when run as root; that line is left out.
  status=0
  lintian --fail-on error,warning --display-info --show-overrides "$deb" >"$scratch/lintian.out" 2>&1 || status=$?
  grep -v '^running with root privileges is not recommended!$' "$scratch/lintian.out" || true
  [ "$status" -eq 0 ] || fail "lintian reported errors or warnings (status $status)"
  echo "lintian: no error, no warning"
else
  fail "lintian is missing (package lintian)"
fi

echo "== unpack into a scratch root (dpkg -x)"
root=$scratch/root
dpkg -x "$deb" "$root"
doc=usr/share/doc/varn
for f in usr/bin/varn usr/share/man/man1/varn.1.gz usr/share/bash-completion/completions/varn \
  usr/share/zsh/vendor-completions/_varn $doc/copyright $doc/changelog.gz; do
  [ -f "$root/$f" ] || fail "the package does not install /$f"
done
zcat "$root/usr/share/man/man1/varn.1.gz" | cmp -s - "$repo/varn.1" || fail "packaged varn.1.gz differs from the checkout"
cmp -s "$root/usr/share/bash-completion/completions/varn" "$repo/completions/varn" ||
  fail "packaged bash completion differs from the checkout"
cmp -s "$root/usr/share/zsh/vendor-completions/_varn" "$repo/completions/_varn" ||
  fail "packaged zsh completion differs from the checkout"

echo "== copyright and changelog"
# The stand-alone licence paragraph of the copyright file (after the second "License:" line)
# holds LICENSE's text from "Redistribution" to the end.
awk '/^License: BSD-2-Clause$/ { n++; next } n == 2' "$root/$doc/copyright" | sed 's/^ //; s/^\.$//' |
  cmp -s - <(sed -n '/^Redistribution/,$p' "$repo/LICENSE") ||
  fail "the licence in $doc/copyright is not the text of LICENSE"
grep -qx 'Copyright (c) 2026, the varn developers' "$repo/LICENSE" || fail "LICENSE lacks its copyright line"
changelog_version=$(zcat "$root/$doc/changelog.gz" | dpkg-parsechangelog -l - -S Version)
[ "$changelog_version" = "$(dpkg-deb --field "$deb" Version)" ] ||
  fail "the changelog's version $changelog_version is not the package's"
echo "copyright holds LICENSE; changelog version $changelog_version"

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
  for page in "$repo/varn.1" "$root/usr/share/man/man1/varn.1.gz"; do
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

echo "== zsh completion: loaded by compinit from the packaged folder, completing in a pseudo-terminal"
if command -v zsh >/dev/null; then
  zsh -n "$repo/completions/_varn" || fail "completions/_varn is not valid zsh"
  words=$(cd "$scratch" && zsh -f "$repo/.ci/zsh-complete.zsh" "$root/usr/share/zsh/vendor-completions" -dump_ | xargs)
  [ "$words" = "-dump_hdr -dump_meta -dump_payload" ] || fail "zsh completion of -dump_ gave: $words"
  words=$(cd "$scratch" && zsh -f "$repo/.ci/zsh-complete.zsh" "$root/usr/share/zsh/vendor-completions" -s | xargs)
  [ "$words" = "-srcip -srcipv6 -start_time -stop_time -strings -summary" ] ||
    fail "zsh completion of -s gave: $words"
  mkdir "$scratch/files" && touch "$scratch/files/a.pcap"
  words=$(cd "$scratch/files" && zsh -f "$repo/.ci/zsh-complete.zsh" "$root/usr/share/zsh/vendor-completions" "-ifile " | xargs)
  [ "$words" = "a.pcap" ] || fail "zsh completion after -ifile gave: $words"
  echo "zsh completion loads and completes -dump_, -s and a file name after -ifile"
else
  echo "SKIPPED: zsh is not installed (package zsh); the zsh completion was not checked"
fi

echo "== packaging checks passed"
