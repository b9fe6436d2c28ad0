"""Measures all rows and writes the page. Usage: run.py [--quick | --page] FOLDER; run.sh says what they are."""
import argparse
import json
import sys

import measure
import page
import rows

RUNS = 3
STORE = f"{rows.BUILD}/results.json"


def measure_all(quick):
    runs = 1 if quick else RUNS
    facts = page.facts(runs)
    results, failures = measure.measure(rows.rows(quick), runs)
    with open(STORE, "w", encoding="utf-8") as file:
        json.dump({"quick": quick, "facts": facts, "results": results}, file, indent=1)
    return failures


def write(folder):
    with open(STORE, encoding="utf-8") as file:
        stored = json.load(file)
    measured = rows.rows(stored["quick"])
    page.write_page(measured, stored, f"{folder}/BENCHMARKS.md")
    page.write_pictures(measured, stored["results"], f"{folder}/images")
    print(f"Written: {folder}/BENCHMARKS.md")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--page", action="store_true")
    parser.add_argument("folder")
    arguments = parser.parse_args()
    failures = [] if arguments.page else measure_all(arguments.quick)
    write(arguments.folder)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
