#!/usr/bin/env python3
"""report.py RAW.tsv [--sizes FILE]: the tables of bench/run.sh, in Markdown, on standard output.

RAW.tsv has one run a line: case, size, program (xpath or floor), repetition, wall seconds,
peak RSS in KiB, exit status, CPU seconds. --sizes names a file of "size bytes" lines (the
sizes of the data files) for the growth table. Runs that failed are counted, not averaged.
"""

import argparse
import statistics
from collections import defaultdict

LIMIT = 1.2  # targets: within 1.2x of the floor; time per byte growing by at most 1.2x


def summary(runs):
    """(median, min) of wall time, CPU time and peak RSS over the runs."""
    col = lambda i: [r[i] for r in runs]
    return {k: (statistics.median(col(i)), min(col(i))) for i, k in enumerate(("t", "cpu", "rss"))}


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("raw")
    ap.add_argument("--sizes")
    args = ap.parse_args()

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
    nbytes = {}
    if args.sizes:
        with open(args.sizes) as f:
            nbytes = {label: int(n) for label, n in (line.split() for line in f if line.strip())}

    out = ["| case | size | xpath time med / min | floor time med / min | time ratio med / min "
           "| CPU ratio med / min | xpath RSS med / min | floor RSS med / min | RSS ratio med "
           "| within 1.2x |",
           "|---|---|---|---|---|---|---|---|---|---|"]
    stats, misses = {}, []
    for case, size in order:
        x, fl = runs.get((case, size, "xpath")), runs.get((case, size, "floor"))
        if not x or not fl:
            out.append(f"| {case} | {size} | no successful run of {'xpath' if not x else 'the floor'} "
                       "| | | | | | | no |")
            misses.append(f"{case} {size}: runs failed")
            continue
        x, fl = summary(x), summary(fl)
        stats[(case, size)] = (x, fl)
        ratio = {k: (x[k][0] / fl[k][0], x[k][1] / fl[k][1]) for k in x}
        bad = [name for k, name in (("t", "time"), ("rss", "RSS")) if ratio[k][0] > LIMIT]
        misses += [f"{case} {size}: {name} {ratio[k][0]:.2f}x"
                   for k, name in (("t", "time"), ("rss", "peak RSS")) if ratio[k][0] > LIMIT]
        out.append(
            f"| {case} | {size} | {x['t'][0]:.3f} / {x['t'][1]:.3f} s | {fl['t'][0]:.3f} / {fl['t'][1]:.3f} s "
            f"| {ratio['t'][0]:.2f} / {ratio['t'][1]:.2f} | {ratio['cpu'][0]:.2f} / {ratio['cpu'][1]:.2f} "
            f"| {x['rss'][0]:.1f} / {x['rss'][1]:.1f} MiB | {fl['rss'][0]:.1f} / {fl['rss'][1]:.1f} MiB "
            f"| {ratio['rss'][0]:.2f} | {'yes' if not bad else 'no: ' + ', '.join(bad)} |")
    for key, n in sorted(failed.items()):
        out.append(f"\nFailed runs (exit status not 0), left out above: {' / '.join(key)}: {n}")

    # Growth: the time at each larger size over the time at the smallest, beside the bytes ratio.
    growth = []
    cases = list(dict.fromkeys(case for case, _ in order))
    for case in cases:
        sizes = sorted((s for c, s in order if c == case and (c, s) in stats and s in nbytes),
                       key=lambda s: nbytes[s])
        for big in sizes[1:]:
            small = sizes[0]
            (xs, fs), (xb, fb) = stats[(case, small)], stats[(case, big)]
            br = nbytes[big] / nbytes[small]
            gx, gxmin, gf = xb["t"][0] / xs["t"][0], xb["t"][1] / xs["t"][1], fb["t"][0] / fs["t"][0]
            gcpu = xb["cpu"][0] / xs["cpu"][0]
            ok = gx <= LIMIT * br
            if not ok:
                misses.append(f"{case}: time grows {gx:.1f}x for {br:.1f}x the bytes")
            growth.append(f"| {case} | {small} → {big} | {br:.2f} | {gx:.2f} / {gxmin:.2f} | {gcpu:.2f} "
                          f"| {gf:.2f} | {gx / br:.2f} | {gf / br:.2f} | {'yes' if ok else 'no'} |")
    if growth:
        out += ["", "Growth with the size (t(big) / t(small)); per byte = growth / bytes ratio, 1.00 "
                "being exactly linear:", "",
                "| case | sizes | bytes ratio | xpath time growth med / min | xpath CPU growth med "
                "| floor time growth med | xpath per byte | floor per byte | linear (≤ 1.2) |",
                "|---|---|---|---|---|---|---|---|---|"] + growth
    out.append("")
    if misses:
        out.append(f"Targets missed (on medians): " + "; ".join(misses) + ".")
    else:
        out.append(f"All targets met (on medians): within {LIMIT}x of the floor, time per byte "
                   f"growing at most {LIMIT}x.")
    print("\n".join(out))


if __name__ == "__main__":
    main()
