#!/usr/bin/python3
"""Checks the labelled captures against what tshark sees in them.

    check.py [DIR] [--table]

For every capture in DIR (default: this folder) it lists the host pairs that exchange echo-style
messages (ICMP 8/0, 13/14, 15/16, 17/18, ICMPv6 128/129; the initiator is the request's sender or
the reply's receiver) and compares them with DIR/labels.tsv: a pair seen but not labelled, a label
without traffic, a capture without labels or a label without a capture is an error. With --table it
prints a summary line per capture (frames, echo requests and replies, other ICMP, pairs, labels).
Exit status 0 when everything matches.
"""
import collections
import csv
import os
import subprocess
import sys

REQ4 = {8: 0, 13: 14, 15: 16, 17: 18}
REP4 = {v: k for k, v in REQ4.items()}


def frames(path):
    """Yields (family, src, dst, type) per ICMP/ICMPv6 frame; type None for fragments."""
    out = subprocess.run(
        ["tshark", "-n", "-r", path, "-o", "ip.defragment:TRUE", "-T", "fields", "-E", "separator=/t",
         "-e", "ip.src", "-e", "ip.dst", "-e", "ipv6.src", "-e", "ipv6.dst", "-e", "icmp.type",
         "-e", "icmpv6.type"],
        check=True, capture_output=True, text=True).stdout
    for line in out.splitlines():
        f = [x.split(",")[0] for x in line.split("\t")]
        if f[0]:
            yield "ipv4", f[0], f[1], int(f[4]) if f[4] else None
        else:
            yield "ipv6", f[2], f[3], int(f[5]) if f[5] else None


def summarise(path):
    s = {"frames": 0, "req": 0, "rep": 0, "other": 0, "frag": 0, "pairs": collections.Counter()}
    for fam, src, dst, t in frames(path):
        s["frames"] += 1
        if t is None:
            s["frag"] += 1
        elif (fam == "ipv4" and t in REQ4) or (fam == "ipv6" and t == 128):
            s["req"] += 1
            s["pairs"][(fam, src, dst)] += 1
        elif (fam == "ipv4" and t in REP4) or (fam == "ipv6" and t == 129):
            s["rep"] += 1
            s["pairs"][(fam, dst, src)] += 1
        else:
            s["other"] += 1
    return s


def main():
    args = [a for a in sys.argv[1:] if not a.startswith("--")]
    table = "--table" in sys.argv
    d = args[0] if args else os.path.dirname(os.path.abspath(__file__))
    labels = collections.defaultdict(dict)
    with open(os.path.join(d, "labels.tsv"), newline="") as fh:
        for row in csv.DictReader(fh, delimiter="\t"):
            labels[row["file"]][(row["family"], row["initiator"], row["responder"])] = row["label"]
    files = sorted(f for f in os.listdir(d) if f.endswith(".pcap"))
    errors = 0
    for f in sorted(set(labels) - set(files)):
        print(f"{f}: labelled but missing")
        errors += 1
    for f in files:
        s = summarise(os.path.join(d, f))
        seen, want = set(s["pairs"]), set(labels.get(f, {}))
        for p in sorted(seen - want):
            print(f"{f}: echo traffic {p[0]} {p[1]} -> {p[2]} ({s['pairs'][p]} messages) has no label")
        for p in sorted(want - seen):
            print(f"{f}: label {p[0]} {p[1]} -> {p[2]} has no echo traffic")
        errors += len(seen ^ want)
        if table:
            kinds = collections.Counter(labels.get(f, {}).values())
            print(f"{f}\t{s['frames']} frames\t{s['req']} req\t{s['rep']} rep\t{s['other']} other"
                  f"\t{s['frag']} frag\t{len(seen)} pairs\t"
                  + ",".join(f"{k}:{n}" for k, n in sorted(kinds.items())))
    print(f"check: {len(files)} captures, {sum(len(v) for v in labels.values())} labelled pairs, "
          f"{errors} problems")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
