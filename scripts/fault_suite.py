#!/usr/bin/env python3
"""Fault injection for the tools of VELDOR: full disks, kills, concurrent runs, mutated input.

Runs the program of a build in a fresh installation of its own (a temporary directory with App/,
Data/veldor.ini and a copy of examples/) and sorts the outcome of every faulted run into a class:

  crash           the process died of a signal, or a sanitizer spoke
  hang            it ran longer than the time limit
  clean failure   exit status other than 0, with a message
  warning         exit status 0, and more warnings or errors than the run without the fault
  silent change   exit status 0, no more warnings, and results other than those of the run
                  without the fault (for a full disk: a result missing, empty, cut or changed)
  unchanged       exit status 0 and the results of the run without the fault

The forecast (orvane) is faulted in four ways: a full disk at a range of sizes
(VELDOR_WRITE_LIMIT, the write limit of the program's outputs), kill -9 at random moments followed
by a rerun that must give the same tables byte for byte (the date in their first line aside), two
runs of the same variant at once, and a corpus of input mutations, each marked as a misread when
the program must say something about it. The other tools (--tools) get the full disk.

The suite fails (exit status 1) on a crash, a hang, a silent change on a full disk, a cut table
after a kill, a rerun that differs, a concurrent run that breaks the results, or a silent change
of a mutation marked as a misread, for every tool. zrgem and adeton end with the same status
after a failed write as after a good run: the failure said on the console makes it a clean
failure there. With --report-only the counts of the tools named are reported without failing.

usage: fault_suite.py BUILD_DIR [--sample] [--tools orvane,dstmak,zrgem,adeton,hhprog,shp2plt (all)]
                      [--kills N] [--random N] [--seed N] [--report-only TOOLS]
"""
import argparse
import collections
import glob
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
CLASSES = ["crash", "hang", "clean failure", "warning", "silent change", "unchanged"]
SETTINGS = ("[DEFAULTS]\nDirectory=s/\nVersion=demo\nRelease=9.4\n[CSV]\nLaendereinstellung=de_DE.UTF-8\n"
            "Spaltentrennzeichen=;\n[TRACE]\nlogfile=0\n[GNUPLOT]\nsaveCmd=0\nsaveLog=0\n"
            "[RATEN]\ndirDSTmak=s/\nR02DST=3\n[HHPROG]\nDirectory=s/hh/\n")


class Installation:
    """A fresh App/ and Data/ with the study area in s/, and the program's runs in it."""

    def __init__(self, build, sample):
        self.root = tempfile.mkdtemp(prefix="veldor-faults-")
        os.makedirs(os.path.join(self.root, "App"))
        os.makedirs(os.path.join(self.root, "Data"))
        for name in os.listdir(os.path.join(build, "App")):
            shutil.copy(os.path.join(build, "App", name), os.path.join(self.root, "App", name))
        with open(os.path.join(self.root, "Data", "veldor.ini"), "w") as f:
            f.write(SETTINGS)
        self.pristine = os.path.join(self.root, "pristine")
        shutil.copytree(os.path.join(SOURCE, "examples"), self.pristine)
        if sample:
            # a short forecast: the same stages, a few years
            path = os.path.join(self.pristine, "demo.ini")
            text = open(path, encoding="utf-8").read()
            open(path, "w", encoding="utf-8").write(re.sub(r"(?m)^ENDJAHR=\d+", "ENDJAHR=2025", text))
        self.study = os.path.join(self.root, "s")

    def reset(self):
        shutil.rmtree(self.study, ignore_errors=True)
        shutil.copytree(self.pristine, self.study, symlinks=True)

    def start(self, args, env=None):
        e = dict(os.environ)
        e.update(env or {})
        return subprocess.Popen(["./App/orvane"] + args, cwd=self.root, env=e, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True, errors="replace")

    def run(self, args, env=None, limit=120):
        p = self.start(args, env)
        try:
            out, err = p.communicate(timeout=limit)
            return p.returncode, out, err, False
        except subprocess.TimeoutExpired:
            p.kill()
            out, err = p.communicate()
            return p.returncode, out, err, True

    def snapshot(self, under="s"):
        """The files under s/ with their text; the date line of a table and protocol pages aside."""
        files = {}
        top = os.path.join(self.root, under)
        for d, _, names in os.walk(top):
            for n in names:
                path = os.path.join(d, n)
                rel = os.path.relpath(path, top)
                if "/prot/" in "/" + rel or rel.endswith(".tmp") or n.startswith(".~") or n.endswith((".htm", ".html", ".txt")):
                    continue
                try:
                    data = open(path, "rb").read()
                except OSError:
                    continue
                files[rel] = data
        return files


