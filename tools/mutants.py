#!/usr/bin/env python3
"""Breaks the library in many places, one at a time, and asks the test suite about each.

A place is a line and an operator: a comparison flipped, a number one higher, a call left out.
Each is chosen by a hash of the line's text, its module and the operator, so a seed means the
same places while lines are added around them and files are moved. A place that does not
compile when broken is passed over. What the suite does not notice is not always a fault of the
suite: some changes change nothing that anybody can see.
"""

import argparse
import collections
import hashlib
import os
import pathlib
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ["log", "util", "hal", "clock", "genlock", "operation", "support"]
TESTS = ["libhal_bsp/tests", "halctl/tests"]  # the virtual board's own do not link the library

Place = collections.namedtuple("Place", "path line column old new operator key")


# ---- Places ----

FLIPPED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==",
           "&&": "||", "||": "&&", "+": "-", "-": "+"}
NUMBER = re.compile(r"(?<![\w.'])(0[xX][0-9a-fA-F]+|[1-9][0-9]*|0)(?=[uUlL]*(?![\w.']))")
NO_CODE = re.compile(r"""//[^\n]*|/\*.*?\*/"""
                     r"""|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'"""
                     r"""|^[ \t]*\#(?:\\\n|[^\n])*|\bstatic_assert\b[^;]*;""",
                     re.DOTALL | re.MULTILINE)


def code_only(text):
    """The text with blanks for comments, literals, directives and static assertions."""
    return NO_CODE.sub(lambda match: re.sub(r"[^\n]", " ", match.group()), text)


def balanced(text):
    depth = 0
    for character in text:
        depth += (character == "(") - (character == ")")
        if depth < 0:
            return False
    return depth == 0


def next_number(number):
    if number[:2] in ("0x", "0X"):
        digits = f"{int(number, 16) + 1:0{len(number) - 2}x}"
        return number[:2] + (digits.upper() if number[2:] == number[2:].upper() else digits)
    return str(int(number) + 1)


def changes(code):
    """Every (column, old, new, operator) of a line of code."""
    for match in re.finditer(r"(?<= )([<>]=?|[=!]=|&&|\|\||[+-])(?= |$)", code):
        yield match.start(), match.group(), FLIPPED[match.group()], "operator"
    for match in re.finditer(r"\b(true|false)\b", code):
        yield match.start(), match.group(), "false" if match.group() == "true" else "true", "truth"
    result = re.match(r"\s*return (-?\d+);$", code)
    if result:
        yield result.start(1), result[1], "-1" if int(result[1]) == 0 else "0", "result"
    else:
        for match in NUMBER.finditer(code):
            yield match.start(), match.group(), next_number(match.group()), "number"
    condition = re.match(r"\s*(?:\} else )?if \((.*)\) \{$", code)
    if condition and balanced(condition[1]) and not re.search(r";| = ", condition[1]):
        yield condition.start(1), None, "!(…)", "condition"
    call = re.match(r"\s*([\w:.>-]+\((.*)\);)$", code)
    if call and balanced(call[2]):
        yield call.start(1), None, "nothing", "call"


def places_of(path, text, seed, seen):
    for number, (line, code) in enumerate(zip(text.split("\n"), code_only(text).split("\n")), 1):
        counts = collections.Counter()
        code = code.rstrip()
        for column, old, new, operator in changes(code):
            if operator == "condition":
                old = line[column:code.rindex(")")]
                new = f"!({old})"
            elif operator == "call":
                old, new = line[column:len(code)], ";"
            identity = (path.stem, line.strip(), operator, old)
            counts[identity] += 1
            seen[(identity, counts[identity])] += 1
            key = (seed, *identity, counts[identity], seen[(identity, counts[identity])])
            yield Place(path, number, column, old, new, operator,
                        hashlib.sha256(repr(key).encode()).hexdigest())


