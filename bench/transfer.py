#!/usr/bin/env python3
"""Moves one large file with kqft, up and down, beside the floor program.

  bench/transfer.py BUILD_DIR [--gib N] [--rounds N] [--stop SECONDS]

All move the same file between two directories on a memory file system over
loopback, in turns. Prints each round, the medians and their ratio, CPU
seconds per GiB of both sides together, and how far each program's memory
grew beyond what it had when idle. With --stop, one more upload follows whose
server is stopped (SIGSTOP) for that long in the middle.
"""
import argparse
import filecmp
import os
import platform
import resource
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import threading
import time


def memory_kib(pid, field):
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        for line in status:
            if line.startswith(field + ":"):
                return int(line.split()[1])
    return 0


class Peak:
    """Largest resident memory of a process while it lives, in KiB."""

    def __init__(self, pid):
        self.kib = 0
        self.first = 0
        self.pid = pid
        self.thread = threading.Thread(target=self.watch, daemon=True)
        self.thread.start()

    def watch(self):
        while True:
            try:
                now = memory_kib(self.pid, "VmHWM")
            except (OSError, ValueError):
                return
            self.first = self.first or now
            self.kib = max(self.kib, now)
            time.sleep(0.02)


def start_server(build, directory):
    server = subprocess.Popen(
        [f"{build}/bin/kqft-server", "--dir", directory, "--port", "0",
         "--log-dir", directory + ".log"],
        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    for line in server.stderr:
        if "listening on " in line:
            port = line.split("listening on ", 1)[1].split()[0].rsplit(":", 1)[1]
            return server, int(port)
    sys.exit("kqft-server did not start")


def cpu_seconds():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def run_floor(build, source, target):
    before = cpu_seconds()
    receiver = subprocess.Popen([f"{build}/bin/kqft-floor", "receive", target],
                                stdout=subprocess.PIPE, text=True)
    port = receiver.stdout.readline().strip()
    start = time.monotonic()
    subprocess.run([f"{build}/bin/kqft-floor", "send", source, port], check=True)
    receiver.wait()
    return time.monotonic() - start, cpu_seconds() - before


def run_kqft(build, source, directory, command, stop=0):
    """One put or get; returns seconds, CPU seconds and both memory growths."""
    project = os.path.join(directory, "bench")
    before = cpu_seconds()
    server, port = start_server(build, directory)
    idle = memory_kib(server.pid, "VmRSS")
    call = [f"{build}/bin/kqft", "--server", f"127.0.0.1:{port}", "--log-dir", directory + ".log"]
    if command == "put":
        call += ["put", source, "--project", "bench"]
        copy = os.path.join(project, os.path.basename(source))
    else:
        os.makedirs(project)
        os.link(source, os.path.join(project, os.path.basename(source)))
        call += ["get", "bench", "--into", directory + ".back"]
        copy = os.path.join(directory + ".back", "bench", os.path.basename(source))
    start = time.monotonic()
    client = subprocess.Popen(call, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    peak = Peak(client.pid)
    if stop:
        half = os.path.getsize(source) // 2
        while client.poll() is None and (not os.path.exists(copy) or os.path.getsize(copy) < half):
            time.sleep(0.005)
        server.send_signal(signal.SIGSTOP)
        time.sleep(stop)
        server.send_signal(signal.SIGCONT)
    errors = client.stderr.read()
    if client.wait() != 0:
        sys.exit(f"kqft {command} failed: {errors.decode(errors='replace')}")
    seconds = time.monotonic() - start
    server_growth = memory_kib(server.pid, "VmHWM") - idle
    server.send_signal(signal.SIGTERM)
    server.wait()
    spent = cpu_seconds() - before
    if not filecmp.cmp(source, copy, shallow=False):
        sys.exit("the copy differs")
    shutil.rmtree(project, ignore_errors=True)
    shutil.rmtree(directory + ".back", ignore_errors=True)
    return seconds, spent, server_growth / 1024, peak.kib / 1024


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build")
    parser.add_argument("--gib", type=float, default=2)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--stop", type=float, default=0)
    args = parser.parse_args()
    root = tempfile.mkdtemp(prefix="kqft-bench-", dir="/dev/shm")
    try:
        source = os.path.join(root, "large.bin")
        block = os.urandom(1 << 20)
        with open(source, "wb") as out:
            for _ in range(int(args.gib * 1024)):
                out.write(block)
        directory = os.path.join(root, "server")
        os.makedirs(directory)
        os.makedirs(directory + ".log")
        print(f"{platform.machine()}, {os.cpu_count()} cores, {args.gib} GiB, build {args.build}")
        floors, ours = [], {"put": [], "get": []}
        for _ in range(args.rounds):
            floors.append(run_floor(args.build, source, os.path.join(root, "copy")))
            os.unlink(os.path.join(root, "copy"))
            for command, runs in ours.items():
                runs.append(run_kqft(args.build, source, directory, command))
            print(f"  floor {floors[-1][0]:.2f} s, kqft put {ours['put'][-1][0]:.2f} s, "
                  f"get {ours['get'][-1][0]:.2f} s")
        floor = statistics.median(t for t, _ in floors)
        floor_cpu = statistics.median(c for _, c in floors)
        for command, runs in ours.items():
            print(f"{command} over floor: throughput "
                  f"{floor / statistics.median(r[0] for r in runs):.2f}, CPU per GiB "
                  f"{statistics.median(r[1] for r in runs) / floor_cpu:.2f}; server grew by "
                  f"{max(r[2] for r in runs):.1f} MiB, client held at most "
                  f"{max(r[3] for r in runs):.1f} MiB in all")
        if args.stop:
            stopped = run_kqft(args.build, source, directory, "put", args.stop)
            print(f"put with the server stopped for {args.stop:.0f} s in the middle: whole after "
                  f"{stopped[0]:.1f} s, server grew by {stopped[2]:.1f} MiB, "
                  f"client held at most {stopped[3]:.1f} MiB in all")
    finally:
        shutil.rmtree(root, ignore_errors=True)


if __name__ == "__main__":
    main()
