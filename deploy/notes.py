"""Whether what a note says to lie on the disk does, after a host's death.

A server cuts a file that a dead one was receiving to the length in the note
beside it, and the sender goes on from there: below it every byte has to be right.
"""
import os
import shutil
import time

from hosts import apart, run, say
from measure import MEMORY, made
from service import MIB

NOTE = "user.kqft.receiving"
NARROW = "200mbit"  # between hosts, so that the mount has much to keep to itself
NOTED = 128 * MIB  # when the host dies


def safe_bytes(path):
    """What the note tells; 0 while there is none."""
    try:
        return int(os.getxattr(path, NOTE).split()[1])
    except OSError:
        return 0


def different_below_note(path, source):
    """The bytes that the note tells of, and how many of its MiB are not the sender's."""
    safe, different = safe_bytes(path), 0
    with open(path, "rb") as one, open(source, "rb") as other:
        for at in range(0, safe, MIB):
            bytes_here = min(MIB, safe - at)
            different += one.read(bytes_here) != other.read(bytes_here)
    return safe, different


def what_a_dead_host_leaves(bench):
    """Kills a host in the middle of a long recording; True when the note was right."""
    root = f"{MEMORY}/{os.path.basename(bench.work)}"
    source = made(f"{root}/source", 400)
    victim, other = bench.hosts[:2]
    narrow = ["dev", "eth0", "root", "tbf", "rate", NARROW, "burst", "256k", "latency", "50ms"]
    run(*victim.enter, "tc", "qdisc", "add", *narrow)
    call = bench.call(bench.stations[0], victim, "put", os.path.dirname(source), "--project", "Long")
    here, there = (f"{bench.cluster.mount_of(host)}/Long/Run.tm" for host in (victim, other))
    while call.process.poll() is None and (apart(lambda: safe_bytes(here), 20) or 0) < NOTED:
        time.sleep(0.02)
    back = bench.kill_host(victim)
    safe, different = apart(lambda: different_below_note(there, source), 120) or (0, -1)
    call.process.kill()
    call.wait(10)
    back()
    run(*victim.enter, "tc", "qdisc", "del", "dev", "eth0", "root")
    bench.cluster.wait_healthy()
    run("rm", "-rf", os.path.dirname(there))
    shutil.rmtree(root)
    well = different == 0 and safe > 0  # the last note may be lost with its host
    say(f"a host dies with a recording under way: {safe // MIB} MiB noted as written, of which "
        f"{different} MiB differ: {'equal' if well else 'LOST'}")
    return well
