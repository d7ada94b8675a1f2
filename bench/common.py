"""What the measuring programs share: servers, figures of a process, files to
move, and the lines that a reader looks for at the end."""
import ctypes
import os
import platform
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

KIB, MIB, GIB = 1 << 10, 1 << 20, 1 << 30
PUNCH_HOLE_KEEP_SIZE = 3  # of linux/falloc.h
median = statistics.median

# Whoever ends a run also ends its servers and removes its files.
signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))


def say(text):
    print(text, flush=True)


def bar(name, value, limit, unit="", most=False):
    """Says whether a figure is at least (at most) what it has to be."""
    holds = value <= limit if most else value >= limit
    say(f"{'[holds]      ' if holds else '[falls short]'} {name}: {value:.2f}{unit}, "
        f"{'at most' if most else 'at least'} {limit:.2f}{unit}")


class CalmDisk:
    """What was measured before is still being written, or given back, for a while:
    waits until a disk flushes as quickly as it did at best."""

    PATIENCE = 60

    def __init__(self, directory):
        self.path = os.path.join(directory, "probe")
        self.best = min(self.flush() for _ in range(5))

    def flush(self):
        """Seconds that a small write takes to the disk; of some the middle one."""
        times = []
        with open(self.path, "wb", buffering=0) as file:
            for _ in range(9):
                start = time.monotonic()
                file.write(bytes(4 * KIB))
                os.fsync(file.fileno())
                times.append(time.monotonic() - start)
        os.remove(self.path)
        return median(times)

    def wait(self):
        os.sync()
        until = time.monotonic() + self.PATIENCE
        taken = self.flush()
        while taken > 1.5 * self.best and time.monotonic() < until:
            time.sleep(1)
            taken = self.flush()
        self.best = min(self.best, taken)
        if taken > 1.5 * self.best:
            say(f"  the disk is slow: a flush takes {taken * 1000:.1f} ms, {self.best * 1000:.1f} at best")


def machine_line(build):
    """The machine and the build that the figures below it belong to."""
    with open("/proc/cpuinfo", encoding="utf-8") as info:
        models = [line.split(":", 1)[1].strip() for line in info if line.startswith("model name")]
    kind, compiler = "unknown", ""
    with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as cache:
        for line in cache:
            if line.startswith("CMAKE_BUILD_TYPE:"):
                kind = line.split("=", 1)[1].strip()
            elif line.startswith("CMAKE_CXX_COMPILER:"):
                compiler = os.path.basename(line.split("=", 1)[1].strip())
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / GIB
    return (f"{models[0] if models else platform.machine()}, {os.cpu_count()} cores, "
            f"{memory:.0f} GiB, Linux {platform.release()}; {kind} build by {compiler}")


def status_mib(pid, field):
    """A memory field of /proc/PID/status, in MiB; 0 once the process is gone."""
    try:
        with open(f"/proc/{pid}/status", encoding="ascii") as status:
            for line in status:
                if line.startswith(field + ":"):
                    return int(line.split()[1]) / KIB
    except OSError:
        pass
    return 0.0


def threads_of(pid):
    return len(os.listdir(f"/proc/{pid}/task"))


def descriptors_of(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def cpu_of(pid):
    """CPU seconds of a process so far, those of its ended children included."""
    with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return sum(int(ticks) for ticks in fields[11:15]) / os.sysconf("SC_CLK_TCK")


class WorkDirectory:
    """A temporary directory, on the memory file system as a rule, gone at the end."""

    def __init__(self, place="/dev/shm"):
        self.place = place

    def __enter__(self):
        self.path = tempfile.mkdtemp(prefix="kqft-bench-", dir=self.place)
        os.chmod(self.path, 0o755)
        return self.path

    def __exit__(self, *_):
        shutil.rmtree(self.path, ignore_errors=True)


def make_files(directory, count, size):
    """Random files; no two blocks of the whole are equal, so that a block in a
    wrong place shows."""
    os.makedirs(directory)
    block = bytearray(os.urandom(min(size, MIB)))
    stamp = 0
    for number in range(count):
        with open(os.path.join(directory, f"file{number:05}.bin"), "wb") as out:
            left = size
            while left > 0:
                stamp += 1
                block[:8] = stamp.to_bytes(8, "little")
                left -= out.write(block[:min(left, len(block))])


def warm_memory(root, size):
    """Puts memory to use and frees all of it but a page in every half MiB. A
    virtual machine gives free memory back to its host within seconds, in larger
    pieces than these, and to get it again is up to ten times as slow as to use
    it. So what moves next finds memory that is in use, and finds it first."""
    page = os.sysconf("SC_PAGE_SIZE")
    step = 128 * page
    fallocate = ctypes.CDLL(None).fallocate
    fallocate.argtypes = [ctypes.c_int, ctypes.c_int, ctypes.c_long, ctypes.c_long]
    with open(os.path.join(root, "memory"), "wb", buffering=0) as file:
        for _ in range(0, size, MIB):
            file.write(b"m" * MIB)
        for at in range(0, size, step):
            if fallocate(file.fileno(), PUNCH_HOLE_KEEP_SIZE, at + page, step - page) != 0:
                sys.exit("cannot free a part of a file")


def link_files(source, target):
    """The same files in another directory, without their bytes."""
    os.makedirs(target)
    for name in os.listdir(source):
        os.link(os.path.join(source, name), os.path.join(target, name))


def stop(process):
    process.send_signal(signal.SIGTERM)
    process.wait()


class Relay:
    """Stands for a distance: what goes through its port arrives `ms` later."""

    def __init__(self, build, port, ms):
        self.process = subprocess.Popen([f"{build}/bin/kqft-relay", str(port), str(ms)],
                                        stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline())

    def close(self):
        stop(self.process)


class Server:
    """A kqft-server of our own, with the directory that it serves.

    Unless durable it confirms files as the peers do, before they lie on the disk.
    """

    def __init__(self, build, directory, durable=False):
        os.makedirs(directory, exist_ok=True)
        os.makedirs(directory + ".log", exist_ok=True)
        self.build = build
        self.directory = directory
        self.process = subprocess.Popen(
            [f"{build}/bin/kqft-server", "--dir", directory, "--listen", "127.0.0.1",
             "--port", "0", "--log-dir", directory + ".log",
             "--durable" if durable else "--no-durable"],
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        for line in self.process.stderr:
            if "listening on " in line:
                self.place = line.split("listening on ", 1)[1].split()[0]
                self.port = int(self.place.rsplit(":", 1)[1])
                break
        else:
            sys.exit("kqft-server did not start")
        self.pid = self.process.pid

    def client(self, *arguments):
        """The command line of a kqft that talks to this server."""
        return [f"{self.build}/bin/kqft", "--server", self.place,
                "--log-dir", self.directory + ".log", *arguments]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        stop(self.process)
        if self.process.returncode != 0:
            sys.exit(f"kqft-server ended with {self.process.returncode}: "
                     f"{self.process.stderr.read()[-4000:]}")
