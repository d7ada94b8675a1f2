#!/usr/bin/env python3
"""Many links at once against one server: speed, fairness and memory.

  bench/links.py BUILD_DIR [--mib N] [--rounds N] [--links N...] [--quick]

Links from addresses of their own send a file each, again and again, then
fetch one; bytes are counted while all of them are at it. The files that are
sent take the same memory in all, however many links send one. Then all but one
begin a download and stop reading, and the speed of the one is compared with its
speed alone.

--quick: the most links only, with small files for a second, and no bars.
"""
import argparse
import os
import re
import shutil
import subprocess
import sys

from common import (MIB, Server, WorkDirectory, bar, machine_line, make_files, median, say,
                    status_mib, warm_memory)

FETCHED_MIB = 1024
SERVER_MIB, LINK_MIB, STALLED_MIB = 100, 2, 1024


def source(root, mib):
    """A file that the server serves, made on first use."""
    directory = os.path.join(root, "server", f"{mib:.0f}")
    if not os.path.exists(directory):
        make_files(directory, 1, int(mib * MIB))
    return os.path.join(directory, "file00000.bin")


def run(args, root, file, command, count, *seconds):
    """One case on a fresh server; its figures and the server's peak memory."""
    directory = os.path.join(root, "server", "moved")
    os.makedirs(directory)
    with Server(args.build, os.path.join(root, "server")) as server:
        done = subprocess.run(
            [f"{args.build}/bin/kqft-links", str(server.port), command, str(count), file,
             directory, *seconds],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
        peak = status_mib(server.pid, "VmHWM")
    if done.returncode != 0:
        sys.exit(f"kqft-links {command} {count} failed: {done.stderr[-500:]}")
    shutil.rmtree(directory)
    figures = {key: float(value) for key, value in re.findall(r"(\w+)=([\d.]+)", done.stdout)}
    figures["peak"] = peak
    return figures


def middle(runs, key):
    return median(run[key] for run in runs)


def speed_over(runs, others):
    return middle(runs, "mib_per_second") / middle(others, "mib_per_second")


def report(name, cases, most):
    """The figures of one direction, and whether the bars hold for the most links."""
    for count, runs in cases.items():
        say(f"  {name:4} {count:4} links: total {speed_over(runs, cases[1]):.2f} of one link's, "
            f"slowest over fastest {middle(runs, 'fairness'):.2f}, all had begun after "
            f"{middle(runs, 'begun'):.2f} s, server at most {max(r['peak'] for r in runs):.0f} MiB")
    runs = cases[most]
    bar(f"{name}, {most} links, total over one link's", speed_over(runs, cases[1]), 0.8)
    bar(f"{name}, {most} links, slowest over fastest", middle(runs, "fairness"), 0.5)
    bar(f"{name}, {most} links, server memory", max(r["peak"] for r in runs),
        SERVER_MIB + LINK_MIB * most, " MiB", True)


def quick(args):
    with WorkDirectory() as root:
        for command in ("up", "down"):
            figures = run(args, root, source(root, 2), command, max(args.links), "1")
            say(f"{command}: all {max(args.links)} links had begun after {figures['begun']:.2f} s")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build")
    parser.add_argument("--mib", type=int, default=2048, help="sent files in all")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--links", type=int, nargs="+", default=[1, 10, 100])
    parser.add_argument("--quick", action="store_true")
    args = parser.parse_args()
    if args.quick:
        return quick(args)
    counts = sorted({1, *args.links})
    most = counts[-1]
    say(machine_line(args.build))
    say(f"links: sent files of {args.mib} MiB in all, fetched {FETCHED_MIB} MiB each, again and "
        f"again; {args.rounds} rounds, medians")
    runs = {command: {count: [] for count in counts} for command in ("up", "down")}
    stalled = []
    with WorkDirectory() as root:
        warm_memory(root, (len(counts) + 2) * args.mib * MIB)

        for _ in range(args.rounds):
            for count in counts:
                for command, cases in runs.items():
                    mib = FETCHED_MIB if command == "down" else args.mib / count
                    cases[count].append(run(args, root, source(root, mib), command, count))
            stalled.append(run(args, root, source(root, FETCHED_MIB), "stalled", most - 1))
    for command, cases in runs.items():
        report(command, cases, most)
    bar(f"one download beside {most - 1} stalled ones, over its speed alone",
        speed_over(stalled, runs["down"][1]), 0.8)
    bar(f"{most - 1} stalled downloads, server memory", max(r["peak"] for r in stalled),
        STALLED_MIB, " MiB", True)


if __name__ == "__main__":
    main()
