#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes a pcap file of the traffic of a small office, the same for the same seed.

The clients of office N live in 10.N.0.0/16 and 2001:db8:N::/48, untagged or in VLAN 10 and 20;
servers live in the documentation ranges. There are DNS look-ups, web sessions over TCP and QUIC,
mail, an SSH session, time queries, a call, pings, refused connections, a small scan and log lines
for a server of the office's own, over IPv4 and IPv6. All checksums are right.
"""

import argparse
import array
import ipaddress
import random
import struct
import sys

START = 1709629200  # 2024-03-05 09:00:00 UTC
MSS = 1400
FIN, SYN, RST, PSH, ACK = 1, 2, 4, 8, 16
ICMP, TCP, UDP, ICMPV6 = 1, 6, 17, 58
EXPEDITED, VIDEO = 0xB8, 0x88  # traffic classes of a call's sound and of a film
FILL = bytes(range(256)) * 8
ROUTER_MAC = bytes.fromhex("02000a000001")


def checksum(data):
    if len(data) % 2:
        data += b"\0"
    words = array.array("H", data)
    if sys.byteorder == "little":
        words.byteswap()
    total = sum(words)
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def dns_message(number, name, answers=None):
    """A question for the address of a name, or the answer to it."""
    flags = 0x0100 if answers is None else 0x8180
    labels = b"".join(bytes([len(part)]) + part.encode() for part in name.split("."))
    records = b"".join(struct.pack("!HHHIH", 0xC00C, 1, 1, 300, 4) + address.packed
                       for address in answers or ())
    return (struct.pack("!HHHHHH", number, flags, 1, len(answers or ()), 0, 0) + labels +
            struct.pack("!BHH", 0, 1, 1) + records)


class Host:
    """An address and how its frames look on the office switch."""

    def __init__(self, address, vlan=0, mac=ROUTER_MAC):
        self.ip = ipaddress.ip_address(address)
        self.vlan = vlan
        self.mac = mac


class Client:
    """Somebody's machine: one address of each family, in one VLAN."""

    def __init__(self, office, vlan, number):
        mac = bytes([2, 0, 10, office, vlan, number])
        self.v4 = Host(f"10.{office}.{vlan}.{number}", vlan, mac)
        self.v6 = Host(f"2001:db8:{office}:{vlan}::{number}", vlan, mac)
        self.last_port = 32768 + number * 500

    def port(self):
        self.last_port += 1
        return self.last_port

    def towards(self, server):
        return self.v4 if server.ip.version == 4 else self.v6


class Wire:
    """Collects frames as (microseconds, order, frame, length from the IP header on)."""

    def __init__(self):
        self.frames = []
        self.ident = 0

    def ip(self, when, src, dst, protocol, segment, checksum_at, tos=0):
        segment = self.sealed(src, dst, protocol, segment, checksum_at)
        if src.ip.version == 4:
            self.ident = (self.ident + 1) & 0xFFFF
            head = struct.pack("!BBHHHBBH", 0x45, tos, 20 + len(segment), self.ident, 0x4000, 64,
                               protocol, 0) + src.ip.packed + dst.ip.packed
            head = head[:10] + struct.pack("!H", checksum(head)) + head[12:]
            ethertype = 0x0800
        else:
            head = struct.pack("!IHBB", 6 << 28 | tos << 20, len(segment), protocol,
                               64) + src.ip.packed + dst.ip.packed
            ethertype = 0x86DD
        vlan = src.vlan or dst.vlan
        tag = struct.pack("!HH", 0x8100, vlan) if vlan else b""
        frame = dst.mac + src.mac + tag + struct.pack("!H", ethertype) + head + segment
        self.frames.append((round(when * 1e6), len(self.frames), frame, len(head) + len(segment)))

    @staticmethod
    def sealed(src, dst, protocol, segment, at):
        pseudo = b""
        if protocol != ICMP:
            pseudo = src.ip.packed + dst.ip.packed + struct.pack("!II", len(segment), protocol)
        value = checksum(pseudo + segment)
        if protocol == UDP and value == 0:
            value = 0xFFFF
        return segment[:at] + struct.pack("!H", value) + segment[at + 2:]

    def udp(self, when, src, sport, dst, dport, data, tos=0):
        segment = struct.pack("!HHHH", sport, dport, 8 + len(data), 0) + data
        self.ip(when, src, dst, UDP, segment, 6, tos)

    def echo(self, when, src, dst, number, reply):
        if src.ip.version == 6:
            protocol, kind = ICMPV6, 129 if reply else 128
        else:
            protocol, kind = ICMP, 0 if reply else 8
        segment = struct.pack("!BBHHH", kind, 0, 0, 77, number) + FILL[:56]
        self.ip(when, src, dst, protocol, segment, 2)


