#!/usr/bin/env python3
"""Builds the cluster, the servers and the workstations, and tries them; what
several-servers.sh runs in namespaces of its own. Not for use by hand."""
import argparse
import os
import random
import shutil
import signal
import sys
import threading
import time

import measure
import notes
from cephfs import Cluster
from hosts import Host, apart, say, set_up_bridge
from service import MIB, NOBODY, Call, Project, Servers

ALLOWANCE = 128 * MIB  # what may be sent twice
ATTEMPTS = 12  # of one put or get, one after another through the servers
PATIENCE = 150  # seconds for a call
SILENCE = 15  # seconds for which a server that does not die says nothing
KILLED = ("osd", "mds", "server", "host")
KINDS = (*KILLED, "silence")


def last_line(call):
    return call.said.splitlines()[-1] if call.said else f"nothing; exit {call.process.returncode}"


class Trial:
    """One round: projects on their way, one death, and what came of them."""

    def __init__(self, bench, number, mib):
        self.bench, self.number = bench, number
        self.random = random.Random(f"{bench.seed} {number}")
        self.kind = KINDS[number % len(KINDS)]
        self.one = self.random.random() < 0.5
        self.take_over = self.random.random() < 0.5
        self.mib = self.random.randint(60, mib)
        self.delay = self.random.uniform(0, self.mib / 30)
        self.victim = self.random.choice(bench.hosts)  # where no server has a part in it
        self.losses, self.notes = [], []
        self.sent_twice = 0

    def lose(self, what):
        self.losses.append(what)

    def make(self):
        """Two workstations; one project that both have, or one each."""
        place = f"{self.bench.work}/workstation"
        first = Project(f"{place}/w1/P{self.number}a", self.random, self.mib)
        if self.one:
            shutil.copytree(first.directory, f"{place}/w2/{first.name}")
            return [first, first]
        return [first, Project(f"{place}/w2/P{self.number}b", self.random, self.mib)]

    def put(self, which, *more):
        station = self.bench.stations[which]
        directory = f"{self.bench.work}/workstation/{station.name}/{self.projects[which].name}"
        return self.bench.call(station, None, "put", directory, *more)

    def seen(self, host, project):
        return os.path.join(self.bench.cluster.mount_of(host), project.name)

    def strike(self):
        """Kills; returns what starts it again."""
        victim = self.victim
        if self.kind == "host":
            return self.bench.kill_host(victim)
        if self.kind == "silence":
            return self.bench.silence(victim, SILENCE)
        if self.kind == "mds":
            victim = self.bench.cluster.active_mds()
        victim.kill(self.kind)
        if self.kind == "server":
            return lambda: None  # the servers' keeper does
        return lambda: victim.again(self.kind)

    def check_moved(self, call, missing):
        if call.moved is None:
            return
        twice = call.moved - missing
        self.sent_twice = max(self.sent_twice, twice)
        if twice > ALLOWANCE:
            self.lose(f"{call.moved} bytes moved where {missing} were missing")

    def check_sent(self, project, host, when):
        different = apart(lambda: project.differences(self.seen(host, project)), PATIENCE)
        if different is None:
            self.lose(f"{when}, but the mount of {host.name} does not answer")
        elif different:
            self.lose(f"{when}, but {len(different)} files differ through {host.name}: "
                      f"{', '.join(different[:3])}")

    def missing(self, host, project):
        """Once the file system answers."""
        asked = time.monotonic()
        bytes_missing = apart(lambda: project.missing_in(self.seen(host, project)), PATIENCE)
        if bytes_missing is None:
            self.lose(f"the mount of {host.name} does not answer")
        waited = time.monotonic() - asked
        if waited > 1:
            self.notes.append(f"{host.name} waited {waited:.1f} s for the file system")
        return bytes_missing or 0

    def go_on(self, which, host):
        """The same put again, until it ends well; looked at on a host that lives."""
        project = self.projects[which]
        for _ in range(ATTEMPTS):
            missing = self.missing(host, project)
            call = self.put(which, "--take-over")
            call.wait(PATIENCE)
            self.check_moved(call, missing)
            if call.ok:
                self.check_sent(project, host, "the put that went on ended with 0")
                return
            self.notes.append(f"again: {last_line(call)}")
            time.sleep(1)
        self.lose(f"the put of {project.name} does not go on: {call.said}")

    def get(self, which, host):
        """Through a server that did not take the upload; into a third workstation."""
        project = self.projects[which]
        into = f"{self.bench.work}/workstation/w3"
        call = self.bench.call(self.bench.stations[2], host, "get", project.name, "--into", into)
        call.wait(PATIENCE)
        if not call.ok:
            self.lose(f"get through {host.name}: {call.said}")
        elif different := project.differences(f"{into}/{project.name}"):
            self.lose(f"get through {host.name} ended with 0, but {len(different)} files differ")
        shutil.rmtree(f"{into}/{project.name}", ignore_errors=True)

    def run(self):
        began = time.monotonic()
        self.projects = self.make()
        more = ["--take-over"] if self.one and self.take_over else []
        calls = [self.put(0), self.put(1, *more)]
        time.sleep(self.delay)
        under_way = sum(call.process.poll() is None for call in calls)
        self.victim = self.bench.servers.server_of(self.bench.stations[0]) or self.victim
        others = [host for host in self.bench.hosts if host != self.victim]
        back = self.strike()
        died = time.monotonic()
        ends = [call.wait(PATIENCE) for call in calls]
        after = time.monotonic() - died
        for which, project in enumerate(self.projects):
            self.check_moved(calls[which], project.bytes)
            if ends[which] == 0:
                self.check_sent(project, others[1], f"put {which + 1} ended with 0")
        for which in (0, 1):
            if ends[which] != 0:
                self.notes.append(f"put {which + 1} said: {last_line(calls[which])}")
                self.go_on(which, others[which])
        healed = time.monotonic() - died
        self.get(0, others[1])
        back()
        if not self.one:
            self.get(1, self.victim)
        self.bench.cluster.wait_healthy()
        self.clean()
        say(f"round {self.number}: {self.kind}{' dies' if self.kind in KILLED else ''} "
            f"after {self.delay:.1f} s "
            f"({under_way} under way), {'one project' if self.one else 'two projects'} of "
            f"{self.mib} MiB; exits {ends[0]} {ends[1]} after {after:.1f} s, whole after "
            f"{healed:.1f} s, sent twice {self.sent_twice / MIB:.1f} MiB, "
            f"{time.monotonic() - began:.0f} s in all: {'LOST' if self.losses else 'equal'}")
        for text in self.losses:
            say(f"  LOST: {text}")
        for text in self.notes if self.bench.verbose else []:
            say(f"  {text}")
        return not self.losses

    def clean(self):
        for project in set(self.projects):
            call = self.bench.call(self.bench.stations[0], None, "rm", "--yes", project.name)
            call.wait(PATIENCE)
            if not call.ok:
                self.lose(f"rm {project.name}: {call.said}")
        for name in ("w1", "w2"):
            for project in set(self.projects):
                shutil.rmtree(f"{self.bench.work}/workstation/{name}/{project.name}",
                              ignore_errors=True)


