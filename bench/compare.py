#!/usr/bin/env python3
"""Runs two builds of the tool on the same inputs and reports every difference in standard
output, standard error, exit status or the file left behind.

  compare.py OLD NEW read [-e EXPR]... [FILE...]   read mode; by default every *.xml under
                                                   /usr/share and a handful of expressions
  compare.py OLD NEW set CASE...                   set mode; a CASE is a file (or a directory of
                                                   files) holding path NUL value NUL document;
                                                   an empty document means no file at all

Exits 1 when anything differs, and prints the first differences.
"""
import hashlib
import os
import subprocess
import sys
import tempfile

EXPRESSIONS = ["/*", "/*/*", "//text()", "//@*|//comment()", "//namespace::*", "/", "//*[2]"]


def run(binary, args, cwd):
    p = subprocess.run([binary] + args, cwd=cwd, capture_output=True, timeout=600)
    return p.returncode, hashlib.sha1(p.stdout).hexdigest(), p.stderr


class Tally:
    """Counts runs and differences, and shows the first few differences."""

    def __init__(self):
        self.runs = self.differ = 0

    def check(self, what, a, b):
        self.runs += 1
        if a != b:
            self.differ += 1
            if self.differ <= 10:
                print(f"differs: {what}: status {a[0]} vs {b[0]}, stderr {a[2]!r} vs {b[2]!r}")


def read_mode(old, new, args):
    exprs, files = [], []
    it = iter(args)
    for a in it:
        if a == "-e":
            exprs.append(next(it))
        else:
            files.append(os.path.abspath(a))
    exprs = exprs or EXPRESSIONS
    if not files:
        files = sorted(os.path.join(d, f) for d, _, fs in os.walk("/usr/share") for f in fs
                       if f.endswith(".xml") and os.path.isfile(os.path.join(d, f)))
    tally = Tally()
    for f in files:
        for e in exprs:
            tally.check(f"{f} {e!r}", run(old, [f, e], "/"), run(new, [f, e], "/"))
    print(f"read: {len(files)} files x {len(exprs)} expressions = {tally.runs} runs, "
          f"{tally.differ} differing")
    return tally.differ


def cases(paths):
    for p in paths:
        if os.path.isdir(p):
            for f in sorted(os.listdir(p)):
                yield os.path.join(p, f)
        else:
            yield p


def set_run(binary, work, doc, path, value):
    target = os.path.join(work, "f.xml")
    if os.path.exists(target):
        os.remove(target)
    if doc:
        with open(target, "wb") as out:
            out.write(doc)
    status, out, err = run(binary, ["f.xml", path, value], work)
    saved = open(target, "rb").read() if os.path.exists(target) else None
    return status, out, err, saved


def set_mode(old, new, args):
    tally, skipped = Tally(), 0
    with tempfile.TemporaryDirectory() as work:
        for case in cases(args):
            fields = open(case, "rb").read().split(b"\0", 2)
            if len(fields) != 3 or not fields[0]:
                skipped += 1
                continue
            path, value, doc = fields
            path, value = os.fsdecode(path), os.fsdecode(value)
            tally.check(case, set_run(old, work, doc, path, value),
                        set_run(new, work, doc, path, value))
    print(f"set: {tally.runs} cases ({skipped} skipped), {tally.differ} differing")
    return tally.differ


def main():
    if len(sys.argv) < 4 or sys.argv[3] not in ("read", "set"):
        sys.exit(__doc__)
    old, new, mode = sys.argv[1:4]
    differ = (read_mode if mode == "read" else set_mode)(old, new, sys.argv[4:])
    sys.exit(1 if differ else 0)


if __name__ == "__main__":
    main()