def all_places(tree, seed):
    library = tree / "libhal_bsp"
    files = [path for folder in FOLDERS for path in (library / folder).rglob("*")
             if path.suffix in (".cpp", ".h")]
    seen = collections.Counter()
    places = [place for path in sorted(files, key=lambda path: (path.stem, path.suffix, path))
              for place in places_of(path, path.read_text(), seed, seen)]
    return sorted(places, key=lambda place: place.key)


def broken(text, place):
    lines = text.split("\n")
    line = lines[place.line - 1]
    end = place.column + len(place.old)
    assert line[place.column:end] == place.old
    lines[place.line - 1] = line[:place.column] + place.new + line[end:]
    return "\n".join(lines)


def described(place):
    if place.operator == "call":
        return f"left out: {place.old}"
    if place.operator == "condition":
        return f"negated: if ({place.old})"
    return f"{place.old} -> {place.new}"


# ---- Building and testing ----

class TooLong(Exception):
    pass


class Workshop:
    """A built tree, in which commands are run with all they say kept in a log."""

    def __init__(self, tree, under, limit, log):
        self.tree, self.under, self.limit, self.log = tree, under, limit, log
        self.build_folder = tree / "build" / "release"

    def run(self, *command, timed=True):
        """Whether the command ended with 0; with it end all processes that it started."""
        command = [*self.under, *map(str, command)]
        print(f"$ {shlex.join(command)}", file=self.log, flush=True)
        with subprocess.Popen(command, cwd=self.tree, stdin=subprocess.DEVNULL, stdout=self.log,
                              stderr=subprocess.STDOUT, start_new_session=True) as process:
            try:
                return process.wait(self.limit if timed else None) == 0
            except subprocess.TimeoutExpired:
                raise TooLong from None
            finally:
                if process.poll() is None:
                    os.killpg(process.pid, signal.SIGKILL)

    def configure(self):
        options = ["-DHAL_BUILD_BENCH=OFF", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"]
        if shutil.which("ccache"):
            options += [f"-DCMAKE_{language}_COMPILER_LAUNCHER=ccache" for language in ("C", "CXX")]
        return self.run("cmake", "--preset", "release", *options, timed=False)

    def build(self):
        targets = ["all"]
        if re.search(r"^build tests: ", (self.build_folder / "build.ninja").read_text(), re.M):
            targets.append("tests")
        return self.run("cmake", "--build", self.build_folder, "--target", *targets, timed=False)

    def passes(self, *choice):
        # A test that fails once and then passes has met a busy machine, not a broken library.
        return all(self.run("ctest", "--test-dir", self.build_folder / folder, "--timeout", "60",
                            "--stop-on-failure", "--no-tests=ignore", "--repeat", "until-pass:2",
                            *choice) for folder in TESTS)

    def catches(self, place):
        """Whether the suite fails: tests that sound like the module first, as that is quicker."""
        folder = place.path.parent.name
        words = set(place.path.stem.split("_") + (folder.split("_") if "_" in folder else []))
        words = "|".join(sorted(words - {"hal", "dev", "internal", "func"}))
        words = re.sub(r"[a-z]", lambda match: f"[{match[0]}{match[0].upper()}]", words)
        try:
            return not (self.passes("-R", words) and self.passes("-E", words))
        except TooLong:
            print(f"no end in {self.limit} s", file=self.log)
            return True


def copy_tree(tree):
    """Brings the copy up to date without touching what has not changed, for the next build."""
    files = subprocess.run(["git", "-C", ROOT, "-c", f"safe.directory={ROOT}", "ls-files", "-z"],
                           check=True, capture_output=True, text=True).stdout.split("\0")
    wanted = {tree / name: ROOT / name for name in files if (ROOT / name).is_file()}
    for path in list(tree.rglob("*")):
        if path.is_file() and path not in wanted and tree / "build" not in path.parents:
            path.unlink()
    for path, source in wanted.items():
        if not path.is_file() or path.read_bytes() != source.read_bytes():
            path.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, path)