class TcpConnection:
    """Both ends of a TCP connection; every method moves its clock on."""

    def __init__(self, wire, rng, when, client, sport, server, dport, tos=0, rtt=0.03):
        self.wire, self.rng, self.when, self.tos, self.rtt = wire, rng, when, tos, rtt
        self.ends = {"up": (client, sport, server, dport), "down": (server, dport, client, sport)}
        self.seq = {"up": rng.getrandbits(32), "down": rng.getrandbits(32)}

    def segment(self, way, flags, size=0):
        src, sport, dst, dport = self.ends[way]
        ack = self.seq["down" if way == "up" else "up"] if flags & ACK else 0
        options = struct.pack("!BBH", 2, 4, MSS) if flags & SYN else b""
        data = struct.pack("!HHIIBBHHH", sport, dport, self.seq[way], ack,
                           (20 + len(options)) << 2, flags, 64240, 0, 0) + options + FILL[:size]
        self.wire.ip(self.when, src, dst, TCP, data, 16, self.tos)
        moved = size + (1 if flags & (SYN | FIN) else 0)
        self.seq[way] = (self.seq[way] + moved) & 0xFFFFFFFF

    def open(self):
        self.segment("up", SYN)
        self.when += self.rtt
        self.segment("down", SYN | ACK)
        self.when += 0.0002
        self.segment("up", ACK)

    def send(self, way, size):
        """`size` bytes in full segments, an acknowledgement for every second one."""
        other = "down" if way == "up" else "up"
        self.when += self.rng.uniform(0.001, 0.3)
        count = 0
        while size > 0:
            part = min(MSS, size)
            size -= part
            self.segment(way, ACK if size else ACK | PSH, part)
            self.when += self.rng.uniform(0.0001, 0.0006)
            count += 1
            if count % 2 == 0 or size == 0:
                self.segment(other, ACK)
        self.when += self.rtt

    def close(self):
        self.when += self.rng.uniform(0.01, 0.5)
        self.segment("up", FIN | ACK)
        self.when += self.rtt
        self.segment("down", FIN | ACK)
        self.when += 0.0002
        self.segment("up", ACK)

    def refuse(self):
        self.segment("up", SYN)
        self.when += self.rtt
        self.segment("down", RST | ACK)


