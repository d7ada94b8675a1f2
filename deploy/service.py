"""The data servers and the workstations of the trials: what starts kqft-server
again when it ends, projects to send, and calls of kqft."""
import hashlib
import json
import os
import shutil
import signal
import subprocess
import threading
import time

from hosts import run, wait_until

PORT = 9999
NOBODY = 65534
MIB = 1 << 20


class Servers:
    """One kqft-server a host, confined and without rights of its own, which a
    thread starts again when it fails, as a service manager does. Each finds the
    file system at the same place, as on hosts of their own."""

    def __init__(self, build, work, hosts, directory_of):
        self.build, self.work, self.hosts = build, work, hosts
        self.directory_of = directory_of
        self.held = set(hosts)  # those that stay down
        self.turn = threading.Lock()
        self.restarts = 0
        self.place = f"{work}/projects"
        os.makedirs(f"{work}/server", exist_ok=True)
        os.makedirs(self.place)
        threading.Thread(target=self.keep, daemon=True).start()

    def said(self, host):
        return f"{self.work}/server/{host.name}.out"

    def start(self, host):
        logs = f"{self.work}/server/{host.name}"
        os.makedirs(logs, exist_ok=True)
        os.chown(logs, NOBODY, NOBODY)
        with self.turn:
            self.held.discard(host)
            host.start("server", self.said(host), "unshare", "--mount", "sh", "-c",
                       'mount --bind "$0" "$1" && shift && exec "$@"', self.directory_of(host),
                       self.place, "setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}",
                       "--clear-groups", f"{self.build}/bin/kqft-server", "--dir", self.place,
                       "--listen", host.address, "--port",
                       str(PORT), "--log-dir", logs, "--access-log", f"{logs}/access.jsonl")
        wait_until(lambda: host.lives("server") and self.answers(host), f"{host.name} listens", 40)

    def answers(self, host):
        sockets = run(*host.enter, "cat", "/proc/net/tcp")
        return f":{PORT:04X} 00000000:0000 0A" in sockets

    def server_of(self, station):
        """The host whose server has a link from this workstation; None: none has."""
        from_there = "".join(f"{int(part):02X}" for part in reversed(station.address.split(".")))
        for host in self.hosts:
            for line in run(*host.enter, "cat", "/proc/net/tcp").splitlines()[1:]:
                local, remote, state = line.split()[1:4]
                if local.endswith(f":{PORT:04X}") and remote.startswith(from_there) and state == "01":
                    return host
        return None

    def hold(self, host):
        """From here on the server stays down when it ends."""
        with self.turn:
            self.held.add(host)

    def keep(self):
        while True:
            time.sleep(0.5)
            for host in self.hosts:
                with self.turn:
                    if host not in self.held and not host.lives("server"):
                        self.restarts += 1
                        host.again("server")


class Project:
    """Files of a workstation: two recordings, some small files."""

    def __init__(self, directory, random, mib):
        self.directory, self.name = directory, os.path.basename(directory)
        self.digests, self.sizes = {}, {}
        large = random.randint(mib // 2, mib * 3 // 4) * MIB + random.randrange(65536)
        self.make("Run.tm", large, random)
        self.make("bus/bus.can", mib * MIB - large, random)
        for number in range(random.randint(20, 60)):
            self.make(f"small/s{number}", random.randrange(65536), random)
        self.make(f"{self.name}.kqsln", 20, random)

    def make(self, name, size, random):
        path = os.path.join(self.directory, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        digest = hashlib.sha256()
        with open(path, "wb") as out:
            for at in range(0, size, MIB):
                block = random.randbytes(min(MIB, size - at))
                digest.update(block)
                out.write(block)
        self.digests[name], self.sizes[name] = digest.hexdigest(), size

    @property
    def bytes(self):
        return sum(self.sizes.values())

    def differences(self, copy):
        """The files that are not the same below another directory."""
        found = []
        for name, digest in self.digests.items():
            try:
                with open(os.path.join(copy, name), "rb") as file:
                    if hashlib.file_digest(file, "sha256").hexdigest() != digest:
                        found.append(name)
            except OSError as error:
                found.append(f"{name} ({error.strerror})")
        return found

    def missing_in(self, copy):
        """Bytes that another directory lacks, by the lengths of its files."""
        held = 0
        for name, size in self.sizes.items():
            try:
                held += min(size, os.path.getsize(os.path.join(copy, name)))
            except OSError:
                pass
        return self.bytes - held

    def remove(self):
        shutil.rmtree(self.directory)


class Call:
    """A kqft that runs on a workstation."""

    def __init__(self, build, work, host, servers, *arguments, address=None):
        state = f"{work}/workstation/{host.name}/state"
        os.makedirs(state, exist_ok=True)
        self.out = open(f"{work}/workstation/{host.name}/out", "w+", encoding="utf-8")
        self.errors = open(f"{work}/workstation/{host.name}/errors", "w+", encoding="utf-8")
        self.began = time.monotonic()
        bind = ["--bind", address] if address else []
        self.process = host.popen(f"{build}/bin/kqft", "--json", "--quiet", "--timeout", "10",
                                  "--retries", "1", "--server", servers, *bind, "--log-dir", state,
                                  *arguments, stdout=self.out, stderr=self.errors,
                                  env={**os.environ, "XDG_STATE_HOME": state})

    def wait(self, patience):
        """The exit status; None when it took longer and was killed."""
        try:
            self.process.wait(patience)
        except subprocess.TimeoutExpired:
            self.process.send_signal(signal.SIGKILL)
            self.process.wait()
            self.process.returncode = None
        self.seconds = time.monotonic() - self.began
        self.out.seek(0)
        self.errors.seek(0)
        self.said = self.errors.read().strip()
        lines = [json.loads(line) for line in self.out.read().splitlines()]
        summaries = [line for line in lines if line["type"] == "summary"]
        self.moved = summaries[-1].get("bytes_moved") if summaries else None
        self.out.close()
        self.errors.close()
        return self.process.returncode

    @property
    def ok(self):
        return self.process.returncode == 0
