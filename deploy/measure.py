"""What is lost between a file system and a workstation: kqft beside dd onto the
same mount, and three servers with nine workstations beside the machine's limit."""
import os
import shutil
import subprocess
import sys
import time
from statistics import median

from hosts import run, say
from service import MIB

MEMORY = "/dev/shm"
BAR = 0.9
BLOCKS = ("1M", "4M")  # of dd; smaller ones take it longer


def judge(name, value):
    say(f"{'[holds]      ' if value >= BAR else '[falls short]'} {name}: {value:.2f}, at least {BAR}")


def made(directory, mib):
    os.makedirs(directory)
    with open(f"{directory}/Run.tm", "wb") as out:
        for _ in range(mib):
            out.write(os.urandom(MIB))
    return f"{directory}/Run.tm"


def processor_time():
    """Seconds that the machine's processors have worked, all together."""
    with open("/proc/stat", encoding="ascii") as stat:
        user, nice, system, _, _, irq, softirq = map(int, stat.readline().split()[1:8])
    return (user + nice + system + irq + softirq) / os.sysconf("SC_CLK_TCK")


def took(action):
    start = time.monotonic()
    action()
    return time.monotonic() - start


def ask(call):
    call.wait(300)
    if not call.ok:
        sys.exit(f"kqft failed: {call.said}")


def over_cephfs(bench, rounds, mib):
    """By turns, each onto new names, read by a host that has none of it yet; beside
    the dd that does best, and beside a floor, dd with a network in between: reads
    and sends, receives and writes, and does nothing else."""
    root = f"{MEMORY}/{os.path.basename(bench.work)}"
    source = made(f"{root}/source", mib)
    first, second = (bench.cluster.mount_of(host) for host in bench.hosts[:2])
    station = bench.stations[0]
    peers = [f"dd-{block}" for block in BLOCKS]
    names = [*peers, "floor", "kqft"]
    times = {f"{name} {way}": [] for name in names for way in ("up", "down")}
    busy = dict.fromkeys(times, 0.0)

    def dd(block):
        """How it goes up, and down."""
        return (lambda name: os_run("dd", f"if={source}", f"of={first}/{name}", f"bs={block}",
                                    "conv=fsync"),
                lambda name: os_run("dd", f"if={second}/{name}", f"of={root}/back", f"bs={block}"))

    def floor(host, taken, sent):
        """Within one host, whose file system either directory may lie on."""
        program = f"{bench.build}/bin/kqft-floor"
        os.makedirs(taken)
        receiver = host.popen(program, "receive", taken, stdout=subprocess.PIPE, text=True)
        port = receiver.stdout.readline().strip()
        if host.popen(program, "send", sent, port).wait() or receiver.wait():
            sys.exit("the floor failed")

    def floor_up(name):
        floor(bench.hosts[0], f"{first}/{name}", os.path.dirname(source))
        os_run("sync", f"{first}/{name}/Run.tm")

    def floor_down(name):
        floor(bench.hosts[1], f"{root}/fetched", f"{second}/{name}")

    def kqft_up(name):
        ask(bench.call(station, bench.hosts[0], "put", os.path.dirname(source), "--project", name))

    def kqft_down(name):
        ask(bench.call(station, bench.hosts[1], "get", name, "--into", f"{root}/got"))

    for number in range(rounds + 1):  # the first only warms up
        turns = [*((f"dd-{block}", *dd(block)) for block in BLOCKS),
                 ("floor", floor_up, floor_down), ("kqft", kqft_up, kqft_down)]
        for way in (0, 1):
            for name, *move in turns if number % 2 else turns[::-1]:
                worked = processor_time()
                seconds = took(lambda: move[way](f"{name}{number}"))
                if number:
                    times[f"{name} {('up', 'down')[way]}"].append(seconds)
                    busy[f"{name} {('up', 'down')[way]}"] += (processor_time() - worked) / seconds
        shutil.rmtree(f"{root}/got")
        shutil.rmtree(f"{root}/fetched")
        os.remove(f"{root}/back")
        os_run("rm", "-rf", *(f"{first}/{name}{number}" for name in names))
    for way in ("up", "down"):
        say(f"over CephFS {way}, {mib} MiB, {rounds} rounds: " + ", ".join(
            f"{name} {mib * MIB / 1e6 / median(times[f'{name} {way}']):.0f} MB/s "
            f"({' '.join(f'{one:.2f}' for one in times[f'{name} {way}'])} s), "
            f"{100 * busy[f'{name} {way}'] / rounds / os.cpu_count():.0f} % of the processors"
            for name in names))
        best = min(median(times[f"{name} {way}"]) for name in peers)
        judge(f"{way}, throughput over dd's", best / median(times[f"kqft {way}"]))
        judge(f"{way}, throughput over the floor's",
              median(times[f"floor {way}"]) / median(times[f"kqft {way}"]))
    shutil.rmtree(root)