class Office:
    """What the people of the office do, as conversations on a wire."""

    def __init__(self, office, seed, clients):
        self.rng = random.Random(seed)
        self.wire = Wire()
        self.conversations = 0
        self.clients = [Client(office, (0, 10, 20)[n % 3], n) for n in range(1, clients + 1)]
        self.resolver = [Host("192.0.2.53"), Host("2001:db8:a::53")]
        self.web = [Host(f"198.51.100.{n}") for n in range(10, 30)]
        self.web += [Host(f"2001:db8:b::{n}") for n in range(10, 20)]
        self.film = [Host("203.0.113.80"), Host("2001:db8:c::80")]
        self.mail, self.shell = Host("192.0.2.25"), Host("192.0.2.22")
        self.clock, self.phone = Host("192.0.2.123"), Host("203.0.113.5")
        self.log = Client(office, 20, 200)

    def tcp(self, when, client, server, dport, **options):
        self.conversations += 1
        return TcpConnection(self.wire, self.rng, when, client.towards(server), client.port(),
                             server, dport, **options)

    def exchange(self, when, client, server, dport, asked, answered):
        self.conversations += 1
        src, sport = client.towards(server), client.port()
        self.wire.udp(when, src, sport, server, dport, asked)
        when += self.rng.uniform(0.004, 0.03)
        self.wire.udp(when, server, dport, src, sport, answered)
        return when

    def look_up(self, when, client):
        number = self.rng.getrandbits(16)
        name = self.rng.choice(("www", "mail", "films", "news-of-the-day")) + ".example.com"
        answers = [host.ip for host in self.web[:self.rng.randint(1, 12)]]
        return self.exchange(when, client, self.rng.choice(self.resolver), 53,
                             dns_message(number, name), dns_message(number, name, answers))

    def browse(self, when, client):
        when = self.look_up(when, client) + 0.01
        connection = self.tcp(when, client, self.rng.choice(self.web),
                              443 if self.rng.random() < 0.85 else 80)
        connection.open()
        for _ in range(self.rng.randint(1, 4)):
            connection.send("up", self.rng.randint(200, 2500))
            connection.send("down", int(self.rng.paretovariate(1.1) * 1500) % 90000)
        connection.close()

    def watch(self, when, client):
        when = self.look_up(when, client) + 0.01
        server = self.rng.choice(self.film)
        src, sport = client.towards(server), client.port()
        self.conversations += 1
        for _ in range(self.rng.randint(60, 160)):
            self.wire.udp(when, server, 443, src, sport, FILL[:self.rng.randint(1000, 1350)],
                          VIDEO)
            if self.rng.random() < 0.25:
                self.wire.udp(when + 0.002, src, sport, server, 443,
                              FILL[:self.rng.randint(30, 60)], VIDEO)
            when += 0.02

    def read_mail(self, when, client):
        connection = self.tcp(when, client, self.mail, 993)
        connection.open()
        for size in (600, 4000, 15000):
            connection.send("up", 150)
            connection.send("down", size)
        connection.close()

    def work_remotely(self, when, client):
        connection = self.tcp(when, client, self.shell, 22, tos=0x10)
        connection.open()
        for _ in range(80):
            connection.send("up", 36)
            connection.send("down", self.rng.randint(36, 500))
            connection.when += self.rng.uniform(0.2, 2)
        connection.close()

    def set_clock(self, when, client):
        self.exchange(when, client, self.clock, 123, FILL[:48], FILL[:48])

    def call(self, when, client):
        self.conversations += 1
        for number in range(500):
            sent = when + number * 0.02
            self.wire.udp(sent, client.v4, 16384, self.phone, 16386, FILL[:172], EXPEDITED)
            self.wire.udp(sent, self.phone, 16386, client.v4, 16384, FILL[:172], EXPEDITED)

    def report(self, when, client):
        """Lines for the office's own log server, which never answers."""
        self.conversations += 1
        sport = client.port()
        for number in range(self.rng.randint(1, 6)):
            size = self.rng.randint(80, 300)
            self.wire.udp(when + number * 0.3, client.v4, sport, self.log.v4, 514, FILL[:size])

    def ping(self, when, client):
        server = self.rng.choice(self.web)
        src = client.towards(server)
        self.conversations += 1
        for number in range(5):
            self.wire.echo(when + number, src, server, number, False)
            self.wire.echo(when + number + 0.02, server, src, number, True)

    def knock(self, when, client):
        self.tcp(when, client, self.rng.choice(self.web), 8443).refuse()

    def scan(self, when, client):
        for number, dport in enumerate((21, 23, 25, 110, 139, 445, 1433, 3306, 3389, 5900)):
            self.tcp(when + number * 0.01, client, self.web[0], dport).refuse()

    def live(self, seconds):
        habits = ((self.browse, 60), (self.look_up, 20), (self.watch, 4), (self.read_mail, 6),
                  (self.set_clock, 6), (self.ping, 6), (self.report, 6), (self.knock, 2))
        doings, weights = zip(*habits)
        late = max(seconds - 30, 1)
        for client in self.clients:
            when = self.rng.uniform(0, late)
            while when < late:
                self.rng.choices(doings, weights)[0](when, client)
                when += self.rng.expovariate(1 / 25)
        self.work_remotely(1, self.clients[0])
        self.call(late / 2, self.clients[1])
        self.scan(late / 3, self.clients[2])
        return sorted(self.wire.frames)


def ip_version(frame):
    return frame[18 if frame[12:14] == b"\x81\x00" else 14] >> 4


def write_pcap(path, frames, snaplen):
    with open(path, "wb") as out:
        out.write(struct.pack("!IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, snaplen, 1))
        for micros, _, frame, _ in frames:
            kept = frame[:snaplen]
            out.write(struct.pack("!IIII", START + micros // 1000000, micros % 1000000, len(kept),
                                  len(frame)) + kept)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("out", help="pcap file to write")
    parser.add_argument("--office", type=int, choices=range(1, 11), default=1)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--seconds", type=int, default=300, help="how long the office is open")
    parser.add_argument("--clients", type=int, default=20, help="5 to 60")
    parser.add_argument("--ipv6", action="store_true", help="the IPv6 part of it alone")
    parser.add_argument("--snaplen", type=int, default=65535, help="bytes kept of a frame")
    options = parser.parse_args()
    office = Office(options.office, options.seed, max(5, min(options.clients, 60)))
    frames = [frame for frame in office.live(options.seconds)
              if not options.ipv6 or ip_version(frame[2]) == 6]
    write_pcap(options.out, frames, options.snaplen)
    for version in (4, 6):
        sizes = [(ip_size, len(frame)) for _, _, frame, ip_size in frames
                 if ip_version(frame) == version]
        ip_bytes, frame_bytes = sum(ip for ip, _ in sizes), sum(whole for _, whole in sizes)
        print(f"IPv{version}: {len(sizes)} packets, {ip_bytes} bytes from the IP header on, "
              f"{frame_bytes} bytes in frames")
    print(f"conversations: {office.conversations}")
    print(f"frames: {len(frames)}, {sum(len(frame) for _, _, frame, _ in frames)} bytes")


if __name__ == "__main__":
    main()
