#!/usr/bin/env python3
"""Attacks kqft-server and watches how long a well-behaved client waits.

  bench/hostile.py BUILD_DIR [--quick] [--seconds N] [--longest-ms N]

The attacks, one after the other and then all at once, from other addresses
than the well-behaved client's: heads that claim more than any packet may hold
or the most that one may, 10,000 links that say nothing, links that send one
byte a second, lists of a million names to be added up, and floods of
announced files and questions whose answers nobody reads. The attackers run
at the lowest priority, as they would on machines of their own.

Meanwhile one client announces, sends and ends a small file, asks what is
missing of it and where the projects are, over and over, on a link that it
had before; another one comes anew for each question. Prints the longest
waits and the server's memory. Exit status 1 when a wait of the first is longer
than --longest-ms, the server's memory passes 512 MiB, an answer is wrong, or
the server is gone at the end.

Waits are by the clock. A virtual machine's host takes processors away at
times, also from a machine that has nothing to do, and an answer may wait for
that: the longest wait without the time in which any processor was taken ("steal"
of proc(5)) is printed beside, to tell such a machine from a slow server. It
decides nothing.

--quick: hundreds of links and a second, all at once only.
"""
import argparse
import multiprocessing
import os
import re
import resource
import select
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time

LIMIT_MIB = 512
HEAD = "<4sIIII"
ANNOUNCE, DATA, END, SIZES, LOST, DIRECTORY = 2500, 2501, 2502, 2504, 2509, 2511


def packet(code, body=b"", claim=None):
    return struct.pack(HEAD, b"KQFT", code, 1, len(body) if claim is None else claim, 0) + body


def link_to(port, address):
    link = socket.socket()
    link.setsockopt(socket.IPPROTO_IP, 24, 1)  # IP_BIND_ADDRESS_NO_PORT
    link.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    link.settimeout(20)
    link.bind((address, 0))
    link.connect(("127.0.0.1", port))
    return link


def receive(link, size):
    data = b""
    while len(data) < size:
        piece = link.recv(size - len(data))
        if not piece:
            raise ConnectionError("the server closed the link")
        data += piece
    return data


def receive_packet(link):
    marker, code, _, size, _ = struct.unpack(HEAD, receive(link, 20))
    if marker != b"KQFT":
        sys.exit("no packet")
    return code, receive(link, size)


def ask(link, code, body=b""):
    """One question; returns its answer."""
    link.sendall(packet(code, body))
    answered, answer = receive_packet(link)
    if answered != code:
        sys.exit(f"wrong answer {answered} to {code}")
    return answer


def open_links(port, count, network, until):
    """Links from many addresses; one that is refused is tried no more."""
    links = []
    for i in range(count):
        if time.monotonic() > until:
            break
        try:
            links.append(link_to(port, f"127.{network}.{i // 250 % 250}.{i % 250 + 1}"))
        except OSError:
            pass
    return links


def is_open(link):
    link.setblocking(False)
    try:
        return link.recv(65536) != b""
    except BlockingIOError:
        return True
    except OSError:
        return False


def claim(port, args, until, root):
    """Too large: closed at once. The largest: begun, never completed."""
    begun = []
    i = 0
    while time.monotonic() < until:
        i += 1
        try:
            link = link_to(port, f"127.20.0.{i % 250 + 1}")
            link.sendall(packet(DATA, b"x" * 1000, 0xFFFFFFFF))
            link.close()
            if len(begun) < 8:
                link = link_to(port, f"127.21.0.{len(begun) + 1}")
                link.sendall(packet(SIZES, b"y" * 100000, 0x7FFFFF00))
                begun.append(link)
        except OSError:
            pass
        time.sleep(0.002)


def half_open(port, args, until, root):
    """Comes last, or it would keep the other attacks out."""
    time.sleep(0.3)
    links = open_links(port, args.links, 30, until)
    time.sleep(max(0.0, until - time.monotonic()))
    print(f"  {len(links)} silent links were made, {sum(map(is_open, links))} are open",
          flush=True)


def byte_a_second(port, args, until, root):
    links = open_links(port, 20, 40, until)
    for byte in packet(DIRECTORY) * 10:
        if time.monotonic() > until:
            break
        for link in links:
            try:
                link.send(bytes([byte]))
            except OSError:
                pass
        time.sleep(1)


