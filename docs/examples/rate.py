# %% [markdown]
# # How fast is a transfer?
# Each cell runs by itself in an editor that knows `# %%`, the whole as
# `python3 rate.py HOST PORT DIR PICTURE.svg`. It needs `kqft` and nothing else.

# %% Send a project, and keep what it tells on its way.
import sys
import time

import kqft

host, port, directory, picture = sys.argv[1:]
samples = []  # seconds since the start, bytes that crossed the network


def sample(now):
    samples.append((time.monotonic() - start, now.moved))


with kqft.Client(host, int(port)) as client:
    start = time.monotonic()
    sent = client.put(directory, progress=sample)
print(f"{len(sent.items)} files, {sent.moved:,} bytes in {sent.seconds:.1f} s")

# %% MiB a second over windows of a fiftieth of the time.
MIB = 1 << 20
end, windows = samples[-1][0], 50
moved_at = [0]
for window in range(1, windows + 1):
    before = [moved for seconds, moved in samples if seconds <= end * window / windows]
    moved_at.append(max(before, default=0))
rates = [(b - a) / MIB / (end / windows) for a, b in zip(moved_at, moved_at[1:])]

# %% Draw it.
WIDTH, HEIGHT, LEFT, BOTTOM, TOP = 720, 300, 60, 40, 20
top = max(rates) * 1.1 or 1


def place(index, rate):
    x = LEFT + (WIDTH - LEFT - 20) * index / windows
    return x, HEIGHT - BOTTOM - (HEIGHT - BOTTOM - TOP) * rate / top


line = " ".join(f"{x:.1f},{y:.1f}" for x, y in (place(i + 0.5, r) for i, r in enumerate(rates)))
parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
         'font-family="sans-serif" font-size="12"><rect width="100%" height="100%" fill="white"/>']
for step in range(5):
    _, y = place(0, top * step / 4)
    parts.append(f'<path d="M{LEFT} {y:.1f}H{WIDTH - 20}" stroke="#ddd"/>'
                 f'<text x="{LEFT - 8}" y="{y + 4:.1f}" text-anchor="end">{top * step / 4:.0f}</text>')
    x, _ = place(windows * step / 4, 0)
    parts.append(f'<text x="{x:.1f}" y="{HEIGHT - 20}" text-anchor="middle">'
                 f'{end * step / 4:.1f}</text>')
parts.append(f'<polyline points="{line}" fill="none" stroke="#1f6fb2" stroke-width="2"/>'
             f'<text x="{WIDTH / 2}" y="{HEIGHT - 4}" text-anchor="middle">seconds</text>'
             f'<text x="8" y="14">MiB/s</text></svg>')
with open(picture, "w", encoding="utf-8") as file:
    file.write("\n".join(parts) + "\n")
