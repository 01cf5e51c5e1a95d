"""Builds the test programs with every mutant inside, out of the objects that the sanitizer build has anyway."""
import json
import os
import re
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

from places import find
from rewrite import rewritten

BUILD = "build/asan"
PLACE = "build/mutants"
FOLDERS = ("src/", "common/Feed.h", "common/Mdqp.h", "common/RegisterMap.h", "public/")
NUMBERS_PER_FILE = 1024  # a change of one file leaves the others' objects as they are
OBJECT = re.compile(r"-o (?!CMakeFiles/vexa_objects\.dir/)(\S+\.o) -c (\S+)$")
KEPT_FLAGS = re.compile(r"-(I|O|g|f|std|D)")


def tracked(*patterns):
    done = subprocess.run(["git", "ls-files", "--", *patterns], capture_output=True, text=True, check=True)
    return done.stdout.split()


class Workshop:
    def __init__(self, root):
        self.root = root
        self.sources = [f for f in tracked("*.cpp", "*.h") if f.startswith(FOLDERS)]
        self.flags = self.compile_flags()

    def compile_flags(self):
        """Of the library's own objects, by source, without the warnings."""
        rows = json.load(open(f"{self.root}/{BUILD}/compile_commands.json", encoding="utf-8"))
        flags = {}
        for row in rows:
            if "vexa_objects.dir" not in row["command"]:
                continue
            path = os.path.relpath(row["file"], self.root)
            flags[path] = [word for word in shlex.split(row["command"]) if KEPT_FLAGS.match(word)]
        return flags

    def build_tests(self, programs):
        subprocess.run(["cmake", "--build", BUILD, "--target", *programs], check=True, stdout=subprocess.DEVNULL)

    def find_mutants(self):
        resource = subprocess.run(["clang", "-print-resource-dir"], capture_output=True, text=True, check=True).stdout
        system = [f"-resource-dir={resource.strip()}"]
        parsed = {path: system + [flag for flag in flags if not flag.startswith(("-fsanitize", "-fno-san"))]
                  for path, flags in self.flags.items()}
        sources = find(self.root, self.sources, parsed)
        for first, path in enumerate(self.sources, 1):
            for nth, mutant in enumerate(sources[path].mutants):
                mutant.number = first * NUMBERS_PER_FILE + nth
        return sources

    def write(self, sources):
        for path, source in sources.items():
            text = rewritten(source)
            place = f"{PLACE}/{path}"
            os.makedirs(os.path.dirname(place), exist_ok=True)
            if not os.path.exists(place) or open(place, encoding="utf-8").read() != text:
                open(place, "w", encoding="utf-8").write(text)

    def compile(self, sources):
        """Objects of all sources; mutants on lines that do not compile are taken out and told."""
        while True:
            self.write(sources)
            with ThreadPoolExecutor(os.cpu_count()) as pool:
                failed = [text for text in pool.map(self.compile_one, sorted(self.flags)) if text]
            if not failed:
                return
            dropped = drop_broken(sources, "\n".join(failed))
            if not dropped:
                sys.exit("\n".join(failed))
            for mutant in dropped:
                print(f"not switchable, left out: {mutant.key}", file=sys.stderr)

    def compile_one(self, path):
        place = os.path.abspath(PLACE)
        flags = [flag.replace(f"-prefix-map={self.root}/", f"-prefix-map={place}/")
                 for flag in self.flags[path]]
        return self.run_compiler(f"{place}/{path}.o", flags, f"{place}/{path}")

    @staticmethod
    def run_compiler(output, flags, path):
        """The errors, empty when there is none."""
        here = os.path.abspath(os.path.dirname(__file__))
        os.makedirs(os.path.dirname(output), exist_ok=True)
        command = [*launcher(), "clang++", f"-I{os.path.abspath(PLACE)}", *flags, "-w", "-Wno-c++11-narrowing",
                   "-include", f"{here}/ActiveMutant.h", "-MMD", "-c", path, "-o", output]
        if is_current(output, command):
            return ""
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        if done.returncode == 0:
            open(output + ".command", "w", encoding="utf-8").write(" ".join(command))
        return done.stderr if done.returncode else ""

    def link(self, programs):
        """Objects of the programs' own that hold mutants are compiled anew: tests of services, much of which stands in
        headers, and sources of ours with flags of their own."""
        place = os.path.abspath(PLACE)
        listener = f"{place}/ReachListener.o"
        source = f"{os.path.abspath(os.path.dirname(__file__))}/ReachListener.cpp"
        if is_older(listener, [source]):
            subprocess.run([*launcher(), "clang++", "-std=c++20", "-O1", "-c", source, "-o", listener], check=True)
        commands = {program: self.commands_of(program) for program in programs}
        own = {made[1]: (line, made[2]) for lines in commands.values() for line in lines[:-1]
               if (made := OBJECT.search(line)) and self.holds_mutants(made[2])}
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            list(pool.map(lambda output: self.compile_own(output, *own[output]), own))
            list(pool.map(lambda program: self.link_one(program, commands[program][-1], own, listener), programs))

    @staticmethod
    def commands_of(program):
        """What makes it, its link last."""
        done = subprocess.run(["ninja", "-C", BUILD, "-t", "commands", program], capture_output=True, text=True, check=True)
        return done.stdout.strip().splitlines()

    def holds_mutants(self, path):
        return os.path.relpath(path, self.root) in self.flags or tests_headers(path)

    def compile_own(self, output, line, path):
        place = os.path.abspath(PLACE)
        ours = os.path.relpath(path, self.root)
        flags = [word for word in shlex.split(line) if KEPT_FLAGS.match(word)]
        error = self.run_compiler(f"{place}/{output}", flags, f"{place}/{ours}" if ours in self.flags else path)
        if error:
            sys.exit(error)

    @staticmethod
    def link_one(program, command, own, listener):
        place = os.path.abspath(PLACE)
        command = command.removeprefix(": && ").removesuffix(" && :")
        command = re.sub(r"CMakeFiles/vexa_objects\.dir/(\S+)\.o\b", rf"{place}/\1.o", command)
        command = " ".join(f"{place}/{word}" if word in own else word for word in command.split(" "))
        parts = [f"{BUILD}/{word}" if word[0] != "/" else word for word in re.findall(r"\S+\.[oa]\b", command)]
        if is_older(f"{place}/{program}", [*parts, listener]):
            command = command.replace(f"-o tests/{program}", f"{listener} -o {place}/{program}")
            subprocess.run(command, shell=True, cwd=BUILD, check=True)


def tests_headers(path):
    text = open(path, encoding="utf-8").read()
    return text.startswith('#include "src/') or '#include "public/' in text and not re.search(r'#include "(src|tests/unit)/', text)


def launcher():
    return [os.environ["CMAKE_CXX_COMPILER_LAUNCHER"]] if "CMAKE_CXX_COMPILER_LAUNCHER" in os.environ else []


def is_older(output, parts):
    return not os.path.exists(output) or any(os.path.getmtime(output) < os.path.getmtime(part) for part in parts)


def is_current(output, command):
    """Whether it was made by this command, and of what stands now."""
    try:
        parts = open(output.removesuffix(".o") + ".d", encoding="utf-8").read().replace("\\\n", " ").split()[1:]
        return open(output + ".command", encoding="utf-8").read() == " ".join(command) and not is_older(output, parts)
    except OSError:
        return False


def drop_broken(sources, errors):
    dropped = []
    for path, line in set(re.findall(rf"{PLACE}/(\S+?):(\d+):\d+: error", errors)):
        source = sources[path]
        starts = [m for m in source.mutants if source.text.count(b"\n", 0, m.start) + 1 == int(line)]
        dropped += starts
        source.mutants = [m for m in source.mutants if m not in starts]
    return dropped
