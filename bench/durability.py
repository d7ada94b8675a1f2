#!/usr/bin/env python3
"""What it costs that a file lies on the disk before its end is confirmed.

  bench/durability.py BUILD_DIR [--dir DIR] [--mib N] [--files N] [--rounds N]

Puts one large file, then many of 4 KiB, from a memory file system into DIR,
in turns with a server as it is by default, with one that has --no-durable,
and with the latter followed by sync(2), which waits for the same bytes. Every
run starts with nothing left to write. Prints each round, then the medians as
shares of the throughput with --no-durable.
"""
import argparse
import os
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

WAYS = ("no-durable", "durable", "no-durable, then sync")


def start_server(build, directory, way):
    switch = "--durable" if way == "durable" else "--no-durable"
    server = subprocess.Popen(
        [f"{build}/bin/kqft-server", "--dir", directory, "--log-dir", directory + ".log",
         "--listen", "127.0.0.1", "--port", "0", "--no-confine", switch],
        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    line = server.stderr.readline()
    if not line.startswith("listening on "):
        sys.exit(f"kqft-server: {line}")
    return server, line.split()[2]


def put(build, source, directory, way):
    server, place = start_server(build, directory, way)
    os.sync()
    start = time.monotonic()
    done = subprocess.run([f"{build}/bin/kqft", "--quiet", "--server", place, "--log-dir",
                           directory + ".log", "put", source], stdin=subprocess.DEVNULL,
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    if way.endswith("sync"):
        os.sync()
    seconds = time.monotonic() - start
    server.send_signal(signal.SIGTERM)
    server.wait()
    if done.returncode != 0:
        sys.exit("kqft put failed")
    if subprocess.run(["diff", "-rq", source,
                       os.path.join(directory, os.path.basename(source))]).returncode != 0:
        sys.exit("the copy differs")
    shutil.rmtree(os.path.join(directory, os.path.basename(source)))
    return seconds


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build")
    parser.add_argument("--dir", default="/dev/shm", help="where the server keeps its files")
    parser.add_argument("--mib", type=int, default=512)
    parser.add_argument("--files", type=int, default=300)
    parser.add_argument("--rounds", type=int, default=3)
    args = parser.parse_args()
    memory = tempfile.mkdtemp(prefix="kqft-bench-", dir="/dev/shm")
    root = tempfile.mkdtemp(prefix="kqft-bench-", dir=args.dir)
    try:
        large, small = os.path.join(memory, "large"), os.path.join(memory, "small")
        for directory in (large, small, root + "/server", root + "/server.log"):
            os.makedirs(directory)
        with open(large + "/Run.tm", "wb") as out:
            for _ in range(args.mib):
                out.write(os.urandom(1 << 20))
        for i in range(args.files):
            with open(f"{small}/{i}", "wb") as out:
                out.write(os.urandom(4096))
        for source, what in ((large, f"one file of {args.mib} MiB"),
                             (small, f"{args.files} files of 4 KiB")):
            runs = {way: [] for way in WAYS}
            for _ in range(args.rounds):
                for way in WAYS:
                    runs[way].append(put(args.build, source, root + "/server", way))
                print("  " + ", ".join(f"{way} {runs[way][-1]:.2f} s" for way in WAYS))
            medians = {way: statistics.median(times) for way, times in runs.items()}
            base = medians["no-durable"]
            print(f"{what} into {args.dir}: " + ", ".join(
                f"{way} {base / medians[way]:.2f}" for way in WAYS[1:]))
    finally:
        shutil.rmtree(root, ignore_errors=True)
        shutil.rmtree(memory, ignore_errors=True)


if __name__ == "__main__":
    main()
