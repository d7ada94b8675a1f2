#!/usr/bin/env python3
"""Moves files with kqft, up and down, beside the floor and what is in use today.

  bench/transfer.py BUILD_DIR [large] [small] [far] [durable] [--rounds N] [--gib N]
                    [--no-peers] [--disk DIR] [--stop SECONDS]

All move the same files between two directories on a memory file system over
loopback, in turns, each as a user calls it; each round another one comes first,
which pays for the machine's memory. The first round compares every byte, the
others every size. Prints the times of each round; then, of the
medians, our throughput over that of each other, CPU seconds per GiB of both
sides over the floor's, and memory. `far` is the many small files beside rsync, both
through a relay that delays every byte by 1 ms each way; `durable` puts them
into DIR on a disk, where the end of each waits for it. With --stop, one more large upload follows
whose server is stopped (SIGSTOP) for that long in the middle.
"""
import argparse
import filecmp
import os
import resource
import shutil
import signal
import subprocess
import sys
import threading
import time

import peers
from common import (GIB, KIB, MIB, CalmDisk, Relay, Server, WorkDirectory, bar, cpu_of, link_files,
                    machine_line, make_files, median, say, status_mib, warm_memory)

WIDTH = 24  # of a column
INVENTORY = "kqft.inventory"
KQFT, PLAIN, FLOOR = "kqft", "kqft without inventory", "floor"
UNFLUSHED = "kqft without flushing"
FAR_MS = 1


def children_cpu():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


class Peak:
    """Largest resident memory of a process while it lives, in MiB."""

    def __init__(self, pid):
        self.mib = 0.0
        self.over = threading.Event()
        self.thread = threading.Thread(target=self.watch, args=(pid,))
        self.thread.start()

    def watch(self, pid):
        while not self.over.wait(0.02):
            self.mib = max(self.mib, status_mib(pid, "VmHWM"))

    def end(self):
        self.over.set()
        self.thread.join()
        return self.mib


class Kqft:
    """Ours; a fresh server for each transfer, to see how it grows."""

    asks_per_file = True

    def __init__(self, build, root, name=KQFT, durable=False, ms=0):
        self.build, self.name, self.durable, self.ms = build, name, durable, ms
        self.store = os.path.join(root, name)
        self.options = ["--no-inventory"] if name == PLAIN else []
        self.seconds, self.cpu, self.server_mib, self.client_mib = 0.0, 0.0, 0.0, 0.0

    def run(self, arguments, during=None):
        with Server(self.build, self.store, self.durable) as server:
            relay = Relay(self.build, server.port, self.ms) if self.ms else None
            if relay:
                server.place = f"127.0.0.1:{relay.port}"
            idle = status_mib(server.pid, "VmRSS")
            cpu = children_cpu() - cpu_of(server.pid)
            start = time.monotonic()
            client = subprocess.Popen(server.client(*arguments), stdout=subprocess.DEVNULL,
                                      stderr=subprocess.PIPE, text=True)
            peak = Peak(client.pid)
            if during:
                during(server, client)
            errors = client.stderr.read()
            if client.wait() != 0:
                sys.exit(f"kqft {arguments[0]} failed: {errors}")
            self.seconds = time.monotonic() - start
            self.client_mib = peak.end()
            if relay:
                relay.close()
            self.cpu = children_cpu() + cpu_of(server.pid) - cpu
            self.server_mib = status_mib(server.pid, "VmHWM") - idle

    def put(self, source, case, during=None):
        self.run(["put", source, "--project", case, *self.options], during)

    def get(self, case, target):
        self.run(["get", case, "--into", os.path.dirname(target), *self.options])

    def close(self):
        pass


class Floor:
    """The least that any program must do for the same files; one direction."""
    name, asks_per_file = FLOOR, False

    def __init__(self, build, root):
        self.program = f"{build}/bin/kqft-floor"
        self.store = os.path.join(root, "floor")
        self.seconds, self.cpu = 0.0, 0.0

    def put(self, source, case):
        target = os.path.join(self.store, case)
        os.makedirs(target)
        cpu = children_cpu()
        receiver = subprocess.Popen([self.program, "receive", target], stdout=subprocess.PIPE,
                                    text=True)
        port = receiver.stdout.readline().strip()
        start = time.monotonic()
        subprocess.run([self.program, "send", source, port], check=True)
        self.seconds = time.monotonic() - start
        receiver.wait()
        self.cpu = children_cpu() - cpu

    def close(self):
        pass


def check(source, copy, every_byte):
    for name in os.listdir(source):
        one, other = os.path.join(source, name), os.path.join(copy, name)
        same = os.path.exists(other) and os.path.getsize(one) == os.path.getsize(other)
        if not same or every_byte and not filecmp.cmp(one, other, shallow=False):
            sys.exit(f"{other} is not what was sent")


