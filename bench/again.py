#!/usr/bin/env python3
"""The second time: what moves when most of it is there already.

  bench/again.py BUILD_DIR [--rounds N] [--mib N] [--files N]

Three cases, each from the same state for everyone: a long file of which the
receiver holds the first half (a cut upload), a long file with one changed byte
in its middle, and many small files of which none has changed. Beside rsync in
its two ways (its own comparison of blocks, and --append-verify, which goes on
behind what is there), sftp's reput and a plain PUT. Every program is called as
a user calls it; the copy is compared each time. Prints seconds, and what the
loopback carried, both ways, with heads: nothing else should talk meanwhile.
"""
import argparse
import filecmp
import os
import shutil
import subprocess
import time

import peers
from common import MIB, KIB, Server, WorkDirectory, machine_line, make_files, median, say, warm_memory

LONG = "run.tm"  # a measurement file, which goes on where it ended
LOOPBACK = "/sys/class/net/lo/statistics/tx_bytes"
CUT, CHANGED, SAME = "cut in the middle", "one byte changed", "nothing changed"


def carried():
    with open(LOOPBACK, encoding="ascii") as counter:
        return int(counter.read())


class Kqft:
    name, cases = "kqft", (CUT, CHANGED, SAME)

    def __init__(self, build, root):
        self.store = os.path.join(root, "kqft")
        self.server = Server(build, self.store)

    def put(self, source, case):
        subprocess.run(self.server.client("put", source, "--project", case), check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    first = put

    def close(self):
        with self.server:
            pass


class Rsync(peers.Rsync):
    name, cases, options = "rsync", (CUT, CHANGED, SAME), ["--inplace"]

    def put(self, source, case):
        peers.call(["rsync", "-a", *self.options, source + "/",
                    f"rsync://127.0.0.1:{self.port}/store/{case}/"])

    first = peers.Rsync.put


class RsyncAppend(Rsync):
    name, cases, options = "rsync --append-verify", (CUT,), ["--append-verify"]


class Sftp(peers.SftpGcm):
    name, cases = "sftp aes128-gcm, reput", (CUT, CHANGED)
    first = peers.Sftp.put

    def put(self, source, case):
        for name in os.listdir(source):
            there = os.path.join(self.store, case, name)
            again = os.path.getsize(there) < os.path.getsize(f"{source}/{name}")
            self.batch(f"{'reput' if again else 'put'} {source}/{name} {there}")


class WebDav(peers.WebDav):
    name, cases = "WebDAV (nginx)", (CUT, CHANGED)
    first = peers.WebDav.put


def same(one, other):
    names = sorted(os.listdir(one))
    _, different, missing = filecmp.cmpfiles(one, other, names, shallow=False)
    return not different and not missing


def flip(path):
    """One byte in the middle, at another time."""
    with open(path, "r+b") as file:
        file.seek(os.path.getsize(path) // 2)
        byte = file.read(1)
        file.seek(-1, os.SEEK_CUR)
        file.write(bytes([byte[0] ^ 1]))


def run(contender, case, source):
    """The state, then the call that is measured: seconds and bytes carried."""
    there = os.path.join(contender.store, "P")
    long = os.path.join(source, LONG)
    if case == CUT:
        os.makedirs(there)
        half = os.path.join(there, LONG)
        shutil.copy2(long, half)
        os.truncate(half, os.path.getsize(long) // 2)
        os.utime(half)
    else:
        contender.first(source, "P")
    if case == CHANGED:
        flip(long)
    before, start = carried(), time.monotonic()
    contender.put(source, "P")
    seconds, moved = time.monotonic() - start, carried() - before
    if not same(source, there):
        raise SystemExit(f"{contender.name}, {case}: the copy differs")
    shutil.rmtree(there)
    return seconds, moved


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", metavar="BUILD_DIR")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--mib", type=int, default=1024, help="length of the long file")
    parser.add_argument("--files", type=int, default=10000, help="how many small ones, of 4 KiB")
    args = parser.parse_args()
    kinds = [kind for kind in (Rsync, RsyncAppend, Sftp, WebDav) if kind.is_installed()]
    say(machine_line(args.build))
    with WorkDirectory() as root:
        warm_memory(root, 3 * args.mib * MIB)
        sources = {CUT: os.path.join(root, "long"), SAME: os.path.join(root, "small")}
        sources[CHANGED] = sources[CUT]
        make_files(sources[CUT], 1, args.mib * MIB)
        os.rename(os.path.join(sources[CUT], "file00000.bin"), os.path.join(sources[CUT], LONG))
        make_files(sources[SAME], args.files, 4 * KIB)
        contenders = [Kqft(args.build, root), *(kind(root) for kind in kinds)]
        try:
            for case in (CUT, CHANGED, SAME):
                say(f"\n{case}: {args.files} files" if case == SAME else
                    f"\n{case}: {args.mib} MiB")
                results = {}
                for number in range(args.rounds):
                    turn = number % len(contenders)
                    for contender in contenders[turn:] + contenders[:turn]:
                        if case in contender.cases:
                            results.setdefault(contender, []).append(
                                run(contender, case, sources[case]))
                for contender in contenders:
                    if contender not in results:
                        continue
                    seconds, moved = zip(*results[contender])
                    say(f"  {contender.name:24} {median(seconds):6.2f} s "
                        f"{median(moved) / MIB:9.2f} MiB")
        finally:
            for contender in contenders:
                contender.close()


if __name__ == "__main__":
    main()
