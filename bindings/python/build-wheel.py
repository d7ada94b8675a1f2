#!/usr/bin/env python3
"""Makes a wheel of the package with the libraries inside; needs nothing else.

  bindings/python/build-wheel.py LIBRARIES OUT

LIBRARIES: a directory that has them somewhere below it, as a rule an installed
tree, of Linux or of Windows. OUT: where the wheel goes. Prints its path.
"""
import base64
import hashlib
import pathlib
import re
import sys
import zipfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
LINUX = ("libkqft.so.1", "libKQFileTransService.so.1")
WINDOWS = ("libkqft.dll", "KQFileTransService.dll")
MACHINES = {0x3e: "x86_64", 0xb7: "aarch64"}  # of an ELF header


def version():
    text = (ROOT / "bindings/c/kqft/codes.h").read_text(encoding="utf-8")
    return ".".join(re.findall(r"#define KQFT_VERSION_[A-Z]+ (\d+)", text))


def find(directory):
    """The libraries, and the tag of the machine that they are for."""
    for names in (LINUX, WINDOWS):
        found = [next(directory.rglob(name), None) for name in names]
        if all(found):
            files = {name: path.read_bytes() for name, path in zip(names, found)}
            if names is WINDOWS:
                return files, "win_amd64"
            machine = int.from_bytes(files[names[0]][18:20], "little")
            return files, f"linux_{MACHINES[machine]}"
    sys.exit(f"there are no libraries in {directory}")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    libraries, machine = find(pathlib.Path(sys.argv[1]))
    number, tag = version(), f"py3-none-{machine}"
    info = f"kqft-{number}.dist-info"
    files = {f"kqft/{path.name}": path.read_bytes()
             for path in sorted((HERE / "kqft").iterdir()) if path.suffix in (".py", ".typed")}
    files |= {f"kqft/{name}": content for name, content in libraries.items()}
    files[f"{info}/LICENSE"] = (ROOT / "LICENSE").read_bytes()
    files[f"{info}/METADATA"] = (
        f"Metadata-Version: 2.1\nName: kqft\nVersion: {number}\n"
        "Summary: Moves measurement projects between workstations and a data server\n"
        "License: Apache-2.0\nRequires-Python: >=3.8\n").encode()
    files[f"{info}/WHEEL"] = (
        f"Wheel-Version: 1.0\nGenerator: build-wheel\nRoot-Is-Purelib: false\nTag: {tag}\n").encode()
    record = []
    out = pathlib.Path(sys.argv[2]) / f"kqft-{number}-{tag}.whl"
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as wheel:
        def add(name, content):
            entry = zipfile.ZipInfo(name, (1980, 1, 1, 0, 0, 0))  # the same bytes each time
            entry.external_attr = 0o644 << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            wheel.writestr(entry, content)

        for name, content in files.items():
            digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=")
            record.append(f"{name},sha256={digest.decode()},{len(content)}\n")
            add(name, content)
        add(f"{info}/RECORD", "".join(record) + f"{info}/RECORD,,\n")
    print(out)


main()
