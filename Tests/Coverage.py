#!/usr/bin/env python3
"""Prints how many lines and branches of the sources the tests have run, by folder, after the tests of the preset linux-coverage.

    Tests/Coverage.py build/linux-coverage [FOLDER...]      with FOLDERs also the lines and branches in them that never ran

The compiler's own branches, for exceptions and in code that cannot be reached, are left out.
"""
import collections
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ["QuendraHttp", "Libraries", "Eventing", "Platform", "Client", "Appliance"]


def count(build):
    command = ["gcovr", "--root", ROOT, "--object-directory", build, "-j", str(os.cpu_count()), "--exclude-unreachable-branches",
               "--gcov-ignore-parse-errors", "--filter", f"({'|'.join(FOLDERS)}|Includes)/", "--json", "-", build]
    return json.loads(subprocess.run(command, check=True, capture_output=True, text=True).stdout)["files"]


def main():
    files = count(pathlib.Path(sys.argv[1]).resolve())
    totals = collections.defaultdict(lambda: [0, 0, 0, 0])
    for file in files:
        folder = file["file"].split("/")[0]
        lines = [line for line in file["lines"] if not line["gcovr/noncode"]]
        for line in lines:
            line["branches"] = [branch for branch in line["branches"] if not branch["throw"]]
        branches = [branch["count"] > 0 for line in lines for branch in line["branches"]]
        numbers = [sum(line["count"] > 0 for line in lines), len(lines), sum(branches), len(branches)]
        totals[folder] = [total + number for total, number in zip(totals[folder], numbers)]
        if folder in sys.argv[2:] or file["file"] in sys.argv[2:]:
            for line in lines:
                missed = sum(branch["count"] == 0 for branch in line["branches"])
                if line["count"] == 0 or missed:
                    what = "never" if line["count"] == 0 else f"{missed} of {len(line['branches'])} branches"
                    text = (ROOT / file["file"]).read_text(encoding="utf-8").splitlines()[line["line_number"] - 1].strip()
                    print(f"{file['file']}:{line['line_number']}: {what}: {text}")
    print(f"{'folder':12} {'lines':>13} {'branches':>16}")
    for folder in sorted(totals, key=(FOLDERS + ["Includes"]).index):
        run, lines, taken, branches = totals[folder]
        print(f"{folder:12} {100 * run / lines:5.1f} % of {lines:5} {100 * taken / max(branches, 1):5.1f} % of {branches:5}")


main()
