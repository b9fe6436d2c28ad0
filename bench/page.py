"""Makes the page of the benchmarks from its template, and the data of its pictures."""
import datetime
import math
import os
import platform
import re
import shutil
import subprocess
import textwrap

from cases import median
from rows import BUILD, ITSELF

PACKAGES = "g++ libbenchmark-dev libspdlog-dev nlohmann-json3-dev libinih-dev libcxxopts-dev libcli11-dev libboost-dev"

WRAP = {"subsequent_indent": "  ", "break_long_words": False, "break_on_hyphens": False}


def output(*command):
    """Nothing where there is no such command."""
    if not shutil.which(command[0]):
        return ""
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout.strip()


def number(value):
    """With three digits that count."""
    if value == 0 or not math.isfinite(value):
        return "0"
    digits = 2 - math.floor(math.log10(abs(value)))
    return f"{round(value, digits):,.{max(digits, 0)}f}"


def spread(values):
    """The median and the range."""
    if not values:
        return "left out"
    text = number(median(values))
    return text if len(values) == 1 else f"{text} ({number(min(values))} to {number(max(values))})"


def verdict(wanted, value):
    if wanted is None or value is None:
        return "", ""
    return wanted.text, "yes" if wanted.holds(value) else "**no**"


def ratio(ours, theirs):
    return median(ours) / median(theirs) if ours and theirs and median(theirs) != 0 else None


def lines_of(case, results):
    """The case's lines of the table, each a list of cells: its own figure, a line per further wish, a line per peer."""
    ours = case.ours.values(results)
    lines = [["", "", "", *verdict(wanted, ours or None)] for wanted in case.wanted]
    for peer in case.peers:
        theirs = peer.figure.values(results)
        value = ratio(ours, theirs)
        lines.append([peer.name, spread(theirs), "" if value is None else number(value), *verdict(peer.wanted, value)])
    # A peer takes the place of a wish's line that has none.
    if case.wanted and case.peers and not lines[-1][3]:
        lines[0][:3] = lines.pop()[:3]
    lines = lines or [[""] * 5]
    return [[case.name, spread(ours), *lines[0]]] + [["", "", *line] for line in lines[1:]]


def table(row, results):
    head = ["Work", "libOxuTool", "Peer", "Its figure", "Ratio", "Wanted", "Met"]
    lines = [line for case in row.cases for line in lines_of(case, results)]
    # Columns that the row has no use for.
    kept = [column for column in range(len(head)) if column < 2 or any(line[column] for line in lines)]
    rule = [["---", "---:", "---", "---:", "---:", "---", "---"][column] for column in kept]
    cells = [[line[column] for column in kept] for line in [head, *lines]]
    return "\n".join("| " + " | ".join(line) + " |" for line in [cells[0], rule, *cells[1:]])


def commands(row):
    figures = [figure for case in row.cases for figure in (case.ours, *(peer.figure for peer in case.peers))]
    each = dict.fromkeys(figure.command for figure in figures)
    lines = "\n".join(" \\\n".join(textwrap.wrap(command, 116, **WRAP)) for command in each)
    return f"<details><summary>Commands</summary>\n\n```\n{lines}\n```\n\n</details>"


def processor_name():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        text = file.read()
    name = re.search(r"^model name\s*: (.*)", text, re.MULTILINE)
    return f"{len(os.sched_getaffinity(0))} x {name.group(1) if name else platform.machine()}" + \
        " in a virtual machine" * (" hypervisor " in text)


def facts(runs):
    """What the figures depend on, as pairs of a name and a text. To be asked for before the run."""
    memory = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") / (1 << 30)
    versions = output("dpkg-query", "-W", "-f", "${Package} ${Version}\\n", *PACKAGES.split()).splitlines()
    system = re.search(r'^PRETTY_NAME="(.*)"', output("cat", "/etc/os-release"), re.MULTILINE)
    return [
        ("Commit", output("git", "describe", "--always", "--dirty")),
        ("Date", datetime.date.today().isoformat()),
        ("Machine", f"{processor_name()}, {memory:.0f} GiB"),
        ("Load before the run", f"{os.getloadavg()[0]:.2f}"),
        ("System", f"{system.group(1) if system else 'unknown'}, Linux {platform.release()}"),
        ("Versions", ", ".join(versions)),
        ("Runs", str(runs)),
    ]


def facts_table(stored):
    warning = ["**A quick run, to see that everything works: its figures say nothing.**", ""] if stored["quick"] else []
    return "\n".join([*warning, "| | |", "|---|---|", *(f"| {name} | {value} |" for name, value in stored["facts"])])


def write_page(rows, stored, page):
    with open("bench/page.md.in", encoding="utf-8") as template:
        text = template.read()
    parts = {row.name: f"{table(row, stored['results'])}\n\n{commands(row)}" for row in rows}
    parts["machine"] = facts_table(stored)
    os.makedirs(os.path.dirname(page), exist_ok=True)
    for name, part in parts.items():
        text = text.replace(f"@{name}@", part)
    with open(page, "w", encoding="utf-8") as file:
        file.write(text)


def write_bars(rows, results, folder):
    """A line per bar: its number from the top, how many times the peer's speed, the label. Returns how many."""
    bars = []
    for case in [case for row in rows for case in row.cases if case.bar]:
        for peer in case.peers:
            value = ratio(case.ours.values(results), peer.figure.values(results))
            if value and peer.name != ITSELF:
                speed = value if case.more_is_better else 1 / value
                bars.append(f'{len(bars)} {speed} "{case.bar} – {peer.name}"')
    with open(f"{folder}/ratios.dat", "w", encoding="utf-8") as file:
        file.write("\n".join(bars) + "\n")
    return len(bars)


def write_latencies(row, results, folder):
    """A file per logger and number of producers, with lines of nines and microseconds."""
    for case in [case for case in row.cases if "records per second" in case.name]:
        count = case.name.split()[0]
        for name, figure in [("oxu", case.ours), *(("spdlog", peer.figure) for peer in case.peers)]:
            runs = results[figure.command]
            names = [key for key in (runs[0] if runs else {}) if key.startswith("nines_")]
            with open(f"{folder}/latency-{name}-{count}.dat", "w", encoding="utf-8") as file:
                for key in names:
                    file.write(f"{key[6:]} {median([run[key] for run in runs])}\n")


def write_launches(row, results, folder):
    """A line per size of the host: MiB, and for each way the median, the least and the most milliseconds."""
    with open(f"{folder}/launch.dat", "w", encoding="utf-8") as file:
        for case in row.cases:
            size = re.search(r"MiB:(\d+)", case.ours.command).group(1)
            figures = [case.ours, *(peer.figure for peer in case.peers[-2:])]
            values = [[value / 1000 for value in figure.values(results)] for figure in figures]
            if all(values):
                numbers = [function(value) for value in values for function in (median, min, max)]
                file.write(" ".join(map(str, [size, *numbers])) + "\n")


def write_pictures(rows, results, images):
    folder = f"{BUILD}/pictures"
    os.makedirs(folder, exist_ok=True)
    os.makedirs(images, exist_ok=True)
    row = {row.name: row for row in rows}
    bars = write_bars(rows, results, folder)
    write_latencies(row["producers"], results, folder)
    write_launches(row["launch"], results, folder)
    settings = f"bars={bars}; data='{folder}'; images='{images}'"
    subprocess.run(["gnuplot", "-e", settings, "bench/pictures.gp"], check=True)
