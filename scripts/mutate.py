#!/usr/bin/env python3
"""Changes the library in one place at a time and runs its tests, which must notice each change.

    scripts/mutate.py [--filter REGEX] [--jobs N] [--build FOLDER]

tests/mutation/mutants.txt lists the changes. Builds in a copy of the working tree and prints a line for
each mutant and the score. Exit status: 0 all were noticed, 1 some were not, 2 the list or the build is
broken.
"""

import argparse
import dataclasses
import pathlib
import re
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIST = ROOT / "tests/mutation/mutants.txt"
TESTS = ("dsp", "copy_failure", "infer", "pipeline")
TIMEOUT_S = 120  # of a test program; a mutant that hangs is noticed


@dataclasses.dataclass
class Mutant:
    line: int  # in the list
    file: str
    tests: list[str]
    old: list[str]
    new: list[str]

    def __str__(self):
        return f"{self.file}: {' '.join(self.old)} -> {' '.join(self.new) or '(nothing)'}"


def fail(message):
    print(f"mutate.py: {message}", file=sys.stderr)
    sys.exit(2)


def read_list():
    mutants = []
    for number, text in enumerate(LIST.read_text().splitlines(), 1):
        kind, rest = text[:2], text[2:].strip()
        if not text.strip() or kind == "# ":
            continue
        if kind == "- " and mutants:
            mutants[-1].old.append(rest)
        elif kind == "+ " and mutants and mutants[-1].old:
            mutants[-1].new.append(rest)
        elif match := re.fullmatch(r"(src/\S+): ([a-z_ ]+)", text):
            tests = match[2].split()
            if not set(tests) <= set(TESTS):
                fail(f"{LIST}:{number}: unknown test in '{match[2]}', use {', '.join(TESTS)}")
            mutants.append(Mutant(number, match[1], tests, [], []))
        else:
            fail(f"{LIST}:{number}: not 'src/FILE: TESTS', '- OLD', '+ NEW' or '# COMMENT': {text}")
    return mutants


def mutate(mutant, source):
    """The source with the mutant's old lines, which stand in it once, replaced by its new ones."""
    pattern = r"\n\s*".join(re.escape(line) for line in mutant.old)
    found = len(re.findall(pattern, source))
    if not mutant.old or found != 1:
        fail(f"{LIST}:{mutant.line}: the old text stands {found} times in {mutant.file}, must be once")
    return re.sub(pattern, lambda _: "\n".join(mutant.new), source)


def copy_tree(target):
    """Copies the working tree; files that did not change keep their time, so that ninja skips them."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=ROOT,
                            check=True, capture_output=True, text=True).stdout.split("\0")
    for name in filter(re.compile(r"CMake|(cmake|include|src|tests)/").match, listed):
        original, copy = ROOT / name, target / name
        if not original.is_file():
            continue
        content = original.read_bytes()
        if not copy.is_file() or copy.read_bytes() != content:
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_bytes(content)


def build(folder, tests, jobs):
    command = ["cmake", "--build", folder, "-j", str(jobs), "--target", *[f"{t}_test" for t in tests]]
    result = subprocess.run(command, capture_output=True, text=True)
    return "" if result.returncode == 0 else result.stdout + result.stderr


def failing_test(folder, tests):
    """The first test that fails, or nothing."""
    for test in tests:
        command = [folder / f"bin/{test}_test", "--gtest_fail_fast", "--gtest_brief=1"]
        try:
            result = subprocess.run(command, capture_output=True, text=True, errors="replace",
                                    timeout=TIMEOUT_S)
        except subprocess.TimeoutExpired:
            return f"{test}_test: time-out"
        if result.returncode != 0:
            match = re.search(r"\[  FAILED  \] (\S+)", result.stdout)
            return match[1] if match else f"{test}_test: exit status {result.returncode}"
    return None


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--filter", default=".", help="only mutants whose file or text matches")
    parser.add_argument("--jobs", type=int, default=2, help="compilations at once")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/mutation")
    options = parser.parse_args()
    mutants = [m for m in read_list() if re.search(options.filter, str(m))]
    if not mutants:
        fail(f"no mutant matches '{options.filter}'")
    source, folder = options.build / "source", options.build / "build"
    copy_tree(source)
    mutated = [mutate(m, (ROOT / m.file).read_text()) for m in mutants]  # all, before the first runs
    subprocess.run(["cmake", "-S", source, "-B", folder, "-G", "Ninja", "--log-level=WARNING", "-Wno-dev",
                    "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-O1 -w", "-DAIPLC_BUILD_HOST=OFF",
                    "-DAIPLC_BUILD_WORKER=OFF"], check=True, stdout=subprocess.DEVNULL)
    if errors := build(folder, TESTS, options.jobs):
        fail(f"the library does not build:\n{errors}")
    if name := failing_test(folder, TESTS):
        fail(f"{name} fails without any mutant")

    begin, noticed, broken = time.monotonic(), 0, 0
    for mutant, text in zip(mutants, mutated):
        (source / mutant.file).write_text(text)
        errors = build(folder, mutant.tests, options.jobs)
        name = None if errors else failing_test(folder, mutant.tests)
        (source / mutant.file).write_bytes((ROOT / mutant.file).read_bytes())
        broken += errors != ""
        noticed += name is not None
        print(f"{'DOES NOT BUILD' if errors else name or 'NOT NOTICED':<60} {mutant}", flush=True)
    print(f"{noticed} of {len(mutants)} mutants noticed in {time.monotonic() - begin:.0f} s")
    sys.exit(2 if broken else 0 if noticed == len(mutants) else 1)


if __name__ == "__main__":
    main()
