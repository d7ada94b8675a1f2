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
import socket
import struct
import subprocess
import sys
import time

from common import Server, WorkDirectory, machine_line, median, say

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
    say(machine_line(args.build))
    with WorkDirectory() as root, Server(args.build, f"{root}/data") as server:
        each = args.files // args.directories
        for d in range(args.directories):
            directory = f"{root}/data/All/group{d // 100}/d{d}"
            os.makedirs(directory)
            for f in range(each):
                open(f"{directory}/f{f}.tm", "w", encoding="ascii").close()
        open(f"{root}/data/All/All.kqsln", "w", encoding="ascii").close()
        link = socket.create_connection(("127.0.0.1", server.port),
                                        source_address=("127.0.0.9", 0))
        ask(link)
        for command in (["ls"], ["files", "All"]):
            call = server.client("--bind", "127.0.0.8", *command)
            subprocess.run(call, check=True, stdout=subprocess.DEVNULL)  # warms the cache
            waits = []
            start = time.monotonic()
            lister = subprocess.Popen(call, stdout=subprocess.DEVNULL)
            while lister.poll() is None:
                waits.append(ask(link))
            if lister.returncode != 0:
                sys.exit("kqft failed")
            say(f"kqft {' '.join(command)}: {time.monotonic() - start:.2f} s for "
                f"{args.files} files in {args.directories} directories; meanwhile "
                f"{len(waits)} questions of another client, median "
                f"{median(waits):.2f} ms, longest {max(waits):.1f} ms")


if __name__ == "__main__":
    main()
