#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs an exporter and writes the UDP datagrams that it sends to 127.0.0.1 into a pcap file.

Needs no privilege: it receives on an ordinary socket and writes every datagram under an IPv4 and a
UDP header made anew (link type: raw IP), with the source port that it came from. The text {port} in
the command is replaced by the port of the socket. Everything on loopback comes from 127.0.0.1;
--exporter names the exporter in the file, so that several files can be told apart.
"""

import argparse
import array
import socket
import struct
import subprocess
import sys
import threading
import time

RAW_IP = 101


def checksum(data):
    words = array.array("H", data)
    if sys.byteorder == "little":
        words.byteswap()
    total = sum(words)
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def packet(source, destination, payload):
    """The datagram as it was on the wire; a UDP checksum of 0 means that there is none."""
    udp = struct.pack("!HHHH", source[1], destination[1], 8 + len(payload), 0) + payload
    head = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0x4000, 64, 17, 0,
                       socket.inet_aton(source[0]), socket.inet_aton(destination[0]))
    return head[:10] + struct.pack("!H", checksum(head)) + head[12:] + udp


def receive(sock, exporter, shown_port, out, stop):
    """Writes what arrives until `stop` is set and a quarter of a second has passed in silence."""
    count = 0
    while True:
        try:
            payload, source = sock.recvfrom(65535)
        except TimeoutError:
            if stop.is_set():
                return count
            continue
        data = packet((exporter or source[0], source[1]), ("127.0.0.1", shown_port), payload)
        seconds, nanoseconds = divmod(time.time_ns(), 1000000000)
        out.write(struct.pack("!IIII", seconds, nanoseconds // 1000, len(data), len(data)) + data)
        count += 1


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--show-port", type=int, metavar="N",
                        help="destination port in the file (the one received on is a free one)")
    parser.add_argument("--exporter", metavar="ADDRESS", help="source address in the file")
    parser.add_argument("out", help="pcap file to write")
    parser.add_argument("command", nargs=argparse.REMAINDER, help="the exporter, with {port}")
    options = parser.parse_args()

    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
    sock.bind(("127.0.0.1", 0))
    sock.settimeout(0.25)
    port = sock.getsockname()[1]
    stop, received = threading.Event(), []
    with open(options.out, "wb") as out:
        out.write(struct.pack("!IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, RAW_IP))
        receiver = threading.Thread(target=lambda: received.append(
            receive(sock, options.exporter, options.show_port or port, out, stop)))
        receiver.start()
        command = [word.replace("{port}", str(port)) for word in options.command]
        status = subprocess.run(command, check=False).returncode
        stop.set()
        receiver.join()
    print(f"{options.out}: {received[0]} datagrams", file=sys.stderr)
    return status if status else int(received[0] == 0)


if __name__ == "__main__":
    sys.exit(main())
