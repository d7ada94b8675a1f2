"""A CephFS cluster on three hosts, each with a monitor, a storage daemon and a
metadata server, of which one is active at a time; mounted by ceph-fuse on each.

Everything is kept three times, and goes on with two. Times are short enough
for a death to be over before a client's patience is: see "Several servers" in
docs/operating.md.
"""
import json
import os
import subprocess
import time
import uuid

from hosts import run, wait_until

PACKAGES = "ceph-mon ceph-mgr ceph-mds ceph-osd ceph-fuse ceph-common"
OSD_BYTES = 6 << 30  # a sparse file for each
NAME = "projects"

CONF = """[global]
fsid = {fsid}
mon host = {mon_host}
auth cluster required = none
auth service required = none
auth client required = none
run dir = {work}/run
admin socket = {work}/run/$cluster-$name.$pid.asok
log file = {work}/log/$name.log
mon cluster log file = {work}/log/cluster.log
crash dir = {work}/crash
mon data = {work}/$name
mgr data = {work}/$name
mds data = {work}/$name
osd data = {work}/$name
ms bind ipv6 = false
mon data avail warn = 1
mon data avail crit = 1

osd pool default size = 3
osd pool default min size = 2
osd pool default pg autoscale mode = off
osd objectstore = bluestore
bluestore block size = {osd_bytes}
osd memory target = 1073741824
osd crush update on start = true

# How long it takes until somebody who is gone counts as gone. Monitors that
# look more seldom than the metadata servers' grace find everybody alive.
mon tick interval = 1
mon lease = 2
mon election timeout = 2
osd heartbeat interval = 1
osd heartbeat grace = 5
mon osd adjust heartbeat grace = false
mon osd min down reporters = 1
mon osd down out interval = 3600
mds beacon interval = 1
mds beacon grace = 5
mds beacon mon down grace = 5
mds reconnect timeout = 5
mon client ping interval = 2
mon client ping timeout = 5
"""


class Cluster:
    """Of three hosts; letters name the daemons, one of each kind a host."""

    def __init__(self, work, hosts):
        self.work, self.hosts = work, hosts
        self.conf = f"{work}/ceph.conf"
        self.letter = dict(zip(hosts, "abc"))
        self.fsid = str(uuid.uuid4())

    def ceph(self, *arguments, patience=60):
        """The answer of the cluster, taken apart."""
        said = run("ceph", "-c", self.conf, "--connect-timeout", "20", "-f", "json", *arguments,
                   patience=patience)
        return json.loads(said) if said.strip() else None

    def set_up(self):
        for name in ("run", "log", "crash", "mount"):
            os.makedirs(f"{self.work}/{name}")
        places = [f"[v2:{host.address}:3300,v1:{host.address}:6789]" for host in self.hosts]
        with open(self.conf, "w", encoding="ascii") as conf:
            conf.write(CONF.format(fsid=self.fsid, mon_host=" ".join(places), work=self.work,
                                   osd_bytes=OSD_BYTES))
        monmap = f"{self.work}/monmap"
        run("monmaptool", "--create", "--fsid", self.fsid, monmap)
        for host, place in zip(self.hosts, places):
            run("monmaptool", "--addv", self.letter[host], place, monmap)
        for host in self.hosts:
            letter = self.letter[host]
            run("ceph-mon", "-c", self.conf, "--mkfs", "-i", letter, "--monmap", monmap)
            self.daemon(host, "mon", letter)
        wait_until(lambda: len(self.ceph("quorum_status")["quorum"]) == 3, "a quorum of three")
        self.ceph("config", "set", "mon", "auth_allow_insecure_global_id_reclaim", "false")
        for host in self.hosts[:2]:
            self.daemon(host, "mgr", self.letter[host])
        for number, host in enumerate(self.hosts):
            osd = str(uuid.uuid4())
            self.ceph("osd", "new", osd)
            os.makedirs(f"{self.work}/osd.{number}")
            run("ceph-osd", "-c", self.conf, "--mkfs", "-i", str(number), "--osd-uuid", osd)
            self.daemon(host, "osd", str(number))
        for pool in ("data", "names"):
            self.ceph("osd", "pool", "create", pool, "16", "16")
        self.ceph("fs", "new", NAME, "names", "data")
        for time_out in ("session_timeout", "session_autoclose"):
            self.ceph("fs", "set", NAME, time_out, "30")  # the least that it takes
        for host in self.hosts:
            self.daemon(host, "mds", self.letter[host])
        self.wait_healthy()
        for host in self.hosts:
            os.makedirs(self.mount_of(host))
            self.mount(host)

    def daemon(self, host, kind, name):
        host.start(kind, f"{self.work}/log/{kind}.{name}.out", f"ceph-{kind}", "-c", self.conf,
                   "-f", "-i", name)

    def mount_of(self, host):
        return f"{self.work}/mount/{host.name}"

    def mount(self, host):
        """Mounts the file system on a host, also after its mount has died."""
        place = self.mount_of(host)
        subprocess.run(["umount", "-l", place], stderr=subprocess.DEVNULL, check=False)
        host.start("mount", f"{self.work}/log/fuse.{host.name}.out", "ceph-fuse", "-c", self.conf,
                   "-f", "-n", "client.admin", place)
        wait_until(lambda: f" {place} fuse" in run("cat", "/proc/mounts"), f"{place} is mounted", 90)

    def fence(self, host):
        """Has the metadata server forget the mounts of a host that is known to be
        down, with their locks; by itself it waits for session_timeout."""
        tell = ["ceph", "-c", self.conf, "--connect-timeout", "5", "tell", "mds.0", "client"]
        for _ in range(30):
            try:
                said = subprocess.run([*tell, "ls"], stdout=subprocess.PIPE, timeout=5, text=True,
                                      stderr=subprocess.DEVNULL, check=True).stdout
                for session in json.loads(said):
                    if session["client_metadata"].get("hostname") == host.name:
                        subprocess.run([*tell, "evict", f"id={session['id']}"], timeout=20,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                       check=True)
                return
            except (subprocess.SubprocessError, ValueError):
                time.sleep(1)  # metadata servers are changing places

    def wait_healthy(self, patience=120):
        """Until nothing is missing: all daemons, all copies."""

        def is_healthy():
            now = self.ceph("status")
            states = now["pgmap"].get("pgs_by_state", [])
            return (now["osdmap"]["num_up_osds"] == 3 and len(now["quorum"]) == 3
                    and now["fsmap"]["up"] == 1 and now["fsmap"]["up:standby"] >= 1
                    and any("up:active" == one["status"] for one in now["fsmap"]["by_rank"])
                    and states and all(one["state_name"].startswith("active+clean") for one in states))

        return wait_until(is_healthy, "the cluster is whole", patience, step=0.5)

    def active_mds(self):
        """The host whose metadata server is at work."""
        ranks = self.ceph("status")["fsmap"]["by_rank"]
        name = next((one["name"] for one in ranks), "a")
        return next(host for host in self.hosts if self.letter[host] == name)
