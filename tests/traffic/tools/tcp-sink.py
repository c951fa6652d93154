#!/usr/bin/python3
"""Accepts TCP connections on PORT and writes what each sends to FILE (the last one wins)."""
import socket
import sys

port, path = int(sys.argv[1]), sys.argv[2]
srv = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
srv.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
srv.bind(("0.0.0.0", port))
srv.listen(4)
while True:
    c, _ = srv.accept()
    with open(path, "wb") as fh:
        while chunk := c.recv(65536):
            fh.write(chunk)
    c.close()
