#!/usr/bin/env python3
"""report.py RAW.tsv [--sizes FILE] [--percall FILE] [--targets "10MB 100MB"]: the tables of
bench/run.sh, in Markdown, on standard output.

RAW.tsv has one run a line: case, size, program (xpath, floor, xmllint or xmlstarlet),
repetition, wall seconds, peak RSS in KiB, exit status, CPU seconds. --sizes names a file
of "shape size bytes" lines (the sizes of the data files; a case's shape is its name up to
the first ':') for the growth table. --percall names the per-call file of run.sh: lines
"time, program, repetition, seconds, calls" and "instructions, program, counter, count".
Runs that failed are counted, not averaged. The targets are checked at the --targets sizes.
"""

import argparse
import statistics
from collections import defaultdict

FLOOR_LIMIT = 1.0  # xpath's median time and peak RSS over the floor's, at most
PEER_LIMIT = 1.0  # xpath's median time (and, for reads, peak RSS) over the best peer's, at most
LINEAR_LIMIT = 1.2  # time per byte growing by at most this much from one size to the next
PEERS = ("xmllint", "xmlstarlet")
PROGRAMS = ("xpath", "floor") + PEERS


def summary(runs):
    """(median, min) of wall time, CPU time and peak RSS (MiB) over the runs."""
    col = lambda i: [r[i] for r in runs]
    return {k: (statistics.median(col(i)), min(col(i))) for i, k in enumerate(("t", "cpu", "rss"))}


def pair(a, b, unit=""):
    return f"{a:.3f} / {b:.3f}{unit}"