def move(contender, direction, source, case, root, every_byte):
    """One transfer of all files of a directory; its seconds."""
    stored = os.path.join(contender.store, case)
    target = os.path.join(root, "fetched", case)
    os.makedirs(os.path.dirname(target))
    inventory = os.path.join(root, "source", f"{case}.inventory")
    if direction == "down":
        link_files(source, stored)
        if contender.name == KQFT:
            shutil.copy(inventory, os.path.join(stored, INVENTORY))
    os.sync()  # what others left to write
    start = time.monotonic()
    if direction == "up":
        contender.put(source, case)
    else:
        contender.get(case, target)
    seconds = getattr(contender, "seconds", time.monotonic() - start)
    check(source, stored if direction == "up" else target, every_byte)
    if direction == "up" and contender.name == KQFT:
        shutil.copy(os.path.join(stored, INVENTORY), inventory)
    shutil.rmtree(stored)
    shutil.rmtree(os.path.dirname(target))
    return seconds


class Case:
    def __init__(self, name, count, size):
        self.name, self.count, self.size = name, count, size
        self.key = f"case{count}"
        self.times = {"up": {}, "down": {}}
        self.runs = {"up": {}, "down": {}}

    def keep(self, direction, contender, seconds):
        self.times[direction].setdefault(contender.name, []).append(seconds)
        if hasattr(contender, "cpu"):
            self.runs[direction].setdefault(contender.name, []).append(
                {key: value for key, value in vars(contender).items() if isinstance(value, float)})

    def time(self, direction, name):
        # The floor moves its bytes one way.
        return median(self.times["up" if name == FLOOR else direction][name])

    def over(self, direction, name):
        return self.time(direction, name) / self.time(direction, KQFT)

    def cpu(self, direction, name):
        return median(run["cpu"] for run in self.runs["up" if name == FLOOR else direction][name])


def measure(case, contenders, rounds, root, directions=("up", "down"), before=lambda: None):
    source = os.path.join(root, "source", case.key)
    make_files(source, case.count, case.size)
    for number in range(rounds):
        for direction in directions:
            line = []
            first = number % len(contenders)
            for contender in contenders[first:] + contenders[:first]:
                if contender.name == FLOOR and direction == "down":
                    continue
                before()
                seconds = move(contender, direction, source, case.key, root, number == 0)
                case.keep(direction, contender, seconds)
                line.append(f"{contender.name} {seconds:.2f} s")
            say(f"  {case.name} {direction}: " + ", ".join(line))
    return source


def table(cases, contenders):
    names = [contender.name for contender in contenders if contender.name != KQFT]
    say("\nour throughput over that of")
    say(" " * 22 + "".join(f"{name:>{WIDTH}}" for name in names))
    for case in cases:
        for direction in ("up", "down"):
            say(f"{case.name + ' ' + direction:22}"
                + "".join(f"{case.over(direction, name):{WIDTH}.2f}" for name in names))
    say("")


def large_bars(case, contenders):
    for direction in ("up", "down"):
        cpu = case.cpu(direction, KQFT) / case.cpu(direction, FLOOR)
        runs = case.runs[direction][KQFT]
        say(f"  {case.name} {direction}: " + ", ".join(
            f"{name} {case.size / 1e6 / case.time(direction, name):.0f} MB/s, "
            f"{case.cpu(direction, name) * GIB / case.size:.2f} CPU s per GiB of both sides"
            for name in (KQFT, FLOOR)))
        say(f"  {case.name} {direction}: server grew by at most "
            f"{max(r['server_mib'] for r in runs):.1f} MiB, client held at most "
            f"{max(r['client_mib'] for r in runs):.1f} MiB in all")
        bar(f"{case.name} {direction}, throughput over the floor's", case.over(direction, FLOOR),
            0.85)
        bar(f"{case.name} {direction}, throughput over that without inventory",
            case.over(direction, PLAIN), 0.95)
        bar(f"{case.name} {direction}, CPU per GiB over the floor's", cpu, 1.25, most=True)
        others = [c.name for c in contenders if isinstance(c, peers.Peer)]
        if not others:
            continue
        best = min(others, key=lambda name: case.time(direction, name))
        if direction == "down":
            bar(f"{case.name} down, over the best peer ({best})", case.over(direction, best), 1.0)
            continue
        behind = [name for name in others if name != peers.WebDav.name]
        if behind:
            bar(f"{case.name} up, over the best of {', '.join(behind)}",
                min(case.over("up", name) for name in behind), 1.0)
        share = case.time("up", FLOOR) / case.time("up", best)
        bar(f"{case.name} up, share of the floor behind the best's ({best})",
            share - case.over("up", FLOOR), 0.1, most=True)


