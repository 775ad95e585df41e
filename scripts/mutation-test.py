#!/usr/bin/env python3
"""Measures how many planted faults the test suite catches.

Plants one fault at a time in the C and C++ sources under src/, platform/ and
tools/ (a flipped comparison or logical operator, + and - or * and / swapped, a
constant off by one, true and false swapped, a negation dropped, a returned
status changed), rebuilds incrementally, and runs the test programs nearest
the fault first, stopping at the first failure. A fault the plain build misses
is tried again in the AddressSanitizer + UndefinedBehaviorSanitizer build,
where a sanitizer report from a build step that runs the unit also counts.

The faults are a reproducible random sample (a seed and a count), spread over
the three folders in proportion to their size. The work happens on a copy of
the tree under build/mutation/, so the working tree is never touched.

    scripts/mutation-test.py --seed 12 --count 150 --report build/mutation/report.tsv
    scripts/mutation-test.py --sample build/mutation/report.tsv   # the same faults again
    scripts/mutation-test.py --list --seed 12 --count 150          # show the sample only
"""

import argparse
import json
import os
import random
import re
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FOLDERS = ("src", "platform", "tools")
SOURCE_SUFFIXES = (".c", ".cpp", ".h", ".hpp")
# A test program running this many times longer than on the clean tree (and at
# least MIN_TIMEOUT seconds) counts as hanging, which the suite reports too.
TIMEOUT_FACTOR = 10
MIN_TIMEOUT = 60

# (kind, pattern, replacement). Patterns run on a line whose comments and
# string literals are masked, so only code is changed. Binary operators are
# matched with the spaces the repository's format puts around them, which
# tells them apart from template brackets, pointers and references.
OPERATORS = [
    ("rel", r"==", "!="),
    ("rel", r"!=", "=="),
    ("rel", r"<=", "<"),
    ("rel", r">=", ">"),
    ("rel", r"(?<= )<(?= )", "<="),
    ("rel", r"(?<= )>(?= )", ">="),
    ("logic", r"(?<= )&&(?= )", "||"),
    ("logic", r"(?<= )\|\|(?= )", "&&"),
    ("logic", r"!(?![=])(?=[\w(])", ""),
    ("arith", r"(?<= )\+(?= )", "-"),
    ("arith", r"(?<= )-(?= )", "+"),
    ("arith", r"(?<= )\*(?= )", "/"),
    ("arith", r"(?<= )/(?= )", "*"),
    ("arith", r"\+=", "-="),
    ("arith", r"-=", "+="),
    ("bool", r"\btrue\b", "false"),
    ("bool", r"\bfalse\b", "true"),
    ("status", r"(?<=return )noErr\b", "-50"),
    ("status", r"(?<=return )k\w*(?:Err|Error)\w*\b", "0"),
]
BOUND = re.compile(r"(?<![\w.])(\d+)(?![\w.])")
COMPARISON = re.compile(r"<|>|==|!=|\[")


def mask_line(line, in_block):
    """Returns the line with comments and literals blanked (same length) and
    whether a block comment is still open at its end."""
    out = []
    i, n = 0, len(line)
    while i < n:
        if in_block:
            end = line.find("*/", i)
            if end < 0:
                out.append(" " * (n - i))
                return "".join(out), True
            out.append(" " * (end + 2 - i))
            i, in_block = end + 2, False
        elif line.startswith("//", i):
            out.append(" " * (n - i))
            break
        elif line.startswith("/*", i):
            in_block = True
        elif line[i] in "\"'":
            quote, j = line[i], i + 1
            while j < n and line[j] != quote:
                j += 2 if line[j] == "\\" else 1
            out.append(quote + "_" * (min(j, n) - i - 1) + (quote if j < n else ""))
            i = j + 1
        else:
            out.append(line[i])
            i += 1
    return "".join(out)[:n], in_block


def sites_in_file(path):
    """Every (line, column, original, replacement, kind) a fault can be planted at."""
    sites = []
    in_block = False
    with open(os.path.join(ROOT, path), encoding="utf-8") as f:
        lines = f.read().split("\n")
    for number, line in enumerate(lines, 1):
        code, in_block = mask_line(line, in_block)
        stripped = code.strip()
        if not stripped or stripped.startswith("#") or stripped.startswith("static_assert"):
            continue
        for kind, pattern, replacement in OPERATORS:
            for m in re.finditer(pattern, code):
                sites.append((number, m.start(), m.group(0), replacement, kind))
        if COMPARISON.search(code):
            for m in BOUND.finditer(code):
                sites.append((number, m.start(), m.group(1), str(int(m.group(1)) + 1), "bound"))
    return sites, lines


