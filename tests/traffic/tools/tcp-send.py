#!/usr/bin/python3
"""Sends FILE to HOST:PORT over TCP and closes the connection."""
import socket
import sys
import time

s = socket.create_connection((sys.argv[1], int(sys.argv[2])), timeout=60)
s.sendall(open(sys.argv[3], "rb").read())
s.shutdown(socket.SHUT_WR)
s.recv(1)
time.sleep(1)
