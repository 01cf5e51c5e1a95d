"""Runs the tests against one mutant after the other."""
import os
import shutil
import subprocess
import tempfile
from collections import Counter
from concurrent.futures import ThreadPoolExecutor, as_completed
from dataclasses import dataclass

from workshop import NUMBERS_PER_FILE

KILLED, SURVIVED, UNREACHED = "killed", "survived", "no test reaches it"
MEMORY_MIB = 4096  # what a mutant that never stops allocating may take
BUDGET_MILLISECONDS = 60_000  # of tests for one mutant, as they took without one
FILE_BYTES = 64 << 30
FIRST_MILLISECONDS = 1_500  # of them, for the tests that are most about it


@dataclass(frozen=True)
class Test:
    program: str
    name: str
    milliseconds: int
    breadth: int  # how many mutants it reaches


class Range:
    """The test programs, and of each test which mutants it reaches."""

    def __init__(self, place, programs):
        self.place = place
        self.programs = programs
        self.reached_by = {}  # number -> tests
        self.tests = []
        self.at_start = set()  # reached before any test
        self.of_file = {}  # number of the file -> tests that reach something of it
        self.killed_by = Counter()  # (file, program)

    def survey(self, jobs):
        """All programs without a mutant; must be green. Returns the failures' text."""
        with ThreadPoolExecutor(jobs) as pool:
            failures = [text for text in pool.map(self.survey_one, self.programs) if text]
        for program in [] if failures else self.programs:
            self.take_reached(program)
        return failures

    def survey_one(self, program):
        found = f"{self.place}/{program}.reached"
        if os.path.exists(found) and os.path.getmtime(found) >= os.path.getmtime(f"{self.place}/{program}"):
            return ""
        under_way = found + ".under_way"
        if os.path.exists(under_way):
            os.remove(under_way)
        status, text = run(self.place, program, {"VEXA_REACHED_FILE": under_way}, [], 1200)
        if status != 0:
            return f"{program} fails without any mutant, status {status}:\n{text[-3000:]}"
        os.replace(under_way, found)
        return ""

    def take_reached(self, program):
        for row in open(f"{self.place}/{program}.reached", encoding="utf-8"):
            name, milliseconds, *numbers = row.split()
            if name == "*":
                self.at_start.update(map(int, numbers))
                continue
            test = Test(program, name, int(milliseconds), len(numbers))
            self.tests.append(test)
            for number in map(int, numbers):
                self.reached_by.setdefault(number, []).append(test)
                self.of_file.setdefault(number // NUMBERS_PER_FILE, set()).add(test)

    def judge(self, mutant):
        """Up to the budget the tests that reach it. Those begin that reach little else; then comes one program after the other."""
        tests = self.reached_by.get(mutant.number, [])
        own = set(tests)
        # Worked out once in a process, whichever test comes first: it may matter to every one.
        if mutant.number in self.at_start or (tests and mutant.test == "InitialMutant"):
            tests, own = self.tests, self.of_file.get(mutant.number // NUMBERS_PER_FILE, ())
        if not tests:
            return UNREACHED
        ranked = sorted(tests, key=lambda test: (test not in own, test.breadth, test.milliseconds))
        first = affordable(ranked, FIRST_MILLISECONDS)
        if self.is_red(mutant, first):
            return KILLED
        left = BUDGET_MILLISECONDS - cost(first)
        begun = set(first)
        for _, others in self.in_order(mutant, [test for test in ranked if test not in begun]):
            chosen = affordable(others, left)
            left -= cost(chosen)
            if self.is_red(mutant, chosen):
                return KILLED
        return SURVIVED

    def in_order(self, mutant, tests):
        """The tests of each program; what has killed the most of the same file is asked first."""
        own = {}
        for test in tests:
            own.setdefault(test.program, []).append(test)
        return sorted(own.items(), key=lambda item: (-self.killed_by[mutant.path, item[0]], cost(item[1])))

    def is_red(self, mutant, tests):
        """Whether one of them fails."""
        for program, own in self.in_order(mutant, tests):
            names = ":".join(test.name for test in own)
            status, _ = run(self.place, program, {"VEXA_ACTIVE_MUTANT": str(mutant.number)},
                            ["--gtest_fail_fast", f"--gtest_filter={names}"], 10 + 5 * cost(own) / 1000)
            if status != 0:
                self.killed_by[mutant.path, program] += 1
                return True
        return False

    def judge_all(self, mutants, jobs):
        with ThreadPoolExecutor(jobs) as pool:
            running = {pool.submit(self.judge, mutant): mutant for mutant in mutants}
            for done in as_completed(running):
                yield running[done], done.result()


def cost(tests):
    return sum(test.milliseconds for test in tests)


def affordable(tests, milliseconds):
    """Those that fit in, the first ones first."""
    chosen = []
    for test in tests:
        if test.milliseconds <= milliseconds:
            milliseconds -= test.milliseconds
            chosen.append(test)
    return chosen


def run(place, program, environment, options, seconds):
    """Status and output of a test program; one that does not end is ended, and failed."""
    home = tempfile.mkdtemp(prefix="mutant-")
    command = ["prlimit", f"--fsize={FILE_BYTES}", "--core=0", f"{place}/{program}", "--gtest_brief=1", *options]
    limits = {"TMPDIR": home, "ASAN_OPTIONS": f"hard_rss_limit_mb={MEMORY_MIB}"}
    with subprocess.Popen(command, cwd=home, env={**os.environ, **environment, **limits}, start_new_session=True, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as process:
        try:
            text = process.communicate(timeout=seconds)[0]
        except subprocess.TimeoutExpired:
            text = b"does not end"
            end_group(process)
            process.communicate()
        status = process.returncode
    shutil.rmtree(home, ignore_errors=True)
    return status, text.decode(errors="replace")


def end_group(process):
    try:
        os.killpg(process.pid, 9)
    except ProcessLookupError:
        pass
