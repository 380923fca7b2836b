#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The hosts with the most bytes in a capture, by the flat interface.

  top_hosts.py LIBFLOWHANDLERS-C POLICIES CAPTURE
"""
import collections
import ctypes
import struct
import sys

LIBRARY, POLICIES, CAPTURE = sys.argv[1:]
NETFLOW, SFLOW, GROUP_HOSTS = 0, 1, 1


class Counter(ctypes.Structure):
    _fields_ = [("key", ctypes.c_char_p), ("value", ctypes.c_uint64), ("key_length", ctypes.c_uint32),
                ("group", ctypes.c_uint16), ("meter", ctypes.c_uint16)]


Counters = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(Counter), ctypes.c_size_t)


class Callbacks(ctypes.Structure):  # as far as it is needed here
    _fields_ = [("size", ctypes.c_size_t), ("context", ctypes.c_void_p), ("counters", Counters)]


def datagrams(path):
    """protocol, source address and port, payload and time of each datagram of a capture as in samples/"""
    data, at = open(path, "rb").read(), 24
    while at < len(data):
        seconds, _, size = struct.unpack_from(">III", data, at)
        packet, at = data[at + 16:at + 16 + size], at + 16 + size
        udp = 4 * (packet[0] & 15)
        source, (port, destination) = struct.unpack_from(">I", packet, 12)[0], struct.unpack_from(">HH", packet, udp)
        yield SFLOW if destination == 6343 else NETFLOW, source, port, packet[udp + 8:], seconds


hosts = collections.Counter()


def count(_, updates, size):
    for update in updates[:size]:
        if update.group == GROUP_HOSTS and update.meter == 0:
            hosts[".".join(str(int(part, 16)) for part in update.key.decode().split("."))] += update.value


flow = ctypes.CDLL(LIBRARY)
flow.fh_open.restype, flow.fh_error.restype = ctypes.c_void_p, ctypes.c_char_p
flow.fh_handle.argtypes = [ctypes.c_void_p, ctypes.c_int, ctypes.c_uint32, ctypes.c_uint16, ctypes.c_char_p,
                           ctypes.c_size_t, ctypes.c_uint64]
callbacks = Callbacks(ctypes.sizeof(Callbacks), None, Counters(count))
collector = flow.fh_open(POLICIES.encode(), ctypes.byref(callbacks), None) or sys.exit(flow.fh_error().decode())
for protocol, source, port, payload, seconds in datagrams(CAPTURE):
    flow.fh_handle(collector, protocol, source, port, payload, len(payload), seconds)
flow.fh_close(ctypes.c_void_p(collector))
for host, size in hosts.most_common(10):
    print(host, size)
