"""Habits that stay out, each with what to do instead."""
import re
from dataclasses import dataclass


@dataclass
class Ban:
    name: str        # a planted case of scripts/lint_cases/ has it
    pattern: str
    remedy: str
    where: str = ""  # the beginnings of paths in which it holds
    reads: str = "code"  # "text": comments and literals as well; "without_comments": literals as well


BANS = [
    Ban("unfinished", r"\b(?:TODO|FIXME|XXX)\b", "finish it, or say in an issue what is missing", reads="text"),
    Ban("unseeded", r"\brandom_device\b|(?<![\w.>])(?:std::|::)?(?:s?rand|[dlm]rand48|srand48|srandom)\s*\(",
        "take a seed"),
    Ban("unbounded", r"\b(?:strcpy|strcat|sprintf|vsprintf|gets|stpcpy)\s*\(", "use a bounded call"),
    Ban("nameless-register", r"\bm_drvRegEnyx\.\w+Register\(\s*0x",
        "name the register in common/RegisterMap.h", "src/"),
    Ban("threads-and-locks", r"\bstd::(?:jthread|thread|async|(?:\w+_)?mutex|lock_guard|unique_lock|scoped_lock"
        r"|shared_lock|condition_variable\w*)\b|\bpthread_(?:create|mutex\w*|cond\w*|rwlock\w*|spin\w*)\b",
        "the library creates no thread and takes no lock: use an atomic, or leave it to the caller",
        "src/ public/ common/ include/ interface/"),
]

# Names that mean a clock or a sleep wherever they stand, and those that do when they are called.
CLOCKS = re.compile(
    r"\b(?:(?:system|steady|high_resolution|utc|tai|gps)_clock|sleep_for|sleep_until|try_lock_for|try_lock_until"
    r"|clock_gettime|clock_getres|gettimeofday|timespec_get|localtime(?:_[rs])?|gmtime(?:_[rs])?|mktime|timelocal"
    r"|timegm|usleep|nanosleep|clock_nanosleep|thrd_sleep|setitimer|timer_create|timer_settime|timerfd_\w+|current_zone"
    r"|zoned_time|pthread_cond_timedwait|sem_timedwait|sigtimedwait|epoll_p?wait|p?pselect|ppoll|_*rdtscp?"
    r"|_*builtin_ia32_rdtscp?|SYS_(?:clock_\w+|nanosleep|gettimeofday|time))\b")
CALLED_CLOCKS = re.compile(
    r"\b(?:time|clock|times|ftime|sleep|pause|alarm|poll|select|ctime|asctime)(?=\s*\()|\bwait_(?:for|until)\b")
# In front of such a name: a member's, another namespace's, or a type, so that the name is a variable's.
OF_ANOTHER = re.compile(r"(?:\.|->|\b(?!std\b)\w+\s*::|(?P<word>\b[A-Za-z_]\w*)(?:\s+|\s*[*&>]+\s*))$")
NO_TYPE = {"return", "co_return", "co_await", "co_yield", "case", "else", "do", "throw", "and", "or", "not"}
IN_ASSEMBLER = re.compile(r"\brdtscp?\b")
CLOCK_FOLDER = "public/clock/"
# File or folder -> (the names it needs, why).
CLOCK_USERS = {
    "bench/": ({"*"}, "measures real time"),
    "tests/process/": ({"clock_gettime", "clock_nanosleep", "nanosleep", "poll", "SYS_clock_gettime",
                        "SYS_clock_nanosleep"},
                       "clocks put in front of real programs, and a wait for what a real program prints"),
    "tests/unit/clock_test.cpp": ({"clock_gettime"}, "holds public/clock against the system"),
    "public/file/WriteWhole.cpp": ({"sigtimedwait"}, "takes a pending signal and does not wait"),
    "scripts/mutation/ReachListener.cpp": ({"clock"}, "the processor time of each test"),
    "simulation/Simulation.cpp": ({"clock_gettime"}, "how long a run took is printed, and decides nothing"),
    "software_board/SharedClient.cpp": ({"nanosleep"}, "leaves the processor to the serving process"),
    "tools/BoardServing.cpp": ({"nanosleep"}, "the serving process rests between steps"),
    "tools/DemoClock.h": ({"clock_gettime", "clock_nanosleep"}, "the demo's own source for public/clock"),
    "tools/Terminal.cpp": ({"poll"}, "looks whether the reader has gone and does not wait"),
}


def check_of(ban):
    """The check of one banned habit."""
    def check(tree):
        for path, source in tree.sources.items():
            if not path.startswith(tuple(ban.where.split()) or ""):
                continue
            for found in re.finditer(ban.pattern, getattr(source, ban.reads)):
                yield path, source.line_of(found.start()), f"{found[0].strip()}: {ban.remedy}"
    return check


def clocks_of(source):
    """(offset, name)"""
    for found in CLOCKS.finditer(source.code):
        yield found.start(), found[0]
    for found in CALLED_CLOCKS.finditer(source.code):
        before = OF_ANOTHER.search(source.code, max(0, found.start() - 80), found.start())
        if before is None or before["word"] in NO_TYPE or found[0].startswith("wait_"):
            yield found.start(), found[0]
    for found in IN_ASSEMBLER.finditer(source.without_comments):
        if source.code[found.start()] == " ":
            yield found.start(), found[0]


def user_of(path):
    return next((user for user in CLOCK_USERS if path == user or user.endswith("/") and path.startswith(user)), None)


def check_clocks(tree):
    used = {user: set() for user in CLOCK_USERS}
    for path, source in tree.sources.items():
        if path.startswith(CLOCK_FOLDER):
            continue
        user = user_of(path)
        for offset, name in clocks_of(source):
            if user is not None:
                used[user].add(name)
            if user is None or not CLOCK_USERS[user][0] & {"*", name}:
                yield path, source.line_of(offset), (f"{name}: use public/clock, or give the file a reason in "
                                                     "CLOCK_USERS of scripts/lint/words.py")
    for user, (names, _) in CLOCK_USERS.items() if tree.is_whole else ():
        for name in sorted(names - used[user] - {"*"}):
            yield "scripts/lint/words.py", 1, f"CLOCK_USERS need not allow {user} {name} any more; take it out"
