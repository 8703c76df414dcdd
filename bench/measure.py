#!/usr/bin/env python3
"""measure.py [--stdout FILE] -- COMMAND [ARG...]

Runs the command once with standard output sent to FILE (default /dev/null) and prints
"<wall seconds> <peak RSS in KiB> <exit status> <CPU seconds, user + system>" for it alone.
The wall clock starts right before
the process is spawned and stops when it has been waited for; the peak RSS is the one the
kernel reports for that child (wait4); the CPU time is less
disturbed than the wall time by other work on the machine. A command killed by a signal gives 128 + the signal.
"""

import os
import sys
import time


def main(argv):
    out = os.devnull
    if argv[:1] == ["--stdout"]:
        out, argv = argv[1], argv[2:]
    if argv[:1] == ["--"]:
        argv = argv[1:]
    if not argv:
        print(__doc__, file=sys.stderr)
        return 2
    actions = [(os.POSIX_SPAWN_OPEN, 1, out, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644)]
    start = time.perf_counter()
    pid = os.posix_spawnp(argv[0], argv, os.environ, file_actions=actions)
    _, status, usage = os.wait4(pid, 0)
    elapsed = time.perf_counter() - start
    code = os.waitstatus_to_exitcode(status)
    if code < 0:
        code = 128 - code
    cpu = usage.ru_utime + usage.ru_stime
    print(f"{elapsed:.4f} {usage.ru_maxrss} {code} {cpu:.4f}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