def normal(data):
    """A table without the line that names the time of its writing."""
    lines = data.split(b"\n")
    return b"\n".join(l for l in lines if b"VELDOR " not in l[:16])


def said(root, out):
    """The warnings and errors of a run: the texts of its protocol, else the counts of its console."""
    found = collections.Counter()
    for page in glob.glob(os.path.join(root, "s", "*", "prot", "index.html")) + \
            glob.glob(os.path.join(root, "s", "*", "*", "index.html")):
        text = open(page, encoding="utf-8", errors="replace").read()
        for m in re.finditer(r"class=(warning|error)>(?:[^:<]*\d+: )?(.*?)</span>", text, re.S):
            found[m.group(1) + ": " + re.sub(r"<[^>]+>", " ", m.group(2))] += 1
    m = re.search(r"(\d+) (?:Hinweise|hints), (\d+) (?:Warnungen|warnings), (\d+) (?:Fehler|errors)", out)
    if m:
        found["console warnings"] = int(m.group(2))
        found["console errors"] = int(m.group(3))
    for line in out.splitlines():
        if re.search(r"warn|Warn|error|Fehler:", line):
            found["console: " + line] += 1
    return found


def classify(rc, out, err, timed_out, files, reference, ref_said, outputs, now_said=None):
    if timed_out:
        return "hang"
    if rc < 0 or rc >= 128 or "Sanitizer" in err or "runtime error:" in err:
        return "crash"
    if rc != 0:
        return "clean failure"
    if now_said is not None and any(n > ref_said.get(k, 0) for k, n in now_said.items()):
        return "warning"
    for rel in outputs:
        if rel not in files or normal(files[rel]) != normal(reference[rel]):
            return "silent change"
    return "unchanged"


class Tally:
    def __init__(self):
        self.rows = {}
        self.failures = []

    def add(self, group, cls, fail_if=(), detail=""):
        self.rows.setdefault(group, {c: 0 for c in CLASSES})
        self.rows[group][cls] = self.rows[group].get(cls, 0) + 1
        if cls in fail_if:
            self.failures.append(f"{group}: {cls} {detail}".rstrip())

    def extra(self, group, key, fail=False, detail=""):
        self.rows.setdefault(group, {c: 0 for c in CLASSES})
        self.rows[group][key] = self.rows[group].get(key, 0) + 1
        if fail:
            self.failures.append(f"{group}: {key} {detail}".rstrip())

    def print(self):
        for group, row in self.rows.items():
            parts = ", ".join(f"{k} {v}" for k, v in row.items() if v)
            print(f"{group}: {parts}")


# ---------------------------------------------------------------- the forecast

FORECAST = ["orvane", "-d", "s/", "-v", "demo"]

# the mutations of the corpus: (name, file, change, misread). A change is ("append", text),
# ("replace", old, new), ("cut", bytes from the end) or ("write", text). A misread must not pass
# silently: it ends with a message (warning or failure).
CORPUS = [
    ("limit row without its year", "eckgem.csv", ("append", "2;103;1000\n"), True),
    ("limit row twice", "eckgem.csv", ("append", "2024..2040;2;103;1000\n"), True),
    ("reversed years", "eckgem.csv", ("append", "2040..2024;2;103;900\n"), True),
    ("year of 10^30", "eckgem.csv", ("append", "1000000000000000000000000000000;2;103;900\n"), True),
    ("deaths row with a cell too many", "eckstrb.csv", ("append", "2025;7;315\n"), True),
    ("first occupiers without a cell", "nebb.csv", ("replace", "2024..2030;403;120", "403;120"), True),
    ("negative first occupiers", "nebb.csv", ("replace", "2024..2030;403;120", "2024..2030;403;-120"), True),
    ("target cut in its number", "eckreg.csv", ("write", "2024..2040;1;1;0;37688+50"), True),
    ("share 10^30", "reaqza.csv", ("replace", "0.25", "1e30"), True),
    ("share with text behind '#'", "reaqza.csv", ("replace", "0.25", "0.01#2"), True),
    ("NUL byte in the start population", "gem2023.csv", ("replace", "2023;", "2023\0;", 1), True),
    ("start population cut", "gem2023.csv", ("cut", 5000), False),
    ("empty death rates", "strb2024.csv", ("write", ""), True),
    ("variant without its end", "demo.ini", ("cut", 200), False),
    ("misspelt key", "demo.ini", ("replace", "STARTJAHR=", "STARTJHAR="), True),
    ("file that evaluates itself", "rec.txt", ("write", "eval_file('rec')\n"), False),
]
SAMPLE = {"limit row without its year", "target cut in its number", "share with text behind '#'",
          "negative first occupiers", "misspelt key", "file that evaluates itself"}