def push(links, data, until):
    """Sends the same bytes on all links for ever; reads nothing."""
    rest = {}
    for link in links:
        link.setblocking(False)
        rest[link] = memoryview(data)
    while rest and time.monotonic() < until:
        for link in select.select([], list(rest), [], 0.1)[1]:
            try:
                rest[link] = rest[link][link.send(rest[link]):] or memoryview(data)
            except OSError:
                del rest[link]


def lists(port, args, until, root):
    names = b"|".join(b"%s/run/%07d" % (root.encode(), i) for i in range(args.names))
    push(open_links(port, 8, 50, until), packet(SIZES, names), until)


def floods(port, args, until, root):
    links = open_links(port, 16, 60, until)
    announce = packet(ANNOUNCE, b"\0" + root.encode() + b"/flood/file")
    push(links, (announce * 20 + packet(DIRECTORY)) * 50, until)


def floods_of_questions(port, args, until, root):
    push(open_links(port, 8, 70, until), packet(DIRECTORY) * 2000, until)


ATTACKS = [claim, half_open, byte_a_second, lists, floods, floods_of_questions]


class Watch(multiprocessing.Process):
    """Notes when the host had taken a processor, until told to stop; then gives
    pairs of begin and end."""

    def __init__(self, processor):
        super().__init__()
        self.processor = processor
        self.stop = multiprocessing.Event()
        self.result = multiprocessing.Queue()

    def stolen(self):
        with open("/proc/stat", encoding="ascii") as lines:
            for line in lines:
                if line.startswith(f"cpu{self.processor} "):
                    return int(line.split()[8]) / os.sysconf("SC_CLK_TCK")
        return 0

    def run(self):
        os.sched_setaffinity(0, [self.processor])
        try:  # ahead of everyone, so that nothing but the host delays it
            os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1))
        except PermissionError:
            pass
        periods = []
        then, before = time.monotonic(), self.stolen()
        while not self.stop.is_set():
            time.sleep(0.005)
            now, taken = time.monotonic(), self.stolen()
            if taken > before:
                periods.append((now - min(taken - before, now - then), now))
            then, before = now, taken
        self.result.put(periods)


def outside(wait, periods):
    """Seconds of a wait that lie in none of the periods, which are in order."""
    start, end = wait
    seconds, at = 0, start
    for begin, over in periods:
        if over > at and begin < end:
            seconds += max(begin - at, 0)
            at = over
    return seconds + max(end - at, 0)


class Client(multiprocessing.Process):
    """Asks until told to stop, then gives its waits for each question, as pairs
    of begin and end."""

    def __init__(self, port, root, address, anew):
        super().__init__()
        self.port, self.root, self.address, self.anew = port, root, address, anew
        self.stop = multiprocessing.Event()
        self.result = multiprocessing.Queue()

    def run(self):
        path = f"{self.root}/small/file.tm".encode()
        questions = [("project directory", DIRECTORY, b"")]
        if not self.anew:
            questions += [("announce", ANNOUNCE, b"\1" + path), ("end", END, b""),
                          ("lost info", LOST, path)]
        waits = {}
        failed = 0
        link = None if self.anew else link_to(self.port, self.address)
        while not self.stop.is_set():
            for name, code, body in questions:
                start = time.monotonic()
                try:
                    if self.anew:
                        link = link_to(self.port, self.address)
                    if code == END:
                        link.sendall(packet(DATA, struct.pack("<q", 0) + b"d" * 1000))
                    ask(link, code, body)
                    waits.setdefault(name, []).append((start, time.monotonic()))
                except OSError as error:
                    failed += 1
                    if not self.anew:
                        print(f"  {name}: {error!r}", flush=True)
                        self.stop.set()
                        break
                if self.anew and link is not None:
                    link.close()
            time.sleep(0.1 if self.anew else 0.002)
        if not self.anew:
            # As kqft leaves: a session whose last write failed is stopped at once.
            ask(link, ANNOUNCE, b"\0" + path)
            link.sendall(packet(DATA, struct.pack("<q", -1) + b"x"))
            link.sendall(packet(END))
            while receive_packet(link)[0] != END:
                pass
        self.result.put((waits, failed))


