"""Runs clang-tidy over the compile commands of a build, beside each other;
tools/lint.sh says how."""

import concurrent.futures
import functools
import hashlib
import json
import os
import pathlib
import subprocess
import sys

TIDY, BUILD = sys.argv[1], pathlib.Path(sys.argv[2]).resolve()
ROOT = pathlib.Path.cwd().resolve()
CLEAN = BUILD / "lint"  # an empty file for each clean state


@functools.cache
def hash_of(path):
    try:
        return hashlib.sha256(path.read_bytes()).digest()
    except OSError:
        return b"none"


def files_of_objects():
    """Object file -> our files that it was made from, by the last build."""
    found = {}
    text = subprocess.run(["ninja", "-C", BUILD, "-t", "deps"], capture_output=True, text=True,
                          check=True).stdout
    for block in text.split("\n\n"):
        head, *paths = block.split("\n")
        files = {pathlib.Path(os.path.normpath(BUILD / path.strip())) for path in paths}
        found[head.split(":")[0]] = sorted(
            file for file in files if ROOT in file.parents and BUILD not in file.parents)
    return found


def state_of(command, files):
    state = hashlib.sha256()
    for text in (TIDY, command["command"]):
        state.update(text.encode())
    source = pathlib.Path(command["file"])
    rules = [folder / ".clang-tidy" for folder in reversed(source.parents)]
    for path in (*filter(pathlib.Path.exists, rules), source, *files):
        state.update(hash_of(path))
    return CLEAN / state.hexdigest()


def lint(path):
    # Sources that are compiled together are headers to the analyzer.
    result = subprocess.run([TIDY, "-p", BUILD, "--quiet", "--extra-arg=-Xclang",
                             "--extra-arg=-analyzer-opt-analyze-headers", path],
                            capture_output=True, text=True)
    return result.returncode == 0, result.stdout or result.stderr


def main():
    CLEAN.mkdir(exist_ok=True)
    files = files_of_objects()
    commands = json.loads((BUILD / "compile_commands.json").read_text())
    states = {}
    for command in commands:
        made = command.get("output") or command["command"].split(" -o ")[1].split()[0]
        if command["file"].endswith((".cpp", "_cxx.cxx")):
            states[command["file"]] = state_of(command, files.get(made, []))
    for old in set(CLEAN.iterdir()) - set(states.values()):
        old.unlink()
    wanted = [path for path, state in states.items() if not state.exists()]
    print(f"linting {len(wanted)} of {len(states)} files", flush=True)
    clean = True
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for path, (good, findings) in zip(wanted, pool.map(lint, wanted)):
            clean = clean and good
            if good:
                states[path].touch()
            else:
                print(findings, flush=True)
    return 0 if clean else 1


sys.exit(main())