def source_files(folder):
    listed = subprocess.run(["git", "ls-files", "--", folder], cwd=ROOT, check=True,
                            capture_output=True, text=True).stdout.split()
    return sorted(p for p in listed if p.endswith(SOURCE_SUFFIXES) and os.path.isfile(os.path.join(ROOT, p)))


def nonblank_lines(paths):
    total = 0
    for p in paths:
        with open(os.path.join(ROOT, p), encoding="utf-8") as f:
            total += sum(1 for line in f if line.strip())
    return total


def draw_sample(seed, count):
    """The same seed and count give the same faults on the same sources."""
    rng = random.Random(seed)
    per_folder = {}
    for folder in FOLDERS:
        files = source_files(folder)
        sites = []
        for path in files:
            found, lines = sites_in_file(path)
            sites += [(path, n, col, orig, repl, kind, lines[n - 1]) for n, col, orig, repl, kind in found]
        per_folder[folder] = (nonblank_lines(files), sites)
    total = sum(size for size, _ in per_folder.values())
    quotas = {f: round(count * size / total) for f, (size, _) in per_folder.items()}
    quotas[FOLDERS[0]] += count - sum(quotas.values())
    sample = []
    for folder in FOLDERS:
        sites = per_folder[folder][1]
        sample += rng.sample(sites, min(quotas[folder], len(sites)))
    return sample


def read_sample(report):
    sample = []
    with open(report, encoding="utf-8") as f:
        for row in f:
            if row.startswith("#") or not row.strip():
                continue
            cols = row.rstrip("\n").split("\t", 8)
            path, line = cols[1].rsplit(":", 1)
            col = int(cols[2])
            sample.append((path, int(line), col, cols[4], cols[5], cols[3], cols[8]))
    return sample


def relocate(mutant, tree):
    """Finds a fault's line after its code moved to another file: the same text,
    once only, in the sources. Returns the mutant at its new place, or None."""
    path, number, col, orig, repl, kind, text = mutant
    full = os.path.join(tree, path)
    if os.path.isfile(full):
        with open(full, encoding="utf-8") as f:
            if locate(mutant, f.read().split("\n")) is not None:
                return mutant
    found = []
    for folder in FOLDERS:
        for source in source_files(folder):
            with open(os.path.join(tree, source), encoding="utf-8") as f:
                found += [(source, i + 1) for i, line in enumerate(f.read().split("\n")) if line == text]
    if len(found) != 1:
        return None
    source, number = found[0]
    return (source, number, col, orig, repl, kind, text)


def locate(mutant, lines):
    """Finds the mutant's line again if edits moved it: the same text nearest the old place."""
    path, number, col, orig, repl, kind, text = mutant
    if number <= len(lines) and lines[number - 1] == text:
        return number
    candidates = [i + 1 for i, line in enumerate(lines) if line == text]
    if not candidates:
        return None
    return min(candidates, key=lambda n: abs(n - number))


