"""Running programs, timed."""

import contextlib
import os
import statistics
import subprocess
import time


class CannotMeasure(Exception):
    """A side of a comparison did not do its work; its text says which and how."""


def run(arguments, **options):
    """Runs a program that must succeed; returns its standard output as text."""
    done = subprocess.run(arguments, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, errors="replace", **options)
    if done.returncode != 0:
        raise CannotMeasure(f"{' '.join(arguments)} ended with status {done.returncode}: "
                            f"{done.stderr.strip() or done.stdout.strip()}")
    return done.stdout


def time_of(arguments, output=None):
    """Nanoseconds from the start of a program that must succeed to its end.

    Its standard output goes to the file `output`; nobody reads along.
    """
    with open(output or os.devnull, "wb") as sink:
        began = time.perf_counter_ns()
        done = subprocess.run(arguments, stdin=subprocess.DEVNULL, stdout=sink,
                              stderr=subprocess.PIPE)
        took = time.perf_counter_ns() - began
    if done.returncode != 0:
        raise CannotMeasure(f"{' '.join(arguments)} ended with status {done.returncode}: "
                            f"{done.stderr.decode(errors='replace').strip()}")
    return took


def peak_of(arguments):
    """KiB that a program that must succeed holds at most.

    Read again and again while it runs: what wait4(2) tells counts the process before it was this
    program, too.
    """
    process = subprocess.Popen(arguments, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    peak = 0
    program = os.path.realpath(arguments[0])
    while process.poll() is None:
        with contextlib.suppress(OSError):
            if os.readlink(f"/proc/{process.pid}/exe") == program:
                peak = max(peak, memory_of(process.pid, "VmHWM"))
    if process.returncode != 0 or peak == 0:
        raise CannotMeasure(f"{' '.join(arguments)} ended with status {process.returncode}")
    return peak


def memory_of(process, field):
    """A field of a process's status, in KiB; 0 when it has none any more."""
    with open(f"/proc/{process}/status", encoding="ascii", errors="replace") as status:
        return next((int(line.split()[1]) for line in status if line.startswith(field + ":")), 0)


def median(samples):
    return statistics.median(samples)


def percentile(samples, number):
    """The sample below which `number` percent of them are, or the nearest; from 1 to 99."""
    return statistics.quantiles(samples, n=100, method="inclusive")[number - 1]


def stop(process, patience=10):
    """Ends a program that we started, by its own process."""
    if process.poll() is None:
        process.terminate()
    try:
        return process.wait(patience)
    except subprocess.TimeoutExpired:
        process.kill()
        return process.wait()
