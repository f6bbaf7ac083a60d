#!/usr/bin/python3
"""Sixteen clients, four services and the registration service under chaos: soak.py BUILD-FOLDER SECONDS SEED

Prints a table; exits with 1 when something that must hold did not, with 128 and the signal's number when interrupted.
"""
import contextlib
import os
import pathlib
import random
import sched
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass, field
from typing import Callable, Optional

PATIENCE = 30  # seconds that a step which works never needs
WARM_UP = 4  # seconds of chaos before the first measurement
ROUND = 5  # seconds of chaos between two measurements
SHORTEST = 10  # seconds of a run
SAMPLING = 0.6  # seconds of a measurement
TOLERANCES = {
    "clients": (512, 6, "400 bytes leaked per request show in 30 s; a request holds sockets and a connection"),
    "services": (1024, 0, "a fourth of it is the largest body"),
    "registration service": (2048, 16, "its queues' high water; a connection from each client"),
}
SHOWN = 5  # wrong answers that are told in full

REGISTRY = "registration"
SERVICES = ["one", "two", "slow-one", "slow-two"]
SLOWEST = 250  # milliseconds that the handler of a slow one takes
# How many clients each address has. More for the slow ones, so that requests queue up; high priority would starve low.
ADDRESSES = {"one": 3, "two": 3, "RTtwo": 2, "slow-one": 4, "slow-two": 3, "RTslow-two": 1}
ASKED = [address for address, clients in ADDRESSES.items() for _ in range(clients)]  # by each client
CLIENTS = {f"client-{number}": address for number, address in enumerate(ASKED)}
DEALERS = list(CLIENTS)[1::2]
SERVERS = [REGISTRY, *SERVICES]
ALL = [*SERVERS, *CLIENTS]
# How a request may end, in the words of the client's line and in those of the table.
OUTCOMES = {"success": "answered", "timed out": "timed out", "interrupted by a message": "interrupted by a message",
            "Interrupted system call": "interrupted by a signal"}


def wait_for(condition: Callable[[], bool]) -> bool:
    deadline = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() >= deadline:
            return False
        time.sleep(0.01)
    return True


@dataclass
class Life:
    """A process from its start to its end; a restart begins another."""

    name: str
    process: subprocess.Popen
    is_end_wanted: bool = False
    is_stopped: bool = False
    samples: list[tuple[float, int, int]] = field(default_factory=list)  # time, resident KiB, descriptors

    def is_running(self) -> bool:
        return self.process.poll() is None

    def measure(self) -> tuple[int, int]:
        folder = pathlib.Path("/proc", str(self.process.pid))
        pages = int((folder / "statm").read_text().split()[1])
        return pages * os.sysconf("SC_PAGE_SIZE") // 1024, len(os.listdir(folder / "fd"))


class World:
    """The processes, in a folder of their own."""

    def __init__(self, folder: pathlib.Path, build: pathlib.Path, seed: int) -> None:
        self.folder, self.build, self.seed = folder, build, seed
        self.lives: list[Life] = []
        self.current: dict[str, Life] = {}
        self.log: list[str] = []  # begins with the milliseconds on the clients' clock
        (folder / "clients").mkdir()

    def note(self, text: str) -> None:
        self.log.append(f"{time.monotonic_ns() // 1_000_000} {text}")

    def command(self, name: str) -> list[str]:
        programs, servers = self.build / "tests/soak", "ipc://servers"
        if name == REGISTRY:
            return [f"{self.build}/tools/quillmere/tolvo-quillmere", "--servers", servers, "--clients", "clients"]
        if name in SERVICES:
            return [f"{programs}/soak_service", servers, name, name.split("-")[-1], str(SLOWEST * ("slow" in name))]
        kind, address = "dealer" if name in DEALERS else "persistent", CLIENTS[name]
        return [f"{programs}/soak_client", kind, f"ipc://clients/{address}", f"ipc://interrupt-{name}", name,
                f"{self.seed}{ALL.index(name)}", "10000" if "slow" in address else "200"]

    def start(self, name: str) -> None:
        with open(self.folder / f"{name}.output", "wb") as output, open(self.folder / f"{name}.errors", "ab") as errors:
            # Freed bodies go back to the system, so that resident memory shows what is held.
            process = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", *self.command(name)], cwd=self.folder,
                                       env={**os.environ, "MALLOC_TRIM_THRESHOLD_": "65536"}, process_group=0,
                                       stdin=subprocess.PIPE, stdout=output, stderr=errors, bufsize=0)
        self.current[name] = Life(name, process)
        self.lives.append(self.current[name])
        self.note(f"{name} starts as {process.pid}")

    def kill(self, life: Life) -> None:
        life.is_end_wanted = True
        life.process.kill()
        life.process.wait()
        life.process.stdin.close()

    def is_serving(self) -> bool:
        """Whether the registration service that was started last has bound its endpoint."""
        return (self.folder / f"{REGISTRY}.output").stat().st_size > 0

    def answered(self, client: str) -> int:
        return (self.folder / f"{client}.output").read_bytes().count(b"success\n")