def sync_tree(tree):
    """Mirrors the working tree's files into the copy, rewriting only changed
    files so that the copy's builds stay incremental."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True,
                            capture_output=True, text=True).stdout.split("\n")
    wanted = {p for p in listed if p and os.path.isfile(os.path.join(ROOT, p))}
    for path in wanted:
        source, target = os.path.join(ROOT, path), os.path.join(tree, path)
        with open(source, "rb") as f:
            data = f.read()
        if os.path.isfile(target):
            with open(target, "rb") as f:
                if f.read() == data:
                    continue
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copy2(source, target)
    for folder, _, files in os.walk(tree):
        for name in files:
            path = os.path.relpath(os.path.join(folder, name), tree)
            if path not in wanted:
                os.remove(os.path.join(tree, path))


def configure(tree, build, preset_flags):
    if not os.path.exists(os.path.join(build, "build.ninja")):
        subprocess.run(["cmake", "-S", tree, "-B", build, "-G", "Ninja",
                        "-DVANDREL_WERROR=ON", "-DVANDREL_BUILD_BENCH=OFF"] + preset_flags,
                       check=True, stdout=subprocess.DEVNULL)


def build(build_dir, jobs, target=None, env=None):
    command = ["ninja", "-C", build_dir, "-j", str(jobs)] + ([target] if target else [])
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env=env)
    return result.returncode == 0, result.stdout


def test_programs(build_dir):
    """The test programs ctest knows, by name under tests/: a Google Test program
    is run once whole rather than test by test; any other test (a script, a
    validator) runs as ctest would run it, named after its folder and test name."""
    listed = subprocess.run(["ctest", "--show-only=json-v1"], cwd=build_dir, check=True,
                            capture_output=True, text=True).stdout
    tests_dir = os.path.join(build_dir, "tests")
    programs = {}
    for test in json.loads(listed)["tests"]:
        command = test.get("command")
        if not command:
            continue
        if any(arg.startswith("--gtest_filter") for arg in command):
            programs[os.path.relpath(command[0], tests_dir)] = [command[0], "--gtest_brief=1"]
        else:
            folder = next((p["value"] for p in test.get("properties", [])
                           if p["name"] == "WORKING_DIRECTORY"), tests_dir)
            programs[os.path.join(os.path.relpath(folder, tests_dir), test["name"])] = command
    return [(name, programs[name]) for name in sorted(programs)]


def nearest_first(programs, source):
    """Test programs in the folder mirroring the source first, then by shared path depth."""
    source_parts = os.path.dirname(source).split("/")
    if source_parts[0] == "src":
        source_parts = source_parts[1:]

    def shared(program):
        parts = os.path.dirname(program).split("/")
        depth = 0
        for a, b in zip(parts, source_parts):
            if a != b:
                break
            depth += 1
        return -depth

    return sorted(programs, key=lambda p: (shared(p[0]), p[0]))


def run_tests(build_dir, programs, env, jobs=None, durations=None):
    """Runs the programs in order; returns the first that fails (or hangs), else None.
    With jobs, builds each program (and only what it needs) just before running it,
    so a fault the nearest tests catch costs no other links; a build failure
    raises BuildError. Records each program's time in durations when given;
    otherwise uses the times recorded there to tell a hang."""
    for program, command in programs:
        if jobs:
            # A Google Test program needs only its own target; anything else
            # (a script over the built tools) needs the whole build.
            gtest = command[-1] == "--gtest_brief=1"
            ok, _ = build(build_dir, jobs, os.path.basename(program) if gtest else None)
            if not ok:
                raise BuildError(program)
        timeout = None
        if durations is not None and program in durations:
            timeout = max(MIN_TIMEOUT, TIMEOUT_FACTOR * durations[program])
        started = time.time()
        try:
            result = subprocess.run(command, cwd=os.path.join(build_dir, "tests", os.path.dirname(program)),
                                    env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                    timeout=timeout)
        except subprocess.TimeoutExpired:
            return program + " (hang)"
        if durations is not None and program not in durations:
            durations[program] = time.time() - started
        if result.returncode != 0:
            return program
    return None


class BuildError(Exception):
    pass


class Tree:
    """The mutable copy of the sources and its two builds."""

    def __init__(self, work, jobs):
        self.work, self.jobs = work, jobs
        self.tree = os.path.join(work, "tree")
        self.plain = os.path.join(work, "plain")
        self.sanitized = os.path.join(work, "asan-ubsan")
        self.sanitizer_env = dict(os.environ, ASAN_OPTIONS="detect_leaks=1:abort_on_error=1",
                                  UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1")
        self.durations = {self.plain: {}, self.sanitized: {}}
        sync_tree(self.tree)
        configure(self.tree, self.plain, ["-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O2",
                                          "-DCMAKE_C_FLAGS_RELEASE=-O2"])
        configure(self.tree, self.sanitized, ["-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O1",
                                              "-DCMAKE_C_FLAGS_DEBUG=-O1",
                                              "-DVANDREL_SANITIZE=address,undefined"])

    def check_clean(self):
        for build_dir, env in ((self.plain, os.environ), (self.sanitized, self.sanitizer_env)):
            ok, log = build(build_dir, self.jobs)
            if not ok:
                sys.exit("the unmodified tree does not build:\n" + log[-3000:])
            failing = run_tests(build_dir, test_programs(build_dir), env,
                                durations=self.durations[build_dir])
            if failing:
                sys.exit("the unmodified tree fails its tests: %s (in %s)" % (failing, build_dir))

    def evaluate(self, mutant):
        """Plants the fault, builds and tests; always restores the file."""
        path = mutant[0]
        full = os.path.join(self.tree, path)
        with open(full, encoding="utf-8") as f:
            original = f.read()
        lines = original.split("\n")
        number = locate(mutant, lines)
        if number is None:
            return "gone", ""
        _, _, col, orig, repl, _, text = mutant
        if text[col:col + len(orig)] != orig:
            return "gone", ""
        lines[number - 1] = text[:col] + repl + text[col + len(orig):]
        try:
            with open(full, "w", encoding="utf-8") as f:
                f.write("\n".join(lines))
            try:
                failing = run_tests(self.plain, nearest_first(test_programs(self.plain), path),
                                    os.environ, self.jobs, self.durations[self.plain])
            except BuildError:
                return "not-compiling", ""
            if failing:
                return "caught", failing
            ok, log = build(self.sanitized, self.jobs, env=self.sanitizer_env)
            if not ok:
                # The build itself runs the unit (the LV2 metadata generator):
                # a sanitizer report there is a catch, anything else is not.
                reported = re.search(r"ERROR: (Leak|Address)Sanitizer|runtime error:", log)
                return ("caught", "sanitizer: build step") if reported else ("missed", "")
            failing = run_tests(self.sanitized, nearest_first(test_programs(self.sanitized), path),
                                self.sanitizer_env, durations=self.durations[self.sanitized])
            if failing:
                return "caught", "sanitizer: " + failing
            return "missed", ""
        finally:
            with open(full, "w", encoding="utf-8") as f:
                f.write(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seed", type=int, default=12)
    parser.add_argument("--count", type=int, default=150)
    parser.add_argument("--sample", help="rerun the faults listed in this earlier report")
    parser.add_argument("--report", default=os.path.join(ROOT, "build", "mutation", "report.tsv"))
    parser.add_argument("--only", help="run only these faults of the sample (ids, comma-separated)")
    parser.add_argument("--list", action="store_true", help="print the sample and stop")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 2)
    args = parser.parse_args()

    sample = read_sample(args.sample) if args.sample else draw_sample(args.seed, args.count)
    ids = range(1, len(sample) + 1)
    if args.only:
        ids = [int(i) for i in args.only.split(",")]
    if args.list:
        for i, (path, line, col, orig, repl, kind, _) in enumerate(sample, 1):
            print("%3d %s:%d %s %r -> %r" % (i, path, line, kind, orig, repl))
        return 0

    tree = Tree(os.path.join(ROOT, "build", "mutation"), args.jobs)
    tree.check_clean()
    os.makedirs(os.path.dirname(os.path.abspath(args.report)), exist_ok=True)
    counts = {}
    started = time.time()
    with open(args.report, "w", encoding="utf-8") as report:
        report.write("# id\tplace\tcolumn\tkind\toriginal\treplacement\tresult\tcaught by\tline\n")
        for i in ids:
            mutant = relocate(sample[i - 1], tree.tree) or sample[i - 1]
            path, line, col, orig, repl, kind, text = mutant
            result, by = tree.evaluate(mutant)
            counts[result] = counts.get(result, 0) + 1
            report.write("%d\t%s:%d\t%d\t%s\t%s\t%s\t%s\t%s\t%s\n" % (i, path, line, col, kind, orig, repl,
                                                                    result, by, text))
            report.flush()
            print("%3d/%d %-13s %s:%d %s %r -> %r %s" % (i, len(sample), result, path, line, kind, orig,
                                                        repl, by), flush=True)
    build(tree.plain, args.jobs)  # leave the copy's build matching the sources
    caught, missed = counts.get("caught", 0), counts.get("missed", 0)
    rate = 100.0 * caught / (caught + missed) if caught + missed else 0.0
    print("caught %d, missed %d, not compiling %d, gone %d: caught rate %.1f%% (%d s)" % (
        caught, missed, counts.get("not-compiling", 0), counts.get("gone", 0), rate, time.time() - started))
    return 0


if __name__ == "__main__":
    sys.exit(main())