def start_server(build, root):
    log = open(f"{root}/standard", "wb")
    server = subprocess.Popen(
        [f"{build}/bin/kqft-server", "--dir", f"{root}/data", "--log-dir", f"{root}/log",
         "--listen", "127.0.0.1", "--port", "0"], stdout=log, stderr=subprocess.PIPE, text=True)
    place = re.search(r"listening on (\S+)", server.stderr.readline()).group(1)
    return server, int(place.rsplit(":", 1)[1])


def status(server, field):
    with open(f"/proc/{server.pid}/status", encoding="ascii") as lines:
        for line in lines:
            if line.startswith(field + ":"):
                return int(line.split()[1])
    return 0


def cpu_seconds(server):
    with open(f"/proc/{server.pid}/stat", encoding="ascii") as line:
        fields = line.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def run_attack(attack, *arguments):
    os.nice(19)
    attack(*arguments)


def phase(title, attacks, server, port, root, args):
    """Returns whether everything held."""
    with open(f"/proc/{server.pid}/clear_refs", "w", encoding="ascii") as peak:
        peak.write("5")
    busy = cpu_seconds(server)
    until = time.monotonic() + args.seconds
    # New addresses: one that has stored data is waited for when it comes back.
    round_number = phase.rounds = getattr(phase, "rounds", 0) + 1
    clients = [Client(port, f"{root}/data", f"127.0.{round_number}.{9 + anew}", anew)
               for anew in (False, True)]
    attackers = [multiprocessing.Process(target=run_attack,
                                         args=(a, port, args, until, f"{root}/data"))
                 for a in attacks]
    watches = [Watch(processor) for processor in os.sched_getaffinity(0)]
    for process in watches + clients:
        process.start()
    time.sleep(0.2)
    for process in attackers:
        process.start()
    threads = 0
    while time.monotonic() < until:
        threads = max(threads, status(server, "Threads"))
        time.sleep(0.1)
    for client in clients:
        client.stop.set()
    (waits, failed), (anew, refused) = [client.result.get() for client in clients]
    for watch in watches:
        watch.stop.set()
    periods = sorted(period for watch in watches for period in watch.result.get())
    for process in attackers + clients + watches:
        process.join()
    longest = {name: 1000 * max(end - start for start, end in times)
               for name, times in waits.items()}
    untaken = max((outside(wait, periods) for times in waits.values() for wait in times),
                  default=0)
    memory = status(server, "VmHWM") / 1024
    came = anew.get("project directory", [])
    print(f"{title:20} {sum(map(len, waits.values())):7} answers, longest wait "
          + ", ".join(f"{name} {ms:.1f}" for name, ms in longest.items())
          + f" ms ({1000 * untaken:.1f} without what the host took); "
          f"newcomers {len(came)} answered "
          f"({1000 * max((end - start for start, end in came), default=0):.0f} ms), "
          f"{refused} refused; {memory:.0f} MiB, {threads} threads, "
          f"{cpu_seconds(server) - busy:.1f} s of CPU", flush=True)
    return failed == 0 and max(longest.values(), default=1e9) <= args.longest_ms and memory < LIMIT_MIB


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--seconds", type=float, default=20)
    parser.add_argument("--longest-ms", type=float, default=100)
    parser.add_argument("--only", choices=[a.__name__ for a in ATTACKS])
    args = parser.parse_args()
    args.links, args.names = (300, 20000) if args.quick else (10000, 1000000)
    if args.quick:
        args.seconds = 1.5
    most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
    root = tempfile.mkdtemp(prefix="kqft-hostile-")
    server = None
    try:
        os.mkdir(f"{root}/data")
        os.mkdir(f"{root}/log")
        server, port = start_server(args.build, root)
        rounds = [("all at once", ATTACKS)]
        if not args.quick:
            rounds = [("nothing", [])] + [(a.__name__, [a]) for a in ATTACKS] + rounds
        if args.only:
            rounds = [(a.__name__, [a]) for a in ATTACKS if a.__name__ == args.only]
        held = [phase(title, attacks, server, port, root, args) for title, attacks in rounds]
        alive = server.poll() is None
        print("held" if all(held) and alive else "FAILED")
        return 0 if all(held) and alive else 1
    finally:
        if server is not None:
            server.terminate()
            server.wait()
        shutil.rmtree(root, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
