#!/usr/bin/env python3
"""judge.py FOLDER SOURCES REASONS GOAL: which lines of SOURCES ran, as the counters say that the programs built in FOLDER
left behind. Fails unless GOAL percent did, and REASONS names each other one, and none that ran.

Closing brackets alone are no line. REASONS holds reasons, each followed by its lines, indented, as "file: what stands in the
line". Lines of a file that read the same are one.
"""
import json
import os
import re
import subprocess
import sys
from collections import defaultdict


def counts_of(folder, sources):
    """The count of each line, by file: a line of a header has those of everyone who includes it."""
    notes = [os.path.join(path, file) for path, _, files in os.walk(folder) for file in files if file.endswith(".gcno")]
    if not notes:
        sys.exit(f"Nothing in {folder} counts lines.")
    counts = defaultdict(lambda: defaultdict(int))
    for note in notes:
        # What never ran has no counters: that is said on standard error, and all its lines are 0.
        told = subprocess.run(["gcov", "--json-format", "--stdout", note], check=True, capture_output=True).stdout
        report = json.loads(told)
        for file in report["files"]:
            path = os.path.join(report["current_working_directory"], file["file"])
            name = os.path.relpath(os.path.realpath(path), os.path.dirname(sources))
            if name.startswith(os.path.basename(sources) + os.sep):
                for line in file["lines"]:
                    counts[name][line["line_number"]] += line["count"]
    return counts


def read_reasons(file):
    reasons, reason, told = {}, None, []
    for number, line in enumerate(open(file, encoding="utf-8"), 1):
        if not line.strip():
            continue
        if not line[0].isspace():
            reason = line.strip()
            told.append(reason)
        elif reason is None or ": " not in line:
            sys.exit(f"{file}:{number}: not a reason, and not one's line: {line.strip()}")
        elif reasons.setdefault(line.strip(), reason) != reason:
            sys.exit(f"{file}:{number}: it has another reason above: {line.strip()}")
    for reason in told:
        if reason not in reasons.values():
            sys.exit(f"{file}: a reason for no line: {reason}")
    return reasons


def main(folder, sources, reasons_file, goal):
    sources = os.path.realpath(sources)
    counts = counts_of(folder, sources)
    reasons = read_reasons(reasons_file)
    missed = {}  # what stands there, as REASONS has it: where
    total = ran = 0
    for name, lines in sorted(counts.items()):
        texts = open(os.path.join(os.path.dirname(sources), name), encoding="utf-8").read().splitlines()
        for number, count in sorted(lines.items()):
            if re.fullmatch(r"[\]})(;, ]*", texts[number - 1]):
                del lines[number]  # what compilers add for exceptions
            elif count == 0:
                missed.setdefault(f"{name}: {texts[number - 1].strip()}", []).append(number)
        ran_here = sum(count > 0 for count in lines.values())
        if ran_here < len(lines):
            print(f"{100 * ran_here / len(lines):5.1f} %  {name}: {len(lines) - ran_here} of {len(lines)} lines did not run")
        total += len(lines)
        ran += ran_here

    failed = False
    without = {line: numbers for line, numbers in missed.items() if line not in reasons}
    if without:
        failed = True
        print("Without a reason did not run, by their numbers:")
        for line, numbers in without.items():
            print(f"  {', '.join(map(str, numbers))}\t{line}")
    unneeded = [line for line in reasons if line not in missed]
    if unneeded:
        failed = True
        print("These did run, or are no more, and need no reason:")
        for line in unneeded:
            print(f"    {line}")
    percent = 100 * ran / total
    if percent < float(goal):
        failed = True
        print(f"It should be {goal} %.")
    print(f"{percent:.2f} %: {ran} of {total} lines ran")
    return failed


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