def small_bars(case, contenders):
    names = [c.name for c in contenders if isinstance(c, peers.Peer)]
    asking = [c.name for c in contenders if isinstance(c, peers.Peer) and c.asks_per_file]
    rsync = [name for name in names if name == peers.Rsync.name]
    for direction in ("up", "down"):
        small = rsync if direction == "up" else asking  # a download asks for each file
        others = small if case.size < MIB else names
        if others:
            best = min(others, key=lambda name: case.time(direction, name))
            bar(f"{case.name} {direction}, over {best}", case.over(direction, best), 1.0)


class FarRsync(peers.Rsync):
    """Through a relay."""

    def __init__(self, build, root, ms):
        super().__init__(root)
        self.relay = Relay(build, self.port, ms)
        self.door = self.relay.port

    def close(self):
        self.relay.close()
        super().close()


def far(build, root, rounds):
    case = Case(f"2,000 x 4 KiB, {FAR_MS} ms away", 2000, 4 * KIB)
    contenders = [Kqft(build, root, ms=FAR_MS), FarRsync(build, os.path.join(root, "far"), FAR_MS)]
    rsync = contenders[1].name
    try:
        shutil.rmtree(measure(case, contenders, rounds, root))
    finally:
        contenders[1].close()
    bar(f"{case.name}, up, over {rsync}", case.over("up", rsync), 1.0)
    say(f"  {case.name}, down: {case.over('down', rsync):.2f} of {rsync}, "
        f"{case.time('down', KQFT) / case.count * 1000:.2f} ms a file, of which the way there and "
        f"back is {2 * FAR_MS} ms")


def durable(build, root, rounds, disk):
    case = Case("2,000 x 4 KiB, durable", 2000, 4 * KIB)
    with WorkDirectory(disk) as there:
        contenders = [Kqft(build, there, durable=True), Kqft(build, there, UNFLUSHED),
                      peers.FlushingRsync(there)]
        rsync = contenders[2].name
        try:
            shutil.rmtree(measure(case, contenders, rounds, root, ("up",), CalmDisk(there).wait))
        finally:
            contenders[2].close()
    bar(f"{case.name}, up, over that {UNFLUSHED}", case.over("up", UNFLUSHED), 0.6)
    bar(f"{case.name}, up, over {rsync}", case.over("up", rsync), 1.0)


def stopped_upload(build, root, source, seconds):
    """An upload whose server stands still in the middle."""
    kqft = Kqft(build, root)
    name = os.listdir(source)[0]
    copy = os.path.join(kqft.store, "stopped", name)
    half = os.path.getsize(os.path.join(source, name)) // 2

    def pause(server, client):
        while client.poll() is None and (not os.path.exists(copy) or os.path.getsize(copy) < half):
            time.sleep(0.005)
        server.process.send_signal(signal.SIGSTOP)
        time.sleep(seconds)
        server.process.send_signal(signal.SIGCONT)

    kqft.put(source, "stopped", pause)
    check(source, os.path.dirname(copy), True)
    say(f"put with the server stopped for {seconds:.0f} s in the middle: whole after "
        f"{kqft.seconds:.1f} s, server grew by {kqft.server_mib:.1f} MiB, client held at most "
        f"{kqft.client_mib:.1f} MiB in all")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build")
    parser.add_argument("parts", nargs="*", help="large, small, far, durable; the first two when none is named")
    parser.add_argument("--gib", type=float, default=2)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--no-peers", action="store_true")
    parser.add_argument("--disk", default="/var/tmp", help="where durable puts its files")
    parser.add_argument("--stop", type=float, default=0)
    args = parser.parse_intermixed_args()
    large = Case(f"{args.gib:g} GiB", 1, int(args.gib * GIB))
    small = [Case("2,000 x 4 KiB", 2000, 4 * KIB), Case("200 x 1 MiB", 200, MIB)]
    parts = args.parts or ["large", "small"]
    cases = ([large] if "large" in parts else []) + (small if "small" in parts else [])
    say(machine_line(args.build))
    say(f"{', '.join(parts)}; {args.rounds} rounds, medians")
    with WorkDirectory() as root:
        # The source, a copy, and some for the programs.
        warm_memory(root, 2 * max((case.count * case.size for case in cases), default=0) + GIB)
        if "far" in parts:
            far(args.build, root, args.rounds)
        if "durable" in parts:
            durable(args.build, root, args.rounds, args.disk)
        if not cases:
            return
        contenders = [Floor(args.build, root), Kqft(args.build, root),
                      Kqft(args.build, root, PLAIN)]
        if not args.no_peers:
            for kind in peers.ALL:
                if kind.is_installed():
                    contenders.append(kind(root))
                else:
                    say(f"{kind.name}: not installed")
        try:
            for case in cases:
                source = measure(case, contenders, args.rounds, root)
                if case is large and args.stop:
                    stopped_upload(args.build, root, source, args.stop)
                shutil.rmtree(source)
            table(cases, contenders)
            for case in cases:
                (large_bars if case is large else small_bars)(case, contenders)
        finally:
            for contender in contenders:
                contender.close()


if __name__ == "__main__":
    main()
