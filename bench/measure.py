"""Runs the rows' commands, three times each, and stores what they print: a dictionary from command to a list of runs.

A run is a dictionary from the names of figures to numbers. It has what a driver prints as lines of a name and a number,
or, of Google Benchmark, "real_time_ns", "cpu_time_ns" and the counters; and always "processor_seconds", which the command
used. A command whose peer is not installed has no runs.
"""
import json
import re
import resource
import shlex
import subprocess
import sys
import time

NO_PEER = 3
TIMEOUT_SECONDS = 120
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


class Failed(Exception):
    """Of a command that should have worked."""


def google_figures(text):
    """None where no benchmark has the name, as with a peer that was not there when it was built."""
    if not text.startswith("{"):
        return None
    result = json.loads(text)["benchmarks"][0]
    if result.get("error_occurred"):
        raise Failed(result["error_message"])
    figures = {name: value for name, value in result.items() if isinstance(value, float)}
    for name in ("real_time", "cpu_time"):
        figures[f"{name}_ns"] = result[name] * NANOSECONDS[result["time_unit"]]
    return figures


def figures_of(command):
    """Runs it; None where its peer is not there."""
    def processor_seconds():
        usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        return usage.ru_utime + usage.ru_stime
    before = processor_seconds()
    done = subprocess.run(shlex.split(command), stdin=subprocess.DEVNULL, capture_output=True, text=True,
                          errors="replace", timeout=TIMEOUT_SECONDS, check=False)
    used = processor_seconds() - before
    if done.returncode == NO_PEER:
        return None
    if done.returncode != 0:
        raise Failed(f"status {done.returncode}: {done.stderr[-500:]}")
    if "--benchmark_" in command:
        figures = google_figures(done.stdout)
    else:
        lines = re.findall(r"^(\w[\w.]*) (-?\d+(?:\.\d+)?)$", done.stdout + done.stderr, re.MULTILINE)
        figures = {name: float(value) for name, value in lines}
    return None if figures is None else {**figures, "processor_seconds": used}


def commands_of(row):
    """In the order of the cases, each once."""
    figures = [figure for case in row.cases for figure in (case.ours, *(peer.figure for peer in case.peers))]
    return list(dict.fromkeys(figure.command for figure in figures))


def measure(rows, runs):
    """Prints a line for each row. Ours and the peers take turns, so that other load on the machine meets them all."""
    results = {}
    failures = []
    for number, row in enumerate(rows, 1):
        begin = time.monotonic()
        for _ in range(runs):
            for command in commands_of(row):
                values = results.setdefault(command, [])
                try:
                    figures = figures_of(command)
                except (Failed, subprocess.TimeoutExpired, OSError) as error:
                    failures.append(f"{command}: {error}")
                    figures = None
                if figures is not None:
                    values.append(figures)
        missing = {peer.name for case in row.cases for peer in case.peers if not peer.figure.values(results)}
        left_out = f", left out: {', '.join(sorted(missing))}" if missing else ""
        print(f"[{number}/{len(rows)}] {row.title}: {time.monotonic() - begin:.0f} s{left_out}", flush=True)
    for failure in failures:
        print(f"FAILED {failure}", file=sys.stderr)
    return results, failures
