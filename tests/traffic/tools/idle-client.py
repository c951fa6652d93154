#!/usr/bin/python3
"""Opens a TCP connection, stays silent for a while, then makes one HTTP request on it.

Drives an "almost idle" tunnel session.   idle-client.py HOST PORT IDLE_SECONDS PATH
"""
import socket
import sys
import time

host, port, idle, path = sys.argv[1], int(sys.argv[2]), float(sys.argv[3]), sys.argv[4]
s = socket.create_connection((host, port), timeout=30)
time.sleep(idle)
s.sendall(f"HEAD {path} HTTP/1.0\r\nHost: {host}\r\n\r\n".encode())
reply = b""
while chunk := s.recv(4096):
    reply += chunk
print(reply.split(b"\r\n", 1)[0].decode(errors="replace"))