def best(stats, programs, key):
    """The program of the lowest median for key, or None."""
    there = [p for p in programs if p in stats]
    return min(there, key=lambda p: stats[p][key][0]) if there else None


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("raw")
    ap.add_argument("--sizes")
    ap.add_argument("--percall")
    ap.add_argument("--targets", default="10MB 100MB")
    args = ap.parse_args()
    targets = args.targets.split()

    runs = defaultdict(list)  # (case, size, prog) -> [(wall, cpu, rss)]
    failed = defaultdict(int)
    order = []  # (case, size) in the order run
    with open(args.raw) as f:
        for line in f:
            case, size, prog, _, t, rss, rc, cpu = line.rstrip("\n").split("\t")
            if (case, size) not in order:
                order.append((case, size))
            if rc != "0":
                failed[(case, size, prog)] += 1
            else:
                runs[(case, size, prog)].append((float(t), float(cpu), int(rss) / 1024))
    nbytes = {}  # (shape, size) -> bytes
    if args.sizes:
        with open(args.sizes) as f:
            for line in f:
                if line.strip():
                    shape, label, n = line.split()
                    nbytes[(shape, label)] = int(n)

    stats = {}  # (case, size) -> {prog: summary}
    for case, size in order:
        stats[(case, size)] = {p: summary(runs[(case, size, p)]) for p in PROGRAMS
                               if runs.get((case, size, p))}
    is_set = lambda case: ": set " in case
    misses = []

    time_rows, rss_rows = [], []
    for case, size in order:
        s = stats[(case, size)]
        x = s.get("xpath")
        cells = [f"{pair(*s[p]['t'])}" if p in s else ("—" if p == "xmllint" and is_set(case) else "failed")
                 for p in PROGRAMS]
        rss_cells = [f"{s[p]['rss'][0]:.1f}" if p in s else ("—" if p == "xmllint" and is_set(case) else "failed")
                     for p in PROGRAMS]
        peer_t, peer_m = best(s, PEERS, "t"), best(s, PEERS, "rss")
        fl = s.get("floor")
        if x and fl:
            rf = {k: (x[k][0] / fl[k][0], x[k][1] / fl[k][1]) for k in x}
        if x and peer_t:
            rp = {k: (x[k][0] / s[peer_t][k][0], x[k][1] / s[peer_t][k][1]) for k in ("t", "cpu")}
        time_rows.append(
            f"| {case} | {size} | " + " | ".join(cells) + " | "
            + (f"{rf['t'][0]:.2f} / {rf['t'][1]:.2f}" if x and fl else "") + " | "
            + (f"{rp['t'][0]:.2f} / {rp['t'][1]:.2f} ({peer_t})" if x and peer_t else "") + " | "
            + (f"{rf['cpu'][0]:.2f}" if x and fl else "") + " / "
            + (f"{rp['cpu'][0]:.2f}" if x and peer_t else "") + " |")
        rss_rows.append(
            f"| {case} | {size} | " + " | ".join(rss_cells) + " | "
            + (f"{x['rss'][0] / fl['rss'][0]:.2f}" if x and fl else "") + " | "
            + (f"{x['rss'][0] / s[peer_m]['rss'][0]:.2f} ({peer_m})" if x and peer_m else "") + " |")
        if size not in targets:
            continue
        if not x or not fl:
            misses.append(f"{case} {size}: no successful run of xpath or the floor")
            continue
        if rf["t"][0] > FLOOR_LIMIT:
            misses.append(f"{case} {size}: time {rf['t'][0]:.3f}x the floor (min {rf['t'][1]:.3f}x)")
        if rf["rss"][0] > FLOOR_LIMIT:
            misses.append(f"{case} {size}: peak RSS {rf['rss'][0]:.3f}x the floor")
        if peer_t and rp["t"][0] > PEER_LIMIT:
            misses.append(f"{case} {size}: time {rp['t'][0]:.3f}x {peer_t} (min {rp['t'][1]:.3f}x)")
        if peer_m and not is_set(case) and x["rss"][0] > PEER_LIMIT * s[peer_m]["rss"][0]:
            misses.append(f"{case} {size}: peak RSS {x['rss'][0] / s[peer_m]['rss'][0]:.3f}x {peer_m}")

    head = "| case | size | " + " | ".join(PROGRAMS)
    out = ["Wall time in seconds, median / minimum. *÷ floor*, *÷ best peer*: xpath's time over the "
           "other's, median / minimum (the best peer: the one of the lower median). *CPU*: the same "
           "for user + system CPU seconds, medians.", "",
           head + " | ÷ floor | ÷ best peer | CPU ÷ floor / ÷ best peer |",
           "|---|---|" + "---|" * len(PROGRAMS) + "---|---|---|"] + time_rows
    out += ["", "Peak RSS in MiB (medians; it can't read below the measuring wrapper's own size, "
            "about 13 MiB). *÷ best peer*: over the peer of the least memory.", "",
            head + " | ÷ floor | ÷ best peer |",
            "|---|---|" + "---|" * len(PROGRAMS) + "---|---|"] + rss_rows
    for key, n in sorted(failed.items()):
        out.append(f"\nFailed runs (exit status not 0), left out above: {' / '.join(key)}: {n}")

    # Growth: the time at each size over the time at the size before, beside the bytes ratio.
    growth = []
    cases = list(dict.fromkeys(case for case, _ in order))
    for case in cases:
        shape = case.split(":")[0]
        sizes = sorted((s for c, s in order if c == case and (shape, s) in nbytes
                        and "xpath" in stats[(c, s)]), key=lambda s: nbytes[(shape, s)])
        for small, big in zip(sizes, sizes[1:]):
            a, b = stats[(case, small)], stats[(case, big)]
            br = nbytes[(shape, big)] / nbytes[(shape, small)]
            per = {p: b[p]["t"][0] / a[p]["t"][0] / br for p in PROGRAMS if p in a and p in b}
            gx = b["xpath"]["t"][0] / a["xpath"]["t"][0]
            ok = per["xpath"] <= LINEAR_LIMIT
            if not ok:
                misses.append(f"{case}: time grows {gx:.1f}x for {br:.1f}x the bytes ({small} → {big})")
            growth.append(f"| {case} | {small} → {big} | {br:.2f} | {gx:.2f} | "
                          + " | ".join(f"{per[p]:.2f}" if p in per else "—" for p in PROGRAMS)
                          + f" | {'yes' if ok else 'no'} |")
    if growth:
        out += ["", "Growth with the size: *xpath growth* = median time at the larger size over the "
                "smaller; *per byte* = growth / bytes ratio (1.00: exactly linear, below 1: the fixed "
                "costs weigh less), for each program.", "",
                "| case | sizes | bytes ratio | xpath growth | " + " | ".join(f"{p} per byte" for p in PROGRAMS)
                + f" | linear (xpath ≤ {LINEAR_LIMIT}) |",
                "|---|---|---|---|" + "---|" * len(PROGRAMS) + "---|"] + growth

    if args.percall:
        times, instr, counter = defaultdict(list), {}, ""
        with open(args.percall) as f:
            for line in f:
                fields = line.rstrip("\n").split("\t")
                if fields[0] == "time":
                    times[fields[1]].append(float(fields[3]) / int(fields[4]) * 1000)
                elif fields[0] == "instructions" and fields[3]:
                    instr[fields[1]], counter = int(fields[3]), fields[2]
        if times:
            base = statistics.median(times["true"]) if "true" in times else 0.0
            progs = [p for p in ("true",) + PROGRAMS if p in times]
            med = {p: statistics.median(times[p]) for p in progs}
            out += ["", f"Cost of one call (a read by @id on a 2 KB file), from loops of calls timed "
                    f"as a whole, 3 repetitions interleaved; *less /bin/true*: the loop's cost of "
                    f"starting any program taken off; instructions of one call by {counter or 'nothing'}.", "",
                    "| program | ms per call med / min | less /bin/true (med) | instructions per call "
                    "| xpath ÷ this (time, instructions) |", "|---|---|---|---|---|"]
            for p in progs:
                name = "/bin/true (baseline)" if p == "true" else p
                ins = f"{instr[p]:,}" if p in instr else "—"
                ratio = (f"{med['xpath'] / med[p]:.2f}" if "xpath" in med else "") + (
                    f", {instr['xpath'] / instr[p]:.2f}" if "xpath" in instr and p in instr else "")
                out.append(f"| {name} | {med[p]:.3f} / {min(times[p]):.3f} | {med[p] - base:.3f} | {ins} "
                           f"| {ratio if p != 'true' else ''} |")
            peers = [p for p in PEERS if p in med]
            if "xpath" in med and peers:
                top = min(peers, key=lambda p: med[p])
                if med["xpath"] > med[top]:
                    misses.append(f"cost of a call: {med['xpath']:.3f} ms, {med['xpath'] / med[top]:.2f}x "
                                  f"{top}'s {med[top]:.3f} ms")

    out.append("")
    sizes = " and ".join(targets)
    if misses:
        out.append(f"Targets missed (medians; at {sizes} for the ratios): " + "; ".join(misses) + ".")
    else:
        out.append(f"All targets met (medians): at {sizes}, time and peak RSS at most {FLOOR_LIMIT}x the "
                   f"floor's and the best peer's, time per byte growing at most {LINEAR_LIMIT}x, "
                   "a call no dearer than the best peer's.")
    print("\n".join(out))


if __name__ == "__main__":
    main()
