#!/usr/bin/python3
"""Recovers the data an exfiltration capture carries and compares it with the source file.

    recover.py MODE PCAP FILE

MODE says how the sender laid the file out in its echo requests:
  stream  the request payloads, in capture order, are consecutive slices of FILE (hping3 --file,
          scapy-exfil.py); the capture may stop before the end or wrap around to the start
  b64     the request payloads, by identifier, are the base64 text of FILE (b64-exfil.py)
  pattern each request carries one 16-byte chunk of FILE as ping's -p pattern (the payload repeats
          the pattern from byte 0; the clock overwrites the first 16 bytes)
Prints what was recovered; exit status 0 when it matches FILE.
"""
import base64
import subprocess
import sys


def requests(path):
    out = subprocess.run(
        ["tshark", "-n", "-r", path, "-o", "ip.defragment:TRUE", "-Y",
         "icmp.type == 8 || icmpv6.type == 128", "-T", "fields", "-e", "icmp.ident", "-e",
         "icmpv6.echo.identifier", "-e", "data.data"],
        check=True, capture_output=True, text=True).stdout
    for line in out.splitlines():
        i4, i6, data = line.split("\t")
        yield int((i4 or i6).split(",")[0], 0), bytes.fromhex(data.replace(":", ""))


def main():
    mode, pcap, src = sys.argv[1:4]
    want = open(src, "rb").read()
    reqs = list(requests(pcap))
    if mode == "stream":
        got = b"".join(d for _, d in reqs)
        # the sender reads on from the start of the file when it reaches its end
        reps = want * (len(got) // len(want) + 2)
        ok = len(got) > 0 and reps.startswith(got)
        cover = min(len(got), len(want))
        print(f"{len(reqs)} requests, {len(got)} bytes: {'a' if ok else 'NOT a'} continuous slice "
              f"of {src} from its start ({cover} of {len(want)} bytes)")
    elif mode == "b64":
        text = b"".join(d for _, d in sorted(reqs, key=lambda r: r[0]))
        ok = base64.b64decode(text) == want
        print(f"{len(reqs)} requests, {len(text)} base64 characters: "
              f"{'decode to' if ok else 'do NOT decode to'} {src}")
    elif mode == "pattern":
        chunks = [want[i:i + 16] for i in range(0, len(want), 16)]
        bad = 0
        for k, (_, d) in enumerate(reqs):
            c = chunks[k] if k < len(chunks) else b""
            if not c or any(d[i] != c[i % len(c)] for i in range(16, len(d))):
                bad += 1
        ok = bad == 0 and len(reqs) == len(chunks)
        print(f"{len(reqs)} requests for {len(chunks)} chunks of {src}, {bad} not matching their chunk")
    else:
        sys.exit(f"recover.py: unknown mode {mode}")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
