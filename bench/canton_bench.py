#!/usr/bin/env python3
"""Times the forecast of the canton split into many regions, the study area whose reading of
the in-migration table (161,600 lines a year at 200 regions) and writing of the yearly tables
dominate: the whole command, start-up included, as a user runs it.

    python3 bench/canton_bench.py [--regions 200] [--runs 5] [--app BUILD/App] [--vs OTHER/App]

Each run starts `orvane orvane -d c/ -v aargau` in a directory of its own that holds the App
directory given and a settings file without the long tables, and the user, system and wall
seconds of the finished process are taken from the operating system. With --vs the two builds
run in turn (A B A B ...), after one run of each that is not counted, and the ratio of A to B is
taken pair by pair, so that a machine whose speed drifts does not tilt it; the medians are
printed. The variant is made by examples/canton/make_canton.py from the shipped data."""
import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)


def prepare(work, app, variant):
    """a run directory: App (a link), Data/veldor.ini, the variant's tables"""
    os.makedirs(os.path.join(work, "Data"))
    os.symlink(os.path.abspath(app), os.path.join(work, "App"))
    with open(os.path.join(work, "Data", "veldor.ini"), "w", encoding="utf-8") as f:
        f.write("[DEFAULTS]\nRelease=9.4\n[CSV]\nLangeTabellen=0\nSpaltentrennzeichen=;\n")
    shutil.copytree(variant, os.path.join(work, "c"))


def run_once(work):
    """user, system and wall seconds of one forecast"""
    start = time.monotonic()
    with open(os.path.join(work, "run.log"), "wb") as log:
        p = subprocess.Popen(["./App/orvane", "orvane", "-d", "c/", "-v", "aargau"], cwd=work, stdout=log,
                             stderr=subprocess.STDOUT)
        _, status, usage = os.wait4(p.pid, 0)
    wall = time.monotonic() - start
    if os.waitstatus_to_exitcode(status) != 0:
        with open(os.path.join(work, "run.log"), encoding="utf-8", errors="replace") as log:
            tail = log.read()[-2000:]
        raise SystemExit(f"the forecast in {work} ended with status {os.waitstatus_to_exitcode(status)}:\n{tail}")
    return usage.ru_utime, usage.ru_stime, wall


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--regions", type=int, default=200, help="regions of the split canton (default 200)")
    ap.add_argument("--runs", type=int, default=5, help="counted runs of each build (default 5)")
    ap.add_argument("--app", default=os.path.join(ROOT, "build", "App"), help="the App directory of the build to time")
    ap.add_argument("--vs", help="the App directory of a second build, the baseline")
    a = ap.parse_args()
    if a.regions < 1 or a.runs < 1:
        sys.exit("--regions and --runs are numbers above 0")
    builds = [("A", a.app)] + ([("B", a.vs)] if a.vs else [])
    for _, app in builds:
        if not os.access(os.path.join(app, "orvane"), os.X_OK):
            sys.exit(f"no orvane in {app}")
    tmp = tempfile.mkdtemp(prefix="canton_bench")
    try:
        variant = os.path.join(tmp, "variant")
        subprocess.run([sys.executable, os.path.join(ROOT, "examples", "canton", "make_canton.py"), "--scenario",
                        "reference", "--regions", str(a.regions), "--out", variant], check=True,
                       stdout=subprocess.DEVNULL)
        works = {}
        for name, app in builds:
            works[name] = os.path.join(tmp, name)
            prepare(works[name], app, variant)
        times = {name: [] for name, _ in builds}
        for r in range(a.runs + 1):
            for name, _ in builds:
                t = run_once(works[name])
                if r > 0:
                    times[name].append(t)
        print(f"canton of {a.regions} regions, 31 years, {a.runs} runs (medians)")
        for name, app in builds:
            u, s, w = (statistics.median(x[i] for x in times[name]) for i in range(3))
            print(f"{name} {app}: user {u:.3f} s, system {s:.3f} s, wall {w:.3f} s")
        if a.vs:
            for i, what in enumerate(("user", "system", "wall")):
                ratio = statistics.median(x[i] / y[i] if y[i] > 0 else 0.0 for x, y in zip(times["A"], times["B"]))
                print(f"A/B {what} {ratio:.3f}")
    finally:
        shutil.rmtree(tmp, ignore_errors=True)


if __name__ == "__main__":
    main()
