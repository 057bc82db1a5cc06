"""Runs a command; prints its seconds, its processor seconds and its peak resident KiB.

All three include the command's children, as far as they were waited for; the peak is that of the
largest one. The command's own output goes to standard error.
"""

import resource
import subprocess
import sys
import time

start = time.monotonic()
subprocess.run(sys.argv[1:], check=True, stdout=sys.stderr)
seconds = time.monotonic() - start
usage = resource.getrusage(resource.RUSAGE_CHILDREN)
print(f"{seconds:.2f} {usage.ru_utime + usage.ru_stime:.2f} {usage.ru_maxrss}")
