#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""wire.py INTERFACE: tells what machines ask for while they start, and what they are answered.

One line an event, "MILLISECONDS ETHERNET EVENT", the time since the epoch, the Ethernet address always the machine's:
reverse-arp asked|answered, dhcp discover|offer|request|ack|nak, tftp asked|done|refused FILE.
"""
import socket
import struct
import sys
import time

DHCP = {1: "discover", 2: "offer", 3: "request", 5: "ack", 6: "nak"}
transfers = {}  # (machine, its UDP port) -> [file, block size]


def tell(machine, event):
    print(f"{time.time() * 1000:.0f} {':'.join(f'{byte:02x}' for byte in machine)} {event}", flush=True)


def dhcp(payload):
    options = payload[240:]
    while len(options) > 2 and options[0] != 255:
        if options[0] == 0:
            options = options[1:]
            continue
        if options[0] == 53 and options[2] in DHCP:
            tell(payload[28:34], f"dhcp {DHCP[options[2]]}")
        options = options[2 + options[1]:]


def tftp(machine, port, payload):
    (operation,) = struct.unpack_from("!H", payload)
    transfer = transfers.get((machine, port))
    if operation == 1:
        name = payload[2:].split(b"\0")[0].decode("ascii", "backslashreplace")
        transfers[machine, port] = [name, 512]
        tell(machine, f"tftp asked {name}")
    elif transfer and operation == 6:
        words = payload[2:].lower().split(b"\0")
        if b"blksize" in words:
            transfer[1] = int(words[words.index(b"blksize") + 1])
    elif transfer and operation == 5:
        tell(machine, f"tftp refused {transfers.pop((machine, port))[0]}")
    elif transfer and operation == 3 and len(payload) - 4 < transfer[1]:
        tell(machine, f"tftp done {transfers.pop((machine, port))[0]}")


def frame(data):
    to, sender, kind = data[:6], data[6:12], data[12:14]
    if kind == b"\x80\x35":
        if data[20:22] == b"\0\3":
            tell(sender, "reverse-arp asked")
        elif data[20:22] == b"\0\4":
            tell(to, "reverse-arp answered")
    elif kind == b"\x08\0" and data[23] == 17:
        udp = 14 + (data[14] & 15) * 4
        source, target, length = struct.unpack_from("!3H", data, udp)
        payload = data[udp + 8:udp + length]
        if source in (67, 68) and target in (67, 68):
            dhcp(payload)
        elif target == 69:
            tftp(sender, source, payload)
        elif (to, target) in transfers and len(payload) >= 4:
            tftp(to, target, payload)


wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
wire.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 24)
wire.bind((sys.argv[1], 0))
while True:
    try:
        frame(wire.recv(65536))
    except (IndexError, ValueError, struct.error):
        pass  # not whole
