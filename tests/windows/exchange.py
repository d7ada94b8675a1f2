#!/usr/bin/env python3
"""Windows and Linux, each as server and as client, exchange the same bytes.

  tests/windows/exchange.py WINDOWS_BUILD [LINUX_BUILD] [--files N] [--mib N]
                            [--kills N] [--rate]

In each pairing a project with names in three scripts and empty files is put,
its client is killed midway, and it is put again, verified and fetched. The
contents must then be the same by SHA-256 on both sides, and the times as far
as Windows keeps them. Without LINUX_BUILD there is one pairing.

--kills N: instead, in the pairing of Windows with itself, N kills of the client
and N of the server at any moment: no run that was cut may succeed, and the
last one must have left the same bytes.
--rate: instead, how fast one file of --mib goes from and to a server on Linux
with a client of Windows, over one of Linux: by turns, medians of three.
"""
import argparse
import glob
import hashlib
import itertools
import os
import random
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ADDRESSES = itertools.cycle(range(1, 255))
HERE = os.path.dirname(os.path.abspath(__file__))


class Side:
    def __init__(self, name, build):
        self.name, self.build = name, os.path.abspath(build)

    def start(self, program, *arguments, **streams):
        command = [f"{self.build}/bin/{program}", *arguments]
        if self.name == "windows":
            command[0] += ".exe"
            command = [f"{HERE}/../wine.sh", f"{self.build}/wine", *command]
        return subprocess.Popen(command, stdout=subprocess.PIPE, text=True, **streams)


class Server:
    def __init__(self, side, work, port=0):
        self.side, self.work = side, work
        with open(f"{work}/server.err", "w+") as log:
            self.process = side.start("kqft-server", "--dir", f"{work}/data", "--log-dir",
                                      f"{work}/log", "--listen", "127.0.0.1", "--port", str(port),
                                      stderr=log)
            for _ in range(600):
                log.seek(0)
                found = re.search(r"listening on 127.0.0.1:(\d+)", log.read())
                if found:
                    break
                time.sleep(0.1)
            else:
                sys.exit(f"the server of {side.name} does not start")
        self.port = int(found[1])

    def kill(self):
        self.process.kill()
        self.process.communicate()

    def forget(self):
        """Returns once no client that was killed has a link left, which would hold its file.
        Wine keeps the socket of a killed program now and then: then the server starts anew."""
        logs = f"{self.work}/log/KQFileTransServer_*"
        for _ in range(200):
            text = "".join(open(name, encoding="utf-8").read() for name in glob.glob(logs))
            if text.count("new client:") == text.count("client disconnect:"):
                return
            time.sleep(0.01)
        self.kill()
        for name in glob.glob(logs):
            os.remove(name)
        self.__init__(self.side, self.work, self.port)