class Bench:
    """All that the trials need, set up once."""

    def __init__(self, build, work, seed, verbose):
        self.build, self.work, self.seed, self.verbose = build, work, seed, verbose
        set_up_bridge()
        self.hosts = [Host(f"h{number}", 10 + number) for number in (1, 2, 3)]
        self.stations = [Host(f"w{number}", 20 + number) for number in range(1, 10)]
        self.cluster = Cluster(work, self.hosts)

    def set_up_cluster(self):
        began = time.monotonic()
        self.cluster.set_up()
        os.chown(self.cluster.mount_of(self.hosts[0]), NOBODY, NOBODY)
        self.serve(self.cluster.mount_of)
        say(f"three hosts, three servers: up in {time.monotonic() - began:.0f} s")

    def serve(self, directory_of):
        self.servers = Servers(self.build, self.work, self.hosts, directory_of)
        for host in self.hosts:
            self.servers.start(host)

    def kill_host(self, victim):
        """All of its processes, and its cable; returns what brings it back."""
        self.servers.hold(victim)
        victim.link(False)
        victim.kill(*list(victim.processes))
        fence = threading.Thread(target=self.cluster.fence, args=(victim,), daemon=True)
        fence.start()

        def back():
            fence.join()  # or it takes the new mount for the old one
            victim.link(True)
            for name in ("mon", "osd", "mds", "mgr"):
                if name in victim.commands:
                    victim.again(name)
            self.cluster.mount(victim)
            self.servers.start(victim)

        return back

    def silence(self, victim, seconds):
        """Its server says nothing for a while; returns what waits until that is over."""
        server = victim.processes["server"]
        server.send_signal(signal.SIGSTOP)
        over = threading.Timer(seconds, server.send_signal, [signal.SIGCONT])
        over.start()
        return over.join

    def call(self, station, host, *arguments, address=None):
        """Of one server, or where host is None of all."""
        servers = ",".join(one.address for one in ([host] if host else self.hosts))
        return Call(self.build, self.work, station, servers, *arguments, address=address)

    def rounds(self, first, count, mib):
        lost = {kind: 0 for kind in KINDS}
        done = dict(lost)
        most = 0
        for number in range(first, first + count):
            trial = Trial(self, number, mib)
            done[trial.kind] += 1
            lost[trial.kind] += not trial.run()
            most = max(most, trial.sent_twice)
        say(f"{count} rounds of seed {self.seed}: " + ", ".join(
            f"{done[kind]} of {kind}{' killed' if kind in KILLED else ''}" for kind in KINDS)
            + f"; at most {most / MIB:.1f} MiB sent twice; {sum(lost.values())} rounds lost something")
        return sum(lost.values()) == 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build")
    parser.add_argument("work")
    parser.add_argument("--rounds", type=int, default=50)
    parser.add_argument("--first", type=int, default=1)
    parser.add_argument("--seed", type=int, default=random.randrange(1, 100000))
    parser.add_argument("--mib", type=int, default=140)
    parser.add_argument("--measure", action="store_true")
    parser.add_argument("--turns", type=int, default=5)
    parser.add_argument("--measured-mib", type=int, default=512)
    parser.add_argument("--verbose", action="store_true")
    args = parser.parse_args()
    # Whoever ends this ends all processes below it.
    for number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(number, lambda *_: os._exit(130))
    say(f"seed {args.seed}")
    bench = Bench(args.build, args.work, args.seed, args.verbose)
    well = True
    bench.set_up_cluster()
    if args.rounds:
        well = notes.what_a_dead_host_leaves(bench)
        well &= bench.rounds(args.first, args.rounds, args.mib)
    if args.measure:
        measure.over_cephfs(bench, args.turns, args.measured_mib)
        measure.scaling(bench, args.turns, args.measured_mib)
    sys.exit(0 if well else 1)


if __name__ == "__main__":
    main()
