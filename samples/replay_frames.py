#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Puts the frames of an Ethernet pcap file onto an interface, faster than they were.

Needs the right to open packet sockets (root, or root of a namespace of one's own).
"""

import argparse
import socket
import struct
import sys
import time


def frames(path):
    with open(path, "rb") as file:
        magic, _, _, _, _, _, link = struct.unpack("!IHHiIII", file.read(24))
        if magic != 0xA1B2C3D4 or link != 1:
            sys.exit(f"{path}: not an Ethernet pcap file of make_traffic.py")
        while head := file.read(16):
            seconds, micros, kept, whole = struct.unpack("!IIII", head)
            frame = file.read(kept)
            if kept != whole:
                sys.exit(f"{path}: holds cut frames")
            yield seconds + micros / 1e6, frame


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("pcap")
    parser.add_argument("interface")
    parser.add_argument("--router", required=True, metavar="MAC")
    parser.add_argument("--side", choices=("router", "office"), required=True,
                        help="send the frames that the router sends, or the others")
    parser.add_argument("--speed", type=float, default=30, help="how many times faster")
    parser.add_argument("--at", type=float, required=True,
                        help="wall-clock time of the first frame")
    options = parser.parse_args()

    router = bytes.fromhex(options.router.replace(":", ""))
    sock = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
    sock.bind((options.interface, 0))
    first, count, size = None, 0, 0
    for when, frame in frames(options.pcap):
        first = when if first is None else first
        if (frame[6:12] == router) != (options.side == "router"):
            continue
        wait = options.at + (when - first) / options.speed - time.time()
        if wait > 0:
            time.sleep(wait)
        sock.send(frame)
        count += 1
        size += len(frame)
    print(f"{options.side} side sent: {count} frames, {size} bytes")


if __name__ == "__main__":
    main()