def make_project(directory, files, mib):
    draw = random.Random(7)
    small = mib * 2**19 // files
    for i in range(files):
        path = f"{directory}/{('Größe', '日本語', 'Прогон', '.')[i % 4]}/{i:03} ö файл 値.bin"
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(draw.randbytes(0 if i % 10 == 0 else draw.randrange(1, 2 * small)))
        os.utime(path, ns=(0, 1500000000123456700 + i * 86400000000100))
    with open(f"{directory}/run.tm", "wb") as file:
        for _ in range(mib // 2):
            file.write(draw.randbytes(2**20))


def contents(directory, times=False):
    found = {}
    for folder, _, names in os.walk(directory):
        for name in names:
            if name.startswith("kqft."):
                continue
            path = os.path.join(folder, name)
            with open(path, "rb") as file:
                digest = hashlib.sha256(file.read()).hexdigest()
            when = os.stat(path).st_mtime_ns // 100 if times else 0
            found[os.path.relpath(path, directory)] = digest, when
    return found


def held(directory):
    total = 0
    for folder, _, names in os.walk(directory):
        for name in names:
            try:
                total += os.path.getsize(os.path.join(folder, name))
            except OSError:
                pass
    return total


def call(side, port, *arguments):
    # Always from another address: the server still waits for what was killed at the last.
    address = f"127.0.{next(ADDRESSES)}.2"
    return side.start("kqft", "--server", f"127.0.0.1:{port}", "--bind", address, *arguments)


def must(side, port, *arguments):
    process = call(side, port, *arguments)
    said = process.communicate()[0]
    if process.returncode != 0:
        sys.exit(f"{side.name}: {' '.join(arguments)}: exit status {process.returncode}\n{said}")


def folders(work):
    for name in ("data", "log", "P"):
        os.makedirs(f"{work}/{name}")


def pairing(server_side, client, work, files, mib):
    start = time.time()
    folders(work)
    make_project(f"{work}/P", files, mib)
    server = Server(server_side, work)
    try:
        first = call(client, server.port, "-q", "put", f"{work}/P")
        while held(f"{work}/data") < mib * 2**18 and first.poll() is None:
            time.sleep(0.01)
        first.kill()
        first.communicate()
        if first.returncode == 0:
            sys.exit("the put was over before it was killed")
        server.forget()
        must(client, server.port, "put", "--take-over", f"{work}/P")
        must(client, server.port, "verify", "P", f"{work}/P")
        must(client, server.port, "get", "P", "--into", f"{work}/back")
    finally:
        server.kill()
    if contents(f"{work}/P") != contents(f"{work}/data/P"):
        sys.exit("the server has other bytes")
    if contents(f"{work}/P", True) != contents(f"{work}/back/P", True):
        sys.exit("what came back has other bytes or times")
    print(f"server of {server_side.name}, client of {client.name}: {files + 1} files the same, "
          f"{time.time() - start:.1f} s", flush=True)


def kills(side, work, files, mib, count):
    folders(work)
    make_project(f"{work}/P", files, mib)
    server = Server(side, work)
    for whom in ("client", "server"):
        cut = ended = 0
        while cut < count:
            put = call(side, server.port, "-q", "--retries", "0", "put", "--take-over", "--whole",
                       f"{work}/P")
            time.sleep(random.uniform(0.3, 3))
            ended += put.poll() is not None
            cut += put.poll() is None
            if whom == "client":
                put.kill()
            else:
                server.kill()
            put.communicate()
            if put.returncode == 0 and contents(f"{work}/P") != contents(f"{work}/data/P"):
                sys.exit(f"a put whose {whom} was killed succeeded on other bytes")
            if whom == "server":
                server = Server(side, work, server.port)
            else:
                server.forget()
        must(side, server.port, "put", "--take-over", f"{work}/P")
        if contents(f"{work}/P") != contents(f"{work}/data/P"):
            sys.exit(f"other bytes after kills of the {whom}")
        print(f"{cut} kills of the {whom} during a put ({ended} puts were over before): "
              "the same bytes at the end", flush=True)
    server.kill()


def rate(windows, linux, work, mib):
    folders(work)
    with open(f"{work}/P/run.tm", "wb") as file:
        for _ in range(mib):
            file.write(random.randbytes(2**20))
    server = Server(linux, work)
    ratios = {"put": [], "get": []}
    for turn in range(3):
        seconds = {}
        for side in (windows, linux) if turn % 2 else (linux, windows):
            for way, words in (("put", [f"{work}/P", "--project", side.name]),
                               ("get", [side.name, "--into", f"{work}/back"])):
                os.sync()
                start = time.time()
                must(side, server.port, way, *words)
                seconds[side.name, way] = time.time() - start
            shutil.rmtree(f"{work}/back")
            shutil.rmtree(f"{work}/data/{side.name}")
        for way, found in ratios.items():
            found.append(seconds["linux", way] / seconds["windows", way])
    server.kill()
    for way, found in ratios.items():
        print(f"{way} of {mib} MiB: Windows over Linux {statistics.median(found):.2f} "
              f"({min(found):.2f} to {max(found):.2f})")


def main():
    options = argparse.ArgumentParser(description=__doc__,
                                      formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("windows")
    options.add_argument("linux", nargs="?", default="")
    for name, usual in (("files", 40), ("mib", 64), ("kills", 0)):
        options.add_argument(f"--{name}", type=int, default=usual)
    options.add_argument("--rate", action="store_true")
    given = options.parse_args()
    sides = [Side("windows", given.windows)]
    if os.path.exists(f"{given.linux}/bin/kqft"):
        sides.append(Side("linux", given.linux))
    else:
        print("no programs of Linux: one pairing only")
    with tempfile.TemporaryDirectory() as work:
        if given.kills:
            kills(sides[0], work, given.files, given.mib, given.kills)
        elif given.rate:
            rate(*sides, work, given.mib)
        else:
            for i, server in enumerate(sides):
                for j, client in enumerate(sides):
                    pairing(server, client, f"{work}/{i}{j}", given.files, given.mib)


main()