def os_run(*command):
    run(*command, patience=300)


class Crowd:
    """Nine senders at a time over loopback onto the memory file system."""

    def __init__(self, bench, mib):
        self.bench, self.mib = bench, mib
        self.root = f"{MEMORY}/{os.path.basename(bench.work)}"
        self.source = os.path.dirname(made(f"{self.root}/source", mib))

    def warm(self):
        """Uses the memory that is about to be used: what was free for a while a
        virtual machine has given back, and whoever gets it first is slow."""
        os_run("dd", "if=/dev/zero", f"of={self.root}/warm", "bs=1M", f"count={9 * self.mib}")
        os.remove(f"{self.root}/warm")

    def servers(self, count):
        """Nine workstations of so many servers; megabytes a second of all."""
        processes = []
        for number in range(count):
            directory = f"{self.root}/server{number}"
            os.makedirs(f"{directory}.log")
            os.makedirs(directory)
            processes.append(subprocess.Popen(
                [f"{self.bench.build}/bin/kqft-server", "--dir", directory, "--log-dir",
                 f"{directory}.log", "--listen", f"127.0.1.{number + 1}"],
                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True))
            processes[-1].stderr.readline()
        start = time.monotonic()
        senders = [subprocess.Popen(
            [f"{self.bench.build}/bin/kqft", "--quiet", "--server", f"127.0.1.{number % count + 1}",
             "--bind", f"127.0.2.{number + 1}", "--log-dir", f"{self.root}/log", "put", self.source,
             "--project", f"P{number}"], env={**os.environ, "XDG_STATE_HOME": f"{self.root}/state"})
            for number in range(9)]
        rate = self.rate(senders, start)
        for process in processes:
            process.terminate()
            process.wait()
        for number in range(count):
            shutil.rmtree(f"{self.root}/server{number}")
            shutil.rmtree(f"{self.root}/server{number}.log")
        return rate

    def floors(self):
        """Nine of the least that any program must do for the same bytes."""
        floor = f"{self.bench.build}/bin/kqft-floor"
        receivers = []
        for number in range(9):
            os.makedirs(f"{self.root}/floor{number}")
            receivers.append(subprocess.Popen([floor, "receive", f"{self.root}/floor{number}"],
                                              stdout=subprocess.PIPE, text=True))
        ports = [receiver.stdout.readline().strip() for receiver in receivers]
        start = time.monotonic()
        rate = self.rate([subprocess.Popen([floor, "send", self.source, port]) for port in ports], start)
        for number, receiver in enumerate(receivers):
            receiver.wait()
            shutil.rmtree(f"{self.root}/floor{number}")
        return rate

    def rate(self, senders, start):
        if any([sender.wait() for sender in senders]):
            sys.exit("a sender failed")
        return 9 * self.mib * MIB / 1e6 / (time.monotonic() - start)


def scaling(bench, rounds, mib):
    """The limit is what nine floors reach at once; one server beside it shows
    whether it is the number of servers that costs."""
    crowd = Crowd(bench, mib)
    kinds = {"nine floors": crowd.floors, "one server": lambda: crowd.servers(1),
             "three servers": lambda: crowd.servers(3)}
    rates = {name: [] for name in kinds}
    for number in range(rounds + 1):
        turns = list(kinds.items())
        for name, action in turns if number % 2 else turns[::-1]:
            crowd.warm()
            rate = action()
            if number:
                rates[name].append(rate)
    shutil.rmtree(crowd.root)
    say(f"nine workstations, {mib} MiB each, {rounds} rounds, local file system (memory): "
        + ", ".join(f"{name} {median(values):.0f} MB/s ({' '.join(f'{one:.0f}' for one in values)})"
                    for name, values in rates.items()))
    judge("three servers over nine floors", median(rates["three servers"]) / median(rates["nine floors"]))
    judge("three servers over one server", median(rates["three servers"]) / median(rates["one server"]))