class Chaos:
    """Kills, stops and interrupts. The seed decides what and when, as far as it can be done at that moment."""

    def __init__(self, world: World, seed: int) -> None:
        self.world, self.random = world, random.Random(seed)
        self.counts: dict[str, int] = {}
        self.due = sched.scheduler(time.monotonic, time.sleep)

    def later(self, seconds: float, action: Callable[[], None]) -> None:
        self.due.enter(seconds, 0, action)

    def rage(self, seconds: float) -> None:
        end = time.monotonic() + seconds
        self.act()
        while time.monotonic() + (pause := self.due.run(blocking=False)) < end:
            time.sleep(pause)
        while self.due.queue:  # what was begun comes to its end at once
            event = self.due.queue[0]
            self.due.cancel(event)
            if event.action != self.act:
                event.action()

    def act(self) -> None:
        self.later(self.random.uniform(0, 0.1), self.act)
        kinds = {self.kill: 3, self.strand: 3, self.duplicate: 3, self.stop: 20, self.interrupt: 30, self.publish: 30}
        self.random.choices(list(kinds), list(kinds.values()))[0]()

    def done(self, kind: str, text: str) -> None:
        self.counts[kind] = self.counts.get(kind, 0) + 1
        self.world.note(text)

    def kill(self) -> None:
        self.take_down(self.random.choice(SERVERS), self.random.uniform(0, 0.4))

    def take_down(self, name: str, pause: float) -> None:
        life = self.world.current[name]
        if life.is_running():
            self.world.kill(life)
            self.done("killed", f"{name} is killed")
            self.later(pause, lambda: self.world.start(name))

    def duplicate(self) -> None:
        """A second registration service ends. A second service takes the identity over, until both end.

        Of two the one that connected last is served, and the other never again, even when that one has ended.
        """
        name, pause = self.random.choice(SERVERS), self.random.uniform(0, 0.8)
        first = self.world.current[name]
        if first.is_running() and (name != REGISTRY or self.world.is_serving()):
            self.world.start(name)
            self.done("duplicated", f"{name} is duplicated")
            if name == REGISTRY:
                second, self.world.current[name] = self.world.current[name], first
                second.is_end_wanted = True
                # Before anything else happens: it would serve if the first one were killed first.
                if not wait_for(lambda: not second.is_running()):
                    self.world.note("the second registration service does not end")
                    self.world.kill(second)
            else:
                self.later(pause, lambda: (self.world.kill(first), self.take_down(name, 0)))

    def stop(self) -> None:
        name = self.random.choice(ALL)
        self.halt(name, self.random.uniform(0, self.random.choice([0.05, 0.8])))

    def halt(self, name: str, pause: float) -> None:
        life = self.world.current[name]
        if life.is_running() and not life.is_stopped:
            life.process.send_signal(signal.SIGSTOP)
            life.is_stopped = True
            self.done("stopped", f"{name} is stopped")
            self.later(pause, lambda: self.resume(life))

    def strand(self) -> None:
        """Leaves a service with requests of a registration service that has gone."""
        pause = self.random.uniform(0.1, 0.8)
        self.halt(self.random.choice(SERVICES), pause)
        self.later(self.random.uniform(0, pause), lambda: self.take_down(REGISTRY, 0))

    def resume(self, life: Life) -> None:
        if life.is_running():
            life.is_stopped = False
            life.process.send_signal(signal.SIGCONT)
            self.world.note(f"{life.name} goes on")

    def interrupt(self) -> None:
        name = self.random.choice(SERVICES + list(CLIENTS))
        if self.world.current[name].is_running():
            signals = self.random.choice((1, 1, 1, 200))
            for _ in range(signals):
                self.world.current[name].process.send_signal(signal.SIGUSR1)
            self.done("interrupted by a signal", f"{name} gets {signals} signals")

    def publish(self) -> None:
        name = self.random.choice(DEALERS)
        if self.world.current[name].is_running():
            with contextlib.suppress(BrokenPipeError):
                self.world.current[name].process.stdin.write(b"!")
            self.done("interrupted by a message", f"{name} gets an interrupt message")


