#!/usr/bin/env python3
"""The dissector of packaging/wireshark by tshark: on a recorded session of the
real programs with an upload that is cut and resumed, on a message of every
code, and on links of mangled bytes.

    tests/wire/dissector.py BUILD [LINKS [SEED]]

LINKS: how many mangled ones (300). Exit status 0 when all is as it should be.
"""
import os
import random
import re
import select
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SCRIPT = os.path.join(ROOT, "packaging/wireshark/kqft.lua")
HEAD = struct.Struct("<4sIIII")
CLIENT, SERVER = 0, 1


def message(code, body=b"", version=1):
    return HEAD.pack(b"KQFT", code, version, len(body), 0) + body


class Capture:
    """A file of TCP segments as tcpdump writes it, of links that need not have
    been any."""

    def __init__(self, path):
        self.file = open(path, "wb")
        self.file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 101))
        self.links = {}

    def segment(self, link, side, data, at=None, port=9999):
        """Data of one link, from CLIENT or SERVER, cut as a segment may be."""
        at = time.time() if at is None else at
        sequence = self.links.setdefault(link, [1, 1])
        ports = (20000 + link % 40000, port)
        for begin in range(0, len(data), 60000):
            part = data[begin:begin + 60000]
            tcp = struct.pack(">HHIIBBHHH", ports[side], ports[1 - side], sequence[side] & 0xFFFFFFFF,
                              sequence[1 - side] & 0xFFFFFFFF, 5 << 4, 0x18, 65535, 0, 0) + part
            ends = ([10, 0, 0, 1 + link // 40000], [10, 0, 1, 1])
            ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(tcp), 0, 0, 64, 6, 0,
                             bytes(ends[side]), bytes(ends[1 - side]))
            self.file.write(struct.pack("<IIII", int(at), int(at % 1 * 1e6), len(ip + tcp), len(ip + tcp)))
            self.file.write(ip + tcp)
            sequence[side] += len(part)

    def close(self):
        self.file.close()


def tshark(capture, *options, passes=()):
    run = subprocess.run(["tshark", *passes, "-n", "-X", "lua_script:" + SCRIPT, "-r", capture, *options],
                         capture_output=True, text=True, errors="replace", check=False)
    troubles = [line for line in run.stderr.splitlines() if "root" not in line and line.strip()]
    assert run.returncode == 0 and not troubles, (run.returncode, troubles)
    return run.stdout


FIELDS = ["frame.number", "kqft.code", "kqft.from", "kqft.file", "kqft.result", "kqft.position",
          "kqft.request_in", "kqft.time"]


def rows(capture, condition="kqft"):
    """The fields of each packet; a field that several messages have is a list."""
    options = [word for field in FIELDS for word in ("-e", field)]
    text = tshark(capture, "-Y", condition, "-T", "fields", "-E", "aggregator=\x1f", *options, passes=["-2"])
    for line in text.splitlines():
        yield {field: [one for one in value.split("\x1f") if one]
               for field, value in zip(FIELDS, line.split("\t"))}


def is_clean(capture):
    """Nothing is malformed, and the script had no fault."""
    for line in rows(capture, "kqft.malformed || _ws.malformed || _ws.lua.error"):
        raise AssertionError(line)


class Tap(threading.Thread):
    """Passes links on to a server, and keeps all bytes in a capture."""

    def __init__(self, capture, port):
        super().__init__(daemon=True)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.capture, self.target, self.sent = capture, port, 0
        self.streams = {}

    def run(self):
        link = 0
        while True:
            near, _ = self.listener.accept()
            far = socket.create_connection(("127.0.0.1", self.target))
            link += 1
            threading.Thread(target=self.pass_on, args=(link, near, far), daemon=True).start()

    def pass_on(self, link, near, far):
        sockets = (near, far)
        try:
            while True:
                for side in (CLIENT, SERVER):
                    if sockets[side] not in select.select(sockets, [], [])[0]:
                        continue
                    data = sockets[side].recv(60000)
                    if not data:
                        return
                    self.capture.segment(link, side, data)
                    self.streams.setdefault((link, side), bytearray()).extend(data)
                    self.sent += len(data) if side == CLIENT else 0
                    sockets[1 - side].sendall(data)
        except OSError:
            pass
        finally:
            near.close()
            far.close()


def codes_of(stream):
    """The messages of one direction, and of the last one as much as arrived."""
    at = 0
    while at + HEAD.size <= len(stream):
        marker, code, _, length, _ = HEAD.unpack_from(stream, at)
        assert marker == b"KQFT"
        at += HEAD.size + length
        if at <= len(stream):
            yield code


def check_session(build, work):
    os.makedirs(f"{work}/srv")
    os.makedirs(f"{work}/Run7/deep")
    for name, size in (("a.txt", 100), ("empty", 0), ("deep/b.bin", 300000), ("gps.gps", 20 << 20)):
        with open(f"{work}/Run7/{name}", "wb") as file:
            file.write(random.randbytes(size))
    server = subprocess.Popen([f"{build}/bin/kqft-server", "--dir", f"{work}/srv", "--port", "0",
                               "--listen", "127.0.0.1", "--log-dir", work], stderr=subprocess.PIPE, text=True)
    port = int(re.search(r":(\d+) ", server.stderr.readline()).group(1))
    capture = Capture(f"{work}/session.pcap")
    tap = Tap(capture, port)
    tap.start()
    near = f"127.0.0.1:{tap.listener.getsockname()[1]}"

    def kqft(*words):
        return subprocess.Popen([f"{build}/bin/kqft", "--server", near, "-q", "--log-dir", work, *words],
                                cwd=work, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    cut = kqft("--bwlimit", "8M", "put", "Run7")
    while tap.sent < 8 << 20 and cut.poll() is None:
        time.sleep(0.01)
    cut.kill()
    cut.wait()
    for words in (["put", "Run7"], ["ls"], ["ls", "Run7"], ["get", "Run7", "--into", f"{work}/back"],
                  ["verify", "Run7"], ["get", "Nope"], ["rm", "-y", "Run7"]):
        status = kqft(*words).wait()
        assert (status == 0) == ("Nope" not in words), (words, status)
    server.terminate()
    server.wait()
    capture.close()

    is_clean(f"{work}/session.pcap")
    sent = sorted(code for stream in tap.streams.values() for code in codes_of(stream))
    found = [row for row in rows(f"{work}/session.pcap") if row["kqft.code"]]
    assert sorted(int(code) for row in found for code in row["kqft.code"]) == sent
    assert {2500, 2501, 2502, 2504, 2505, 2506, 2507, 2511, 2512, 2513, 2514} <= set(sent), set(sent)
    ends = [row for row in found if row["kqft.code"] == ["2502"] and row["kqft.from"] == ["2"]]
    assert ends and all(row["kqft.request_in"] and float(row["kqft.time"][0]) >= 0 for row in ends)
    data = [row for row in found if "2501" in row["kqft.code"] or "2506" in row["kqft.code"]]
    assert all(row["kqft.file"] and row["kqft.position"] for row in data)
    assert any(row["kqft.file"][0].endswith("gps.gps") and int(row["kqft.position"][0]) > 8 << 19 for row in data)
    print(f"session: {len(sent)} messages of {len(set(sent))} codes in {len(found)} packets")


# (side, code, body, what the column of information says)
EVERY_CODE = [
    (CLIENT, 2511, b"", "2511 ask for the project directory"),
    (SERVER, 2511, b"/srv", "2511 ask for the project directory, answer: /srv"),
    (CLIENT, 2504, b"/srv/P/a|/srv/P/b|", "2504 total size of files"),
    (SERVER, 2504, struct.pack("<q", 12), "2504 total size of files, answer: 12 bytes"),
    (CLIENT, 2500, b"\1/srv/P/a", "2500 announce a file to receive: /srv/P/a"),
    (SERVER, 2500, struct.pack("<iq", 1, 5), "2500 announce a file to receive, answer: /srv/P/a, had 5 bytes = 1"),
    (CLIENT, 2501, struct.pack("<q", 0) + b"12345678", "2501 upload data: /srv/P/a from 0, 8 bytes"),
    (SERVER, 2508, struct.pack("<i", -10),
     "2508 upload data could not be stored = -10 (the server cannot write the data)"),
    (CLIENT, 2502, b"", "2502 end of an uploaded file: /srv/P/a"),
    (SERVER, 2502, b"", "2502 end of an uploaded file, answer: /srv/P/a"),
    (CLIENT, 2509, b"/srv/P/m.gps", "2509 ask for missing ranges: /srv/P/m.gps"),
    (SERVER, 2509, struct.pack("<i", 1) + b"10|0,5,9,2|12", "2509 ask for missing ranges, answer: /srv/P/m.gps = 1"),
    (CLIENT, 2510, struct.pack("<iqq", 1, 10, 1),
     "2510 report a resent range: /srv/P/m.gps, range 1 now 1 bytes at 10"),
    (SERVER, 2510, struct.pack("<i", -32), "2510 report a resent range, answer: /srv/P/m.gps = -32 "
     "(an operation on a lost-info file failed)"),
    (CLIENT, 2505, struct.pack("<q", 7) + "/srv/P/ü".encode(), "2505 ask for a file: /srv/P/ü from 7"),
    (SERVER, 2505, struct.pack("<i", 1), "2505 ask for a file, answer: /srv/P/ü = 1"),
    (SERVER, 2506, struct.pack("<q", 7) + bytes(65508), "2506 download data: /srv/P/ü from 7, 65508 bytes"),
    (CLIENT, 2503, b"", "2503 stop a download"),
    (SERVER, 2507, struct.pack("<i", -28), "2507 end of a downloaded file: /srv/P/ü = -28 "
     "(the server stopped sending before the end of the file)"),
    (SERVER, 2503, b"", "2503 stop a download, answer"),
    (CLIENT, 2512, b"", "2512 ask for the list of projects"),
    (SERVER, 2512, b'<Channel_Key_Values><Channel_Key_Value m_strPath="/srv/P" m_strName="A &amp; B" m_nStatus="1" '
     b'm_llSize="5"/></Channel_Key_Values>', "2512 ask for the list of projects, answer"),
    (CLIENT, 2514, b"P", "2514 ask for the files of a project: P"),
    (SERVER, 2514, b"", "2514 ask for the files of a project, answer"),
    (CLIENT, 2513, b"P", "2513 delete a project: P"),
    (SERVER, 2513, struct.pack("<i", 1) + b"\1", "2513 delete a project, answer = 1 (refused)"),
]


def check_every_code(work):
    """Whole, and again a few bytes at a time, over a port that only the first
    message tells."""
    path = f"{work}/codes.pcap"
    for size, port in ((1 << 20, 9999), (7, 4711)):
        capture = Capture(path)
        for side, code, body, _ in EVERY_CODE:
            bytes_ = message(code, body)
            pieces = [bytes_[:24]] + [bytes_[at:at + size] for at in range(24, min(len(bytes_), 2000), size)]
            for piece in pieces + [bytes_[max(24, 24 + len(pieces[1:]) * size):]]:
                capture.segment(0, side, piece, port=port)
        capture.close()
        is_clean(path)
        shown = tshark(path, "-Y", "kqft.code", "-T", "fields", "-e", "_ws.col.Info").splitlines()
        assert shown == [line for *_, line in EVERY_CODE], (size, shown)
    tree = tshark(path, "-V")
    for text in ("Range 1: 2 bytes at 9", "Name: A & B, /srv/P, 5 bytes", "Name: /srv/P/b"):
        assert text in tree, text
    wrong = [(CLIENT, message(2500)), (CLIENT, message(2511, version=2)), (SERVER, message(2504, b"123")),
             (CLIENT, b"SSH-2.0-nobody, at your service\r\n"), (SERVER, message(2501, bytes(8))),
             (SERVER, message(2509, struct.pack("<i", 1) + b"of no form"))]
    capture = Capture(path)
    for side, bytes_ in [(CLIENT, message(2511))] + wrong + [(CLIENT, message(2512))]:
        capture.segment(0, side, bytes_)
    capture.close()
    marked = [row["frame.number"] for row in rows(path, "kqft.malformed")]
    assert marked == [[str(number)] for number in range(2, 2 + len(wrong))], marked
    print(f"codes: {len(EVERY_CODE)} messages, {len(wrong)} malformed ones marked")


def mangled(dice):
    """Messages of one link with some bytes changed, left out, or cut short."""
    for side, code, body, _ in dice.choices(EVERY_CODE, k=dice.randint(1, 8)):
        bytes_ = bytearray(message(dice.choice([code, code, dice.getrandbits(32)]), body[:2000]))
        for _ in range(dice.choice([0, 1, 1, 2, 5])):
            bytes_[dice.randrange(len(bytes_))] = dice.choice([0, 1, 124, 255, dice.getrandbits(8)])
        if dice.random() < 0.3:
            del bytes_[dice.randrange(len(bytes_)):]
        if dice.random() < 0.1:
            struct.pack_into("<I", bytes_.ljust(16, b"K"), 12, dice.choice([0, 3, 0x7FFFFFFF, 0xFFFFFFFF])) \
                if len(bytes_) >= 16 else None
        while bytes_:
            size = dice.choice([1, 3, 19, 20, 21, 4000])
            yield side, bytes(bytes_[:size])
            del bytes_[:size]


def check_mangled(work, links, seed):
    dice = random.Random(seed)
    capture = Capture(f"{work}/mangled.pcap")
    for link in range(links):
        for side, piece in mangled(dice):
            capture.segment(link, side, piece, at=link)
    capture.close()
    text = tshark(f"{work}/mangled.pcap", "-V")
    assert "Lua Error" not in text and "_ws.lua" not in text, seed
    assert text.count("kqft") or text.count("Measurement file transfer") > links // 2
    print(f"mangled: {links} links, seed {seed}")


def main():
    links = int(sys.argv[2]) if len(sys.argv) > 2 else 300
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else random.randrange(1 << 30)
    with tempfile.TemporaryDirectory() as work:
        check_every_code(work)
        check_mangled(work, links, seed)
        check_session(os.path.abspath(sys.argv[1]), work)


if __name__ == "__main__":
    main()
