#!/usr/bin/env python3
"""Plants faults in the library and the programs, one at a time, and shows which of them no test notices, and which tests alone notice one.

    Tests/PlantedFaults.py [--count N] [--seed S] [--only FOLDER] [--without REGEX]

A fault is a small change of one line: a condition the other way round, "<" for "<=", a call or an assignment left out, another number.
It is planted in a clone of the last commit, in build/planted, which is built and tested on Linux. The seed chooses the faults. Some change
nothing that anybody could see, such as the initial value of a variable that is always set: read what is left. One fault takes some 20
seconds. Slow tests are left out, and with --without those whose names match.
"""
import argparse
import collections
import os
import pathlib
import random
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CLONE = ROOT / "build" / "planted"
FOLDERS = ["QuendraHttp", "Libraries", "Eventing", "Platform/Posix", "Client", "Appliance"]
SUBSTITUTES = [(" == ", " != "), (" != ", " == "), (" && ", " || "), (" \\|\\| ", " && "), (" < (?=\\w)", " <= "), (" <= ", " < "),
               (" > (?=\\w)", " >= "), (" >= ", " > "), ("\\btrue\\b", "false"), ("\\bfalse\\b", "true"), (" \\+ 1\\b", ""), (" - 1\\b", ""),
               (" \\+= ", " -= "), ("\\b0\\b", "1"), ("\\b1\\b", "2")]
FAILED = re.compile(r"^\s*\d+ - (\S+).*\((?!Not Run|Disabled)", re.M)
LONGEST_TEST = 8  # seconds: many faults make a test wait for ever


def faults_of(line):
    """The line's possible faults."""
    code = re.sub(r"\s*//.*", "", line)
    if not code.strip() or code.strip().startswith(("#", "using", "static_assert", "namespace")):
        return []
    found = []
    condition = re.match(r"(\s*(?:else )?if \()([^;]*)(\))$", code)
    if condition:
        found.append(f"{condition[1]}!({condition[2]}){condition[3]}")
    without_texts = re.sub(r'"(\\.|[^"\\])*"', lambda text: '"' * len(text[0]), code)
    for pattern, substitute in SUBSTITUTES:
        found += [code[: each.start()] + substitute + code[each.end():] for each in re.finditer(pattern, without_texts)]
    is_call = re.match(r"\s+[A-Za-z_:>.\-*()\[\]]+\(.*\);$", code) and not re.match(r"\s+(return|const|static|auto|throw)\b", code)
    if is_call or re.match(r"\s+[a-zA-Z_.>\-]+ [+|]?= .*;$", code):
        found.append(re.match(r"\s*", code)[0] + "static_cast<void>(0);")
    return found


def choose(count, seed, only):
    chance = random.Random(seed)
    all_faults = []
    for folder in FOLDERS:
        for file in sorted((CLONE / folder).rglob("*.[ch]*")):
            name = str(file.relative_to(CLONE))
            if "/Windows/" in name or not name.startswith(only):
                continue
            for number, line in enumerate(file.read_text().split("\n")):
                if faults := faults_of(line):
                    all_faults.append((name, number, chance.choice(faults)))
    chance.shuffle(all_faults)
    return all_faults[:count]


def run(*command):
    return subprocess.run(command, cwd=CLONE, capture_output=True, text=True, check=False)


def prepare():
    subprocess.run(["rm", "-rf", CLONE / ".git"], check=True)  # what was built stays
    subprocess.run(["git", "init", "-q", CLONE], check=True)
    for command in (["fetch", "-q", "--depth", "1", f"file://{ROOT}", "HEAD"], ["reset", "-q", "--hard", "FETCH_HEAD"]):
        subprocess.run(["git", "-C", CLONE, *command], check=True)
    tests = CLONE / "Tests" / "CMakeLists.txt"
    tests.write_text(re.sub(r"TIMEOUT \d+", f"TIMEOUT {LONGEST_TEST}", tests.read_text()))
    if run("cmake", "--preset", "linux", "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O1").returncode != 0:
        sys.exit("cmake fails")


def test(without):
    """The tests that fail; nothing if it cannot be built."""
    if run("cmake", "--build", "build/linux", "--parallel", str(os.cpu_count())).returncode != 0:
        return None
    out = run("ctest", "--preset", "linux", "-LE", "slow", "-E", without, "-j", str(2 * os.cpu_count())).stdout
    return FAILED.findall(out[out.find("tests FAILED"):]) if "tests FAILED" in out else []


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", default="", help="the beginning of a path")
    parser.add_argument("--without", default="Package|Docs|Layout|Binary|Hostile|FaultMatrix.*Part", metavar="REGEX")
    chosen = parser.parse_args()
    CLONE.mkdir(parents=True, exist_ok=True)
    prepare()
    if (failing := test(chosen.without)) != []:
        sys.exit(f"without a fault these fail: {failing or 'the build'}")
    alone = collections.Counter()
    planted = noticed = 0
    for name, number, line in choose(chosen.count, chosen.seed, chosen.only):
        file = CLONE / name
        before = file.read_text()
        lines = before.split("\n")
        lines[number] = line
        file.write_text("\n".join(lines))
        failing = test(chosen.without)
        file.write_text(before)
        if failing is None:
            continue
        planted += 1
        noticed += 1 if failing else 0
        if len(failing) == 1:
            alone[failing[0]] += 1
        if not failing:
            print(f"{name}:{number + 1}: {line.strip()}", flush=True)
    print(f"{noticed} of {planted} faults were noticed")
    for name, count in alone.most_common():
        print(f"{count:4} noticed by {name} alone")


if __name__ == "__main__":
    sys.exit(main())
