#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""How long each stage of a machine's boot took.

stages.py CONSOLE WIRE ETHERNET  "MILLISECONDS STAGE" a line, of what the machine said and of what wire.py told; a stage
                                 that the machine did not come to is left out
stages.py FILE                   of many such lines, each behind "WAY<tab>", the table of the medians in Markdown
"""
import re
import statistics
import sys

BEFORE_THE_KERNEL = "firmware", "address by DHCP", "boot loader by TFTP", "kernel and initramfs by TFTP"
SINCE_THE_KERNEL = {
    "kernel": "the network is up",
    "address by reverse ARP": "reverse ARP: ",
    "boot program by TFTP": "boot program: ",
    "boot parameters": "getfile: ",
    "root by NFS": "root: ",
    "its own first program": "MARKER ",
    "login prompt": " login: ",
}
SUM = "sum"


def stages(console, wire, ethernet):
    with open(console, encoding="ascii", errors="replace") as file:
        lines = [line.split(" ", 1) for line in file if re.match(r"\d+ ", line)]
    begin = int(lines[0][0])
    with open(wire, encoding="ascii", errors="replace") as file:
        events = [line.split(" ", 2) for line in file]
    events = [(int(at) - begin, event) for at, who, event in events if who == ethernet and int(at) >= begin]

    def said(text):
        return next((int(at) for at, line in lines[1:] if text in line), None)

    def seen(pattern):
        return next((at for at, event in events if re.match(pattern, event)), None)

    def kernel_began():
        for at, line in lines[1:]:
            runs = re.match(r"NETBOOT (\S+) the kernel runs", line)
            if runs:
                return int(at) - round(float(runs[1]) * 1000)
        return None

    if seen("dhcp discover") is None:
        ends = [kernel_began()]
    else:
        ends = [seen("dhcp discover"), seen("tftp asked grub/[^/]*/core"), seen("tftp asked .*/vmlinuz"),
                seen("tftp done .*/initrd.img")]
    ends = list(zip(BEFORE_THE_KERNEL, ends)) + [(stage, said(text)) for stage, text in SINCE_THE_KERNEL.items()]
    before = 0
    for stage, end in ends:
        if end is not None:
            yield end - before, stage
            before = end
    yield before, SUM


def table(path):
    figures = {}
    with open(path, encoding="ascii") as file:
        for line in file:
            way, figure = line.rstrip("\n").split("\t")
            milliseconds, stage = figure.split(" ", 1)
            figures.setdefault(way, {}).setdefault(stage, []).append(int(milliseconds))
    print("| stage |" + "".join(f" {way} |" for way in figures))
    print("|---|" + "---|" * len(figures))
    for stage in (*BEFORE_THE_KERNEL, *SINCE_THE_KERNEL, SUM):
        cells = [f"{statistics.median(way[stage]) / 1000:.2f} s" if stage in way else "-" for way in figures.values()]
        if any(cell != "-" for cell in cells):
            print(f"| {stage} |" + "".join(f" {cell} |" for cell in cells))


if len(sys.argv) == 2:
    table(sys.argv[1])
else:
    for duration, name in stages(*sys.argv[1:]):
        print(duration, name)
