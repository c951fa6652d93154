#!/usr/bin/python3
"""Recovers the data an exfiltration capture carries and compares it with the source file.

    recover.py MODE PCAP FILE

MODE says how the sender laid the file out in its echo requests:
  stream  the request payloads, in capture order, are consecutive slices of FILE (hping3 --file,
          scapy-exfil.py); the capture may stop before the end or wrap around to the start,
          the last slice before the wrap may be padded with zeros
  b64     the request payloads, by identifier, are the base64 text of FILE (b64-exfil.py)
  pattern each request carries one 16-byte chunk of FILE as ping's -p pattern (the payload repeats
          the pattern from byte 0; the clock overwrites the first 16 bytes)
Prints what was recovered; exit status 0 when it matches FILE.
"""
import base64
import sys


def requests(path):
    """Yields (identifier, payload) of each echo request, in capture order."""
    from scapy.all import ICMP, ICMPv6EchoRequest, PcapReader  # pylint: disable=import-outside-toplevel
    for pkt in PcapReader(path):
        if ICMP in pkt and pkt[ICMP].type == 8:
            yield pkt[ICMP].id, bytes(pkt[ICMP].payload)
        elif ICMPv6EchoRequest in pkt:
            yield pkt[ICMPv6EchoRequest].id, bytes(pkt[ICMPv6EchoRequest].data)


def main():
    mode, pcap, src = sys.argv[1:4]
    want = open(src, "rb").read()
    reqs = list(requests(pcap))
    if mode == "stream":
        got = b"".join(d for _, d in reqs)
        # at the file's end a sender starts again from its start; hping3 first pads its last
        # slice with zero bytes to the full data size
        size = len(reqs[0][1]) if reqs else 1
        padded = want + b"\0" * (-len(want) % size)
        ok = len(got) > 0 and any((w * (len(got) // len(w) + 2)).startswith(got) for w in (want, padded))
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
            # ping writes whole patterns only: a tail shorter than the pattern may stay zero
            tail = next((i for i in range(16, len(d)) if c and d[i] != c[i % len(c)]), len(d))
            if not c or any(d[tail:]) or len(d) - tail >= len(c):
                bad += 1
        ok = bad == 0 and len(reqs) == len(chunks)
        print(f"{len(reqs)} requests for {len(chunks)} chunks of {src}, {bad} not matching their chunk")
    else:
        sys.exit(f"recover.py: unknown mode {mode}")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