def mutate(study, name, change):
    path = os.path.join(study, name)
    kind = change[0]
    if kind == "append":
        with open(path, "a", encoding="utf-8") as f:
            f.write(change[1])
    elif kind == "write":
        with open(path, "w", encoding="utf-8") as f:
            f.write(change[1])
    elif kind == "replace":
        text = open(path, encoding="utf-8").read()
        count = change[3] if len(change) > 3 else -1
        open(path, "w", encoding="utf-8").write(text.replace(change[1], change[2], count))
    elif kind == "cut":
        data = open(path, "rb").read()
        open(path, "wb").write(data[:max(0, len(data) - change[1])])


def random_mutation(study, rng):
    names = sorted(n for n in os.listdir(study) if n.endswith(".csv") or n.endswith(".ini"))
    name = rng.choice(names)
    path = os.path.join(study, name)
    data = bytearray(open(path, "rb").read())
    how = rng.choice(["flip", "cut", "insert", "delete"])
    if data:
        at = rng.randrange(len(data))
        if how == "flip":
            data[at] = rng.choice(b"0123456789;.,-+e#\n\0\xff ")
        elif how == "cut":
            del data[at:]
        elif how == "insert":
            data[at:at] = rng.choice([b";", b"\n", b"9" * 40, b"..", b"nan", b"inf", b"1e308", b"-"])
        else:
            del data[at:at + rng.randrange(1, 20)]
    open(path, "wb").write(bytes(data))
    return f"{name} {how}"


def tables_cut(study):
    """The result tables that do not end with a line end: cut by a kill."""
    cut = []
    top = os.path.join(study, "demo")
    for d, _, names in os.walk(top):
        for n in names:
            if not n.endswith(".csv") or n.startswith(".~"):
                continue
            path = os.path.join(d, n)
            data = open(path, "rb").read()
            if data and not data.endswith(b"\n"):
                cut.append(os.path.relpath(path, top))
    return cut