def tried(shop, place):
    """Whether the suite catches the place, or None when it does not compile."""
    text = place.path.read_text()
    try:
        place.path.write_text(broken(text, place))
        return shop.catches(place) if shop.build() else None
    finally:
        place.path.write_text(text)


def try_places(shop, places, wanted, say):
    """Tries so many places: one of each module, then more at random, but few of any."""
    done, taken, caught, survivors = set(), collections.Counter(), 0, []
    for most in (1, 4, wanted):
        for place in places:
            module = place.path.stem
            if taken.total() == wanted or taken[module] >= most or place in done:
                continue
            done.add(place)
            start = time.monotonic()
            where = f"{place.path.relative_to(shop.tree)}:{place.line}: {described(place)}"
            print(f"==== trying {where}", file=shop.log, flush=True)
            verdict = tried(shop, place)
            if verdict is None:
                print("==== passed over", file=shop.log, flush=True)
                continue
            taken[module] += 1
            caught += verdict
            if not verdict:
                survivors.append(where)
            say(f"{taken.total():3} {'caught  ' if verdict else 'SURVIVED'} "
                f"{time.monotonic() - start:4.0f} s  {where}")
    say(f"{len(places)} places known, {len(done)} broken, {len(done) - taken.total()} of these did "
        f"not compile; {taken.total()} tried in {len(taken)} modules")
    say("Survivors:" if survivors else "No survivors.")
    for where in survivors:
        say(f"    {where}")
    say(f"{caught} of {taken.total()} caught")


def options():
    parser = argparse.ArgumentParser(prog="dev mutants", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("places", nargs="?", type=int, default=60, help="how many places (60)")
    parser.add_argument("seed", nargs="?", type=int, default=1, help="which places (1)")
    parser.add_argument("--tree", type=pathlib.Path, metavar="DIR",
                        help="a tree whose build/release is built: break and mend its own files, "
                             "instead of those of a copy of this tree in build/mutants")
    parser.add_argument("--under", type=shlex.split, default=[], metavar="COMMAND",
                        help="what to put before each build and test run, such as 'nice -n 10'")
    parser.add_argument("--limit", type=int, default=900, metavar="SECONDS",
                        help="a test run that takes longer has caught the place (900)")
    return parser.parse_args()


def main():
    chosen = options()
    # Not at once, but by way of all that mends a file and ends a test run.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("Ended from outside."))
    # What breaks may ask for memory without end.
    resource.setrlimit(resource.RLIMIT_AS, (8 << 30, resource.getrlimit(resource.RLIMIT_AS)[1]))
    tree = chosen.tree.resolve() if chosen.tree else ROOT / "build" / "mutants"
    jobs = os.environ.get("JOBS") or str(os.cpu_count())
    for name, value in (("CMAKE_BUILD_PARALLEL_LEVEL", jobs), ("CTEST_PARALLEL_LEVEL", jobs),
                        ("CCACHE_BASEDIR", str(tree)), ("CCACHE_NOHASHDIR", "1")):
        os.environ.setdefault(name, value)
    logs = ROOT / "build" / "logs"
    logs.mkdir(parents=True, exist_ok=True)
    with open(logs / "mutants.log", "w", encoding="utf-8") as log:
        def say(text):
            print(text, flush=True)
            print(f"==== {text}", file=log, flush=True)

        shop = Workshop(tree, chosen.under, chosen.limit, log)
        if not chosen.tree:
            copy_tree(tree)
        start = time.monotonic()
        if not ((chosen.tree or shop.configure()) and shop.build() and shop.passes()):
            say("It does not build, or its tests fail before anything is broken: "
                "see build/logs/mutants.log")
            return 1
        say(f"Unbroken, it was built and passed in {time.monotonic() - start:.0f} s.")
        try_places(shop, all_places(tree, chosen.seed), chosen.places, say)
        return 0 if shop.build() else 1


if __name__ == "__main__":
    sys.exit(main())
