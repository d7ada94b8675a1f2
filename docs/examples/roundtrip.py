"""roundtrip.py HOST PORT DIR INTO: sends DIR as the project Demo, with a break, has
both sides compared, and fetches it into the directory INTO."""
import sys

import kqft

host, port, directory, into = sys.argv[1:]
interrupted = False

with kqft.Client(host, int(port)) as client:

    def show(now):
        global interrupted
        print(f"\r{now.done} of {now.total}", end="")
        if not interrupted and now.moved > 0:
            interrupted = True
            client.cancel()

    try:
        client.put(directory, project="Demo", progress=show)
    except kqft.CancelledError:
        client.put(directory, project="Demo", progress=show)  # goes on with what is missing
    client.verify("Demo", directory)
    client.get("Demo", into)