class Soak:
    """One run: rounds of chaos, after each of which everything must answer and is measured."""

    def __init__(self, world: World, seed: int) -> None:
        self.world, self.chaos = world, Chaos(world, seed)
        self.silent: list[str] = []  # clients that got no answer in the last calm
        self.bad_ends: list[str] = []

    def run(self, seconds: float) -> None:
        end = time.monotonic() + seconds - 1
        for name in ALL:
            self.world.start(name)
        self.chaos.rage(WARM_UP)
        self.calm()
        while not self.silent and (left := end - time.monotonic()) > 0:
            self.chaos.rage(min(ROUND, left))
            self.calm()
        self.end()

    def calm(self) -> None:
        self.world.note("calm")
        before = {client: self.world.answered(client) for client in CLIENTS}
        wait_for(lambda: not self.unanswered(before))
        self.silent = self.unanswered(before)
        self.measure()

    def unanswered(self, before: dict[str, int]) -> list[str]:
        return [client for client in CLIENTS if self.world.answered(client) == before[client]]

    def measure(self) -> None:
        """Takes the least of some time: what a request needs comes and goes."""
        lives = [life for life in self.world.current.values() if life.is_running()]
        seen: dict[str, list[tuple[int, int]]] = {}
        end = time.monotonic() + SAMPLING
        while time.monotonic() < end:
            time.sleep(0.01)
            for life in lives:
                with contextlib.suppress(OSError):  # it has just ended
                    seen.setdefault(life.name, []).append(life.measure())
        for life in lives:
            if life.name in seen:
                life.samples.append((time.monotonic(), *map(min, zip(*seen[life.name]))))

    def end(self) -> None:
        """The registration service last: the others' ends wait until it has taken what they have queued."""
        for names in (CLIENTS, SERVICES, [REGISTRY]):
            lives = [self.world.current[name] for name in names if self.world.current[name].is_running()]
            for life in lives:
                life.is_end_wanted = True
                life.process.stdin.close()
                if life.name == REGISTRY:
                    life.process.terminate()
            wait_for(lambda ending=lives: not any(life.is_running() for life in ending))
            codes = {life.name: life.process.poll() for life in lives}
            self.bad_ends += [f"{name} {'did not end' if code is None else f'ended with {code}'}"
                              for name, code in codes.items() if code != 0]


