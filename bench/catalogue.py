#!/usr/bin/env python3
"""Lists a large project directory while another client asks small questions.

  bench/catalogue.py BUILD_DIR [--directories N] [--files N]

Makes a tree of empty files (50,000 in 2,000 directories unless told
otherwise), lists it with kqft with a warm cache, and meanwhile asks for the
project directory on a second connection from another address. Prints how
long the lists took and how long the second client waited.
"""
import argparse
import os
import re
import shutil
import signal
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time

GET_PROJECT_DIRECTORY = 2511


def ask(link):
    """One question and its answer; returns milliseconds."""
    start = time.monotonic()
    link.sendall(struct.pack("<4sIIII", b"KQFT", GET_PROJECT_DIRECTORY, 1, 0, 0))
    head = link.recv(20, socket.MSG_WAITALL)
    link.recv(struct.unpack("<4sIIII", head)[3], socket.MSG_WAITALL)
    return (time.monotonic() - start) * 1000


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build")
    parser.add_argument("--directories", type=int, default=2000)
    parser.add_argument("--files", type=int, default=50000)
    args = parser.parse_args()
    root = tempfile.mkdtemp(prefix="kqft-bench-")
    server = None
    try:
        each = args.files // args.directories
        for d in range(args.directories):
            directory = f"{root}/data/All/group{d // 100}/d{d}"
            os.makedirs(directory)
            for f in range(each):
                open(f"{directory}/f{f}.tm", "w", encoding="ascii").close()
        open(f"{root}/data/All/All.kqsln", "w", encoding="ascii").close()
        os.mkdir(f"{root}/log")
        server = subprocess.Popen(
            [f"{args.build}/bin/kqft-server", "--dir", f"{root}/data", "--log-dir", f"{root}/log",
             "--listen", "127.0.0.1", "--port", "0"],
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        place = re.search(r"listening on (\S+)", server.stderr.readline()).group(1)
        link = socket.create_connection(("127.0.0.1", int(place.rsplit(":", 1)[1])),
                                        source_address=("127.0.0.9", 0))
        ask(link)
        for command in (["ls"], ["files", "All"]):
            call = [f"{args.build}/bin/kqft", "--server", place, "--bind", "127.0.0.8",
                    "--log-dir", f"{root}/log"] + command
            subprocess.run(call, check=True, stdout=subprocess.DEVNULL)  # warms the cache
            waits = []
            start = time.monotonic()
            lister = subprocess.Popen(call, stdout=subprocess.DEVNULL)
            while lister.poll() is None:
                waits.append(ask(link))
            if lister.returncode != 0:
                sys.exit("kqft failed")
            print(f"kqft {' '.join(command)}: {time.monotonic() - start:.2f} s for "
                  f"{args.files} files in {args.directories} directories; meanwhile "
                  f"{len(waits)} questions of another client, median "
                  f"{statistics.median(waits):.2f} ms, longest {max(waits):.1f} ms")
    finally:
        if server is not None:
            server.send_signal(signal.SIGTERM)
            server.wait()
        shutil.rmtree(root, ignore_errors=True)


if __name__ == "__main__":
    main()
