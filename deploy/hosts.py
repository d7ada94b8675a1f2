"""Hosts on one machine: each a network namespace with a name and an address of
its own, on one bridge.

For a process that is alone in its mount, process and network namespaces, as
several-servers.sh starts it: nothing here cleans up, because all of it goes
with those.
"""
import multiprocessing
import os
import signal
import subprocess
import sys
import time

NETWORK = "10.99.0"
BITS = 24
PLACES = "/run/netns"  # a memory file system of our own


def say(text):
    print(text, flush=True)


def run(*command, patience=60, **more):
    """What a command prints; ends the program when it fails."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          timeout=patience, check=False, **more)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)} ended with {done.returncode}: {done.stderr.strip()}")
    return done.stdout


def wait_until(holds, what, patience=60, step=0.1):
    """Seconds that it took; ends the program when it takes too long."""
    start = time.monotonic()
    while not holds():
        if time.monotonic() - start > patience:
            sys.exit(f"after {patience} s still not so: {what}")
        time.sleep(step)
    return time.monotonic() - start


def apart(question, patience):
    """What a function answers in a process of its own; None when it takes too
    long. Whoever asks a mount whose storage is gone cannot even be killed."""
    ours, its = multiprocessing.Pipe(duplex=False)
    child = multiprocessing.get_context("fork").Process(
        target=lambda: its.send(question()), daemon=True)
    child.start()
    answer = ours.recv() if ours.poll(patience) else None
    child.kill()
    return answer


def set_up_bridge():
    """The machine itself is NETWORK.254, from where everything can be asked."""
    os.makedirs(PLACES, exist_ok=True)
    run("mount", "-t", "tmpfs", "-o", "size=1m", "none", PLACES)
    run("mount", "-t", "tmpfs", "none", "/dev/shm")  # what is measured there goes with us
    run("ip", "link", "set", "lo", "up")
    run("ip", "link", "add", "name", "bridge", "type", "bridge")
    run("ip", "address", "add", f"{NETWORK}.254/{BITS}", "dev", "bridge")
    run("ip", "link", "set", "bridge", "up")


class Host:
    """A namespace and the processes that were started in it."""

    def __init__(self, name, number):
        self.name = name
        self.addresses = [f"{NETWORK}.{number}"]
        self.processes = {}
        self.commands = {}
        net, uts = f"{PLACES}/{name}", f"{PLACES}/{name}.uts"
        run("ip", "netns", "add", name)
        run("ip", "link", "add", f"v-{name}", "type", "veth", "peer", "name", "eth0", "netns", name)
        run("ip", "link", "set", f"v-{name}", "master", "bridge", "up")
        with open(uts, "w", encoding="ascii"):
            pass
        run("unshare", f"--uts={uts}", "hostname", name)
        self.enter = ["nsenter", f"--net={net}", f"--uts={uts}", "--"]
        run(*self.enter, "ip", "link", "set", "lo", "up")
        run(*self.enter, "ip", "link", "set", "eth0", "up")
        run(*self.enter, "ip", "address", "add", f"{self.address}/{BITS}", "dev", "eth0")

    @property
    def address(self):
        return self.addresses[0]

    def add_address(self, number):
        address = f"{NETWORK}.{number}"
        run(*self.enter, "ip", "address", "add", f"{address}/{BITS}", "dev", "eth0")
        self.addresses.append(address)

    def popen(self, *command, **more):
        return subprocess.Popen([*self.enter, *command], stdin=subprocess.DEVNULL, **more)

    def start(self, name, log, *command):
        """Keeps a process under a name, so that it can be killed and started again."""
        self.commands[name] = (log, command)
        with open(log, "ab") as out:
            self.processes[name] = self.popen(*command, stdout=out, stderr=out)

    def again(self, name):
        log, command = self.commands[name]
        self.start(name, log, *command)

    def lives(self, name):
        return name in self.processes and self.processes[name].poll() is None

    def kill(self, *names, how=signal.SIGKILL):
        """Ends these processes at one moment, and waits until they are gone."""
        ended = [self.processes.pop(name) for name in names if name in self.processes]
        for process in ended:
            process.send_signal(how)
        for process in ended:
            process.wait()

    def link(self, up):
        """Pulls the cable, or puts it in again."""
        run("ip", "link", "set", f"v-{self.name}", "up" if up else "down")