class Report:
    """The table of a run, and what of it must not be."""

    def __init__(self, soak: Soak) -> None:
        self.soak, self.world = soak, soak.world
        self.broken: list[str] = []

    def row(self, label: str, value: object, faults: Optional[list[str]] = None) -> None:
        """With a list of faults it is something that must hold."""
        verdict = "" if faults is None else "BROKEN" if faults else "ok"
        print(f"  {label:44}{value!s:>10}  {verdict}".rstrip())
        self.broken += [f"{label}: {fault}" for fault in faults or []]

    def print(self) -> None:
        self.requests()
        self.processes()
        self.sizes()
        for fault in self.broken:
            print(f"broken: {fault}")
        if self.broken:
            print("The end of the chaos:", *self.world.log[-15:], sep="\n  ")

    def requests(self) -> None:
        lines = [line for client in CLIENTS
                 for line in (self.world.folder / f"{client}.output").read_text(encoding="utf-8").splitlines()]
        others = sorted(line for line in lines if line not in OUTCOMES)
        wrong = [line for line in others if line.startswith("wrong")]
        print("requests")
        self.row("sent", len(lines))
        for line, label in OUTCOMES.items():
            self.row(label, lines.count(line))
        self.row("failed otherwise", len(others) - len(wrong), sorted({*others} - {*wrong}))
        self.row("answered wrongly", len(wrong), [self.tell(line) for line in wrong[:SHOWN]])

    def tell(self, wrong: str) -> str:
        """With when the service that answered was started, and what the chaos did in the second before."""
        when = int(wrong.split()[1])
        log = [line for line in self.world.log
               if when - 1000 < int(line.split()[0]) <= when or f'"{line.split()[-1]} ' in wrong]
        return "\n    ".join([wrong, *log])

    def processes(self) -> None:
        silent, bad_ends = self.soak.silent, self.soak.bad_ends
        answering = {address for client, address in CLIENTS.items() if client not in silent}
        ended = [f"{life.name} ({life.process.pid}) ended with {life.process.returncode}{self.last_words(life.name)}"
                 for life in self.world.lives if not life.is_end_wanted and not life.is_running()]
        left = os.listdir(self.world.folder / "clients")
        print("processes")
        for kind, count in self.soak.chaos.counts.items():
            self.row(kind, count)
        self.row("ended unasked", len(ended), ended)
        self.row("ended badly when asked", len(bad_ends), bad_ends)
        self.row("sockets left by the registration service", len(left), left)
        self.row("addresses that answer at the end", f"{len(answering)} of {len(ADDRESSES)}",
                 [f"{address} does not" for address in ADDRESSES if address not in answering])
        self.row("clients that are answered at the end", f"{len(CLIENTS) - len(silent)} of {len(CLIENTS)}",
                 [f"{client} is not" for client in silent])

    def last_words(self, name: str) -> str:
        lines = (self.world.folder / f"{name}.errors").read_text(encoding="utf-8", errors="replace").splitlines()
        return "".join(f"\n    {line}" for line in lines[-3:])

    def sizes(self) -> None:
        """Of each name, the life that was measured over the longest time."""
        print(f"  {'':14}{'seconds':>8}{'resident KiB':>20}{'descriptors':>16}")
        measured = [life for life in self.world.lives if len(life.samples) > 1]
        for name in ALL:
            lives = [life for life in measured if life.name == name]
            for life in sorted(lives, key=lambda life: life.samples[-1][0] - life.samples[0][0])[-1:]:
                (begin, *first), (end, *last) = life.samples[0], life.samples[-1]
                print(f"  {name:14}{end - begin:8.0f}{first[0]:10} ->{last[0]:7}{first[1]:8} ->{last[1]:5}")
        grown = [fault for life in measured for fault in self.growth(life)]
        self.row("lives measured at least twice, grown", f"{len(grown)} of {len(measured)}", grown)
        for kind, (resident, descriptors, reason) in TOLERANCES.items():
            print(f"  tolerated, {kind}: {resident} KiB, {descriptors} descriptors\n    ({reason})")

    @staticmethod
    def growth(life: Life) -> list[str]:
        kind = "registration service" if life.name == REGISTRY else "services" if life.name in SERVICES else "clients"
        resident, descriptors, _ = TOLERANCES[kind]
        (_, *first), (_, *last) = life.samples[0], life.samples[-1]
        is_grown = last[0] - first[0] > resident or last[1] - first[1] > descriptors
        return [f"{life.name}: {first[0]} to {last[0]} KiB, {first[1]} to {last[1]} descriptors"] * is_grown


def main() -> int:
    build, seconds, seed = pathlib.Path(sys.argv[1]).resolve(), int(sys.argv[2]), int(sys.argv[3])
    if seconds < SHORTEST:
        print(f"soak: at least {SHORTEST} s, or nothing is measured twice", file=sys.stderr)
        return 2
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda number, _: sys.exit(128 + number))
    # A service that has not come to its handler yet must not end; the handler replaces this.
    signal.signal(signal.SIGUSR1, signal.SIG_IGN)
    world = World(pathlib.Path(tempfile.mkdtemp(prefix="tolvo-soak.")), build, seed)
    try:
        print(f"{seconds} s of chaos with seed {seed}", flush=True)
        soak = Soak(world, seed)
        soak.run(seconds)
        report = Report(soak)
        report.print()
        return 1 if report.broken else 0
    finally:
        for life in world.lives:
            world.kill(life)
        shutil.rmtree(world.folder)


if __name__ == "__main__":
    sys.exit(main())