def forecast_suite(inst, tally, args, rng):
    inst.reset()
    t0 = time.time()
    rc, out, err, _ = inst.run(FORECAST)
    seconds = time.time() - t0
    if rc != 0:
        print("the forecast without faults failed:\n" + out[-2000:] + err[-2000:])
        tally.failures.append("orvane: the run without faults failed")
        return
    reference = inst.snapshot()
    ref_said = said(inst.root, out)
    outputs = sorted(r for r in reference if r.startswith("demo/"))
    total = sum(len(reference[r]) for r in outputs)
    limit = max(30.0, 20 * seconds)

    # full disk at sizes from nothing to beyond the results
    steps = 2 if args.sample else 24
    sizes = sorted({0, 100} | {int(total * (k / steps) ** 2) for k in range(1, steps + 1)} | {total * 3})
    for size in sizes:
        inst.reset()
        rc, out, err, hung = inst.run(FORECAST, {"VELDOR_WRITE_LIMIT": str(size)}, limit)
        cls = classify(rc, out, err, hung, inst.snapshot(), reference, ref_said, outputs)
        if cls == "clean failure" and not re.search(r"Fatal output error in csv: \S+/", out + err):
            tally.extra("orvane full disk", "failure without path", True, f"at {size} bytes")
        cut = tables_cut(inst.study)
        if cut and rc == 0:
            cls = "silent change"
        tally.add("orvane full disk", cls, ("crash", "hang", "silent change"), f"at {size} bytes")

    # kill -9 at random moments, then a rerun
    for k in range(args.kills):
        inst.reset()
        p = inst.start(FORECAST)
        time.sleep(rng.uniform(0.05, 1.0) * seconds)
        if p.poll() is None:
            p.send_signal(signal.SIGKILL)
        p.communicate()
        cut = tables_cut(inst.study)
        tally.extra("orvane kill -9", "cut table" if cut else "no cut table", bool(cut), " ".join(cut))
        rc, out, err, hung = inst.run(FORECAST, None, limit)
        files = inst.snapshot()
        differ = [r for r in outputs if r not in files or normal(files[r]) != normal(reference[r])]
        same = rc == 0 and not differ
        tally.extra("orvane kill -9", "rerun identical" if same else "rerun differs", not same,
                    f"status {rc}: " + " ".join(differ[:8]))

    # two runs of the variant at once
    for k in range(1 if args.sample else 6):
        inst.reset()
        a = inst.start(FORECAST)
        time.sleep(rng.uniform(0.0, 0.5) * seconds)
        b = inst.start(FORECAST)
        out_a, err_a = a.communicate(timeout=limit)
        out_b, err_b = b.communicate(timeout=limit)
        files = inst.snapshot()
        same = all(r in files and normal(files[r]) == normal(reference[r]) for r in outputs)
        codes = sorted([a.returncode, b.returncode])
        refused = "in use by the running process" in err_a + err_b
        if codes == [0, 1] and refused and same:
            key = "second run refused, results whole"
        elif codes == [0, 0] and same:
            key = "runs one after the other, results whole"
        else:
            key = "results broken"
        tally.extra("orvane concurrent", key, key == "results broken", f"status {codes}")

    # the corpus of mutations
    # the sample: the misreads of the issue that began this suite, and the self-evaluating file
    corpus = [c for c in CORPUS if not args.sample or c[0] in SAMPLE]
    for name, file, change, misread in corpus:
        inst.reset()
        mutate(inst.study, file, change)
        extra = ["-o", "eval_file('rec')"] if file == "rec.txt" else []
        rc, out, err, hung = inst.run(FORECAST + extra, None, limit)
        cls = classify(rc, out, err, hung, inst.snapshot(), reference, ref_said, outputs, said(inst.root, out))
        fail = ("crash", "hang", "silent change") if misread else ("crash", "hang")
        tally.add("orvane mutations", cls, fail, f"({name})")
        if args.verbose:
            print(f"  mutation {name}: {cls}")
    for k in range(args.random):
        inst.reset()
        what = random_mutation(inst.study, rng)
        rc, out, err, hung = inst.run(FORECAST, None, limit)
        cls = classify(rc, out, err, hung, inst.snapshot(), reference, ref_said, outputs, said(inst.root, out))
        tally.add("orvane random mutations", cls, ("crash", "hang"), f"({what})")


# ---------------------------------------------------------------- the other tools

def prepare_tool(inst, tool):
    """Sets up what the tool reads; its command line."""
    s = inst.study
    if tool in ("dstmak", "hhprog"):
        subprocess.run([sys.executable, os.path.join(SOURCE, "examples", "records", "generate_records.py"), s],
                       check=True, stdout=subprocess.DEVNULL)
    if tool == "dstmak":
        return ["dstmak", "makro"]
    if tool == "hhprog":
        os.makedirs(os.path.join(s, "hh"), exist_ok=True)
        shutil.copy(os.path.join(s, "dstbest2023.txt"), os.path.join(s, "hh", "dstbest.txt"))
        rows = []
        for line in open(os.path.join(s, "reftyp.csv"), encoding="utf-8-sig"):
            cells = line.rstrip("\n").split(";")
            if not line.startswith("#") and ".." in cells[0]:
                lo, hi = cells[0].split("..")
                for k in range(int(lo), int(hi) + 1):
                    rows.append(";".join([str(k)] + cells[1:]))
            else:
                rows.append(line.rstrip("\n"))
        open(os.path.join(s, "hh", "reftyp.csv"), "w", encoding="utf-8").write("\n".join(rows) + "\n")
        open(os.path.join(s, "hh", "hhprog.ini"), "w").write("[HHPROG]\nR02map=3\nQtypCol=11\n")
        return ["hhprog", "-P", "0", "-M", "1"]
    # zrgem, adeton and shp2plt work on the results of a forecast
    inst.run(FORECAST)
    if tool == "zrgem":
        return ["zrgem", "-o", "zr_faults", "-a", "$i,$i,$i,$i,$i"]
    if tool == "adeton":
        # forty rows of three columns and column targets that add up to the table's total (2459)
        rows = "".join(f"{10 + i % 5};{20 + i % 3};{30 - i % 4}\n" for i in range(40))
        open(os.path.join(s, "adeton_in.csv"), "w").write("# Tabelle\n" + rows + "500;839;1120\n" * 2)
        return ["adeton", "s/adeton_in.csv", "s/adeton_out.csv"]
    if tool == "shp2plt":
        return ["shp2plt", "-d", "s/", "-r", "demo/gem2024.csv", "-s", "2024", "-c", "-l", "-g", "karte.png", "gebiete"]
    raise ValueError(tool)


