#!/usr/bin/env python3
"""The Python package, against the library of a build.

  tests/python_face.py BUILD [-v] [CLASS.TEST ...]
"""
import asyncio
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import warnings

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path(sys.argv.pop(1)).resolve() if __name__ == "__main__" else ROOT / "build/dev"
os.environ.setdefault("KQFT_LIBRARY", str(BUILD / "lib/libkqft.so.1"))
sys.path.insert(0, str(ROOT / "bindings/python"))

import kqft  # noqa: E402
from kqft import _library  # noqa: E402

MIB = 1 << 20
EXAMPLE = ROOT / "docs/examples/roundtrip.py"


def resident():
    with open("/proc/self/statm", encoding="ascii") as statm:
        return int(statm.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


class Structs(unittest.TestCase):
    def test_they_are_those_of_the_headers(self):
        types = {"int32_t": "c_int", "uint32_t": "c_uint", "int64_t": "c_long", "double": "c_double"}
        text = "".join(path.read_text() for path in (ROOT / "bindings/c/kqft").iterdir())
        text = re.sub(r"///.*", "", text)
        for kind in _library.Struct.__subclasses__():
            name = "kqft" + re.sub("([A-Z])", r"_\1", kind.__name__).lower()
            body = re.search(rf"struct {name} {{(.*?)}}", text, re.S)[1]
            told = []
            for line in filter(str.strip, body.split(";")):
                callback = re.findall(r"\(\*(\w+)\)", line)
                names = callback or re.findall(r"(\w+)\s*(?:,|$)", line)
                told += [(field, types.get(line.split()[0])) for field in names]
            ours = [(field, kind.__name__ if kind.__name__ in types.values() else None)
                    for field, kind in kind._fields_]
            self.assertEqual(told, ours, name)


class Face(unittest.TestCase):
    def setUp(self):
        self.dir = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.projects, self.run, self.into = (self.dir / n for n in ("srv", "Run7", "into"))
        for folder in (self.projects, self.run / "deep", self.into):
            folder.mkdir(parents=True)
        (self.run / "a.tm").write_bytes(os.urandom(8 * MIB))
        (self.run / "deep" / "\u00fc \udcff.dat").write_bytes(b"any name")
        self.server = kqft.Server(self.projects, listen="127.0.0.1", events=10000)
        self.addCleanup(self.server.close)

    def client(self, bind="127.0.0.6", **options):
        return kqft.Client("127.0.0.1", self.server.port, bind=bind, **options)

    def assert_same_trees(self, left, right):
        files = {p.relative_to(left): p.read_bytes() for p in left.rglob("*") if p.is_file()}
        self.assertTrue(files)
        for name, content in files.items():
            self.assertEqual((right / name).read_bytes(), content, name)

    def test_a_project_goes_there_and_back(self):
        seen, ended = [], []
        with self.client(bandwidth="100M") as client:

            def show(now):
                seen.append(now)
                if now.moved > 0:
                    client.cancel()

            with self.assertRaises(kqft.CancelledError) as caught:
                client.put(self.run, progress=show)
            self.assertEqual(len(caught.exception.result.items), 2)
            done = client.put(self.run, file=ended.append, rules=["- *.tmp"])
            self.assertEqual({i.name for i in done.items}, {i.name for i in ended})
            self.assertEqual(done.project, "Run7")
            self.assertEqual(client.progress().done, client.progress().total)
            self.assertEqual(client.verify("Run7", self.run).same, 2)
            self.assertEqual([p.name for p in client.projects()], [])  # no project file in it
            self.assertEqual({f.name: f.bytes for f in client.files("Run7")},
                             {"a.tm": 8 * MIB, "deep/\u00fc \udcff.dat": 8})
            client.get("Run7", self.into)
            self.assert_same_trees(self.run, self.into / "Run7")

            (self.run / "a.tm").write_bytes(b"other")
            with self.assertRaises(kqft.DifferentError) as caught:
                client.verify("Run7", self.run)
            changed = [f for f in caught.exception.result.files if f.verdict]
            self.assertEqual([(f.path, f.verdict) for f in changed],
                             [("a.tm", kqft.Verdict.CHANGED)])
            client.delete("Run7")
            self.assertEqual(list(client.files("Run7")), [])
        with self.assertRaises(ValueError):
            client.connect()
        self.server.stop()
        kinds = {event.kind for event in self.server.events()}
        self.assertLessEqual({kqft.EventKind.UPLOADED, kqft.EventKind.DOWNLOADED,
                              kqft.EventKind.DELETED, kqft.EventKind.DISCONNECTED}, kinds)

    def test_what_fails_says_why(self):
        with self.client(bandwidth="8M") as client:
            def interrupt():
                while client.progress().moved == 0:
                    time.sleep(0.01)
                signal.raise_signal(signal.SIGINT)
            threading.Thread(target=interrupt).start()
            with self.assertRaises(KeyboardInterrupt):
                client.put(self.run, project="Interrupted")
            with self.assertRaises(kqft.Error) as caught:
                client.put(self.dir / "none")
            self.assertIn("none: no such file or directory (0)", str(caught.exception))
            with self.assertRaisesRegex(ZeroDivisionError, "mine"):  # also cancels
                def show(now):
                    if now.moved > 0:
                        raise ZeroDivisionError("mine")
                client.put(self.run, progress=show)
            with self.assertRaises(kqft.Error):
                client.put(self.run, rules=["- "])
            with self.assertRaises(TypeError):
                client.put(self.run, wholly=True)
            with self.assertRaises(ValueError):
                client.files("P\0")
        with kqft.Client("127.0.0.1", 1) as client:
            with self.assertRaises(ConnectionError) as caught:
                client.connect()
            self.assertEqual(caught.exception.code, kqft.Code.CLIENT_CONNECT)
        for options in ({"port": -1}, {"bandwidth": "fast"}):
            with self.assertRaises(kqft.Error) as caught:
                kqft.Client("127.0.0.1", **options)
            self.assertEqual(caught.exception.code, kqft.Code.ARGUMENT)
        with self.assertRaises(kqft.Error) as caught:
            kqft.Server(self.dir / "none")
        self.assertEqual(caught.exception.code, kqft.Code.DIRECTORY)

    def test_asyncio_waits_beside_others_and_cancels(self):
        async def both():
            seen = []
            place = ("127.0.0.1", self.server.port)
            async with kqft.aio.Client(*place, bind="127.0.0.7", bandwidth="1M") as slow, \
                    kqft.aio.Client(*place, bind="127.0.0.8") as quick:
                begun = asyncio.Event()
                task = asyncio.create_task(slow.put(
                    self.run, project="Slow", progress=lambda now: now.moved and begun.set()))
                await begun.wait()
                await quick.put(self.run, progress=seen.append)
                names = [file.name async for file in quick.files("Run7")]
                self.assertEqual(len(names), 2)
                self.assertFalse(task.done())
                task.cancel()
                with self.assertRaises(asyncio.CancelledError):
                    await task
                return seen
        self.assertTrue(asyncio.run(both()))

    def start_program(self):
        """A server that can be killed, and that costs nothing to end."""
        server = subprocess.Popen(
            [BUILD / "bin/kqft-server", "--dir", self.projects, "--port", "0", "--listen",
             "127.0.0.1", "--no-confine", "--no-durable", "--log-dir", self.dir],
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        self.addCleanup(server.stderr.close)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        return server, int(server.stderr.readline().split()[2].rsplit(":")[-1])

    def test_a_hundred_clients_at_once_and_many_one_after_the_other(self):
        _, port = self.start_program()
        failed = []

        def use(number):
            source = self.dir / f"P{number}"
            source.mkdir()
            (source / "data").write_bytes(bytes([number]) * 1000)
            try:
                with kqft.Client("127.0.0.1", port, bind=f"127.0.1.{number + 1}",
                                 turn=kqft.Turn.NONE) as client:
                    client.put(source)
            except kqft.Error as error:
                failed.append(error)

        threads = [threading.Thread(target=use, args=(number,)) for number in range(100)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failed, [])
        for number in range(100):
            self.assertEqual((self.projects / f"P{number}/data").read_bytes(),
                             bytes([number]) * 1000)

        def make(count):
            for _ in range(count):
                with self.client() as client:
                    self.assertEqual(client.progress().done, 0)

        make(200)
        before = resident()
        make(10000)
        self.assertLess(resident() - before, MIB)

    def test_a_killed_server_is_an_error_and_the_example_ends_equal(self):
        server, port = self.start_program()
        example = subprocess.run(
            [sys.executable, EXAMPLE, "127.0.0.1", str(port), self.run, self.into], check=True,
            env={**os.environ, "PYTHONPATH": str(ROOT / "bindings/python")},
            capture_output=True, text=True)
        self.assertEqual(example.stderr, "")
        self.assert_same_trees(self.run, self.into / "Demo")

        def kill(now):
            if now.moved > 0:
                server.kill()

        with kqft.Client("127.0.0.1", port, bandwidth="4M") as client:
            with self.assertRaises(kqft.Error) as caught:
                client.put(self.run, project="Cut", retries=-1, progress=kill)
            self.assertFalse(all(item.done for item in caught.exception.result.items))
            with self.assertRaises(kqft.NotConnectedError):
                client.put(self.run, project="Cut", retries=-1)


if __name__ == "__main__":
    warnings.simplefilter("error")
    unittest.main()
