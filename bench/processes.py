"""Running programs, timed."""

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


def median(samples):
    return statistics.median(samples)


def stop(process, patience=10):
    """Ends a program that we started, by its own process."""
    if process.poll() is None:
        process.terminate()
    try:
        return process.wait(patience)
    except subprocess.TimeoutExpired:
        process.kill()
        return process.wait()