# what a tool whose exit status does not change says on the console when an output fails
WRITE_FAILURE = re.compile(r"Fatal output error|No space left on device|kein Speicherplatz")


def tool_suite(inst, tally, tool, args, strict):
    inst.reset()
    command = prepare_tool(inst, tool)
    before = inst.snapshot()
    keep = os.path.join(inst.root, "prepared")
    shutil.rmtree(keep, ignore_errors=True)
    shutil.copytree(inst.study, keep, symlinks=True)
    rc, out, err, _ = inst.run(command)
    after = inst.snapshot()
    outputs = sorted(r for r in after if before.get(r) != after[r])
    ref_said = said(inst.root, out)
    if rc != 0 and tool != "zrgem":
        tally.failures.append(f"{tool}: the run without faults ended with status {rc}")
        print(out[-1500:] + err[-1500:])
        return
    total = sum(len(after[r]) for r in outputs)
    steps = 4 if args.sample else 12
    sizes = sorted({0, 100} | {int(total * (k / steps) ** 2) for k in range(1, steps + 1)})
    group = f"{tool} full disk"
    for size in sizes:
        shutil.rmtree(inst.study, ignore_errors=True)
        shutil.copytree(keep, inst.study, symlinks=True)
        rc2, out2, err2, hung = inst.run(command, {"VELDOR_WRITE_LIMIT": str(size)})
        if tool in ("zrgem", "adeton") and rc2 == rc:
            # their status is the same after a failed write: the console must say it instead
            rc2 = 1 if WRITE_FAILURE.search(out2 + err2) else 0
        cls = classify(rc2, out2, err2, hung, inst.snapshot(), after, ref_said, outputs)
        tally.add(group, cls, ("crash", "hang", "silent change") if strict else ("crash", "hang"), f"at {size} bytes")


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("build")
    ap.add_argument("--sample", action="store_true", help="a short forecast and few faults (the CTest case)")
    ap.add_argument("--tools", default="orvane,dstmak,zrgem,adeton,hhprog,shp2plt")
    ap.add_argument("--report-only", default="",
                    help="tools whose silent changes are counted without failing the suite")
    ap.add_argument("--kills", type=int, default=None)
    ap.add_argument("--random", type=int, default=None)
    ap.add_argument("--seed", type=int, default=29)
    ap.add_argument("--keep", action="store_true")
    ap.add_argument("--verbose", action="store_true")
    args = ap.parse_args()
    if args.kills is None:
        args.kills = 1 if args.sample else 13
    if args.random is None:
        args.random = 0 if args.sample else 100
    rng = random.Random(args.seed)
    inst = Installation(os.path.abspath(args.build), args.sample)
    tally = Tally()
    try:
        for tool in [t for t in args.tools.split(",") if t]:
            if tool == "orvane":
                forecast_suite(inst, tally, args, rng)
            else:
                tool_suite(inst, tally, tool, args, tool not in args.report_only.split(","))
    finally:
        if not args.keep:
            shutil.rmtree(inst.root, ignore_errors=True)
        else:
            print("kept:", inst.root)
    tally.print()
    if tally.failures:
        print("failures:")
        for f in tally.failures:
            print("  " + f)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
