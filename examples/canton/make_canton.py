#!/usr/bin/env python3
"""Turns the Swiss Federal Statistical Office's cantonal scenarios (data/) into a variant of the
forecast: one region, population groups 1 Swiss and 2 foreign, fertility rates with the share of
Swiss children of foreign mothers as the quota of the child's group, death rates, naturalisation
as group change, emigration abroad (external area 1) and to other cantons (area 2) as rates,
immigrants from abroad (area 1) and from other cantons (area 2) as numbers of the region (K6).

    python3 make_canton.py --scenario reference --out DIR [--first 2025] [--last 2055] [--start fso|observed]

writes DIR/aargau.ini, the input tables beside it and DIR/fso.csv, the office's own projection
(year;BG;GG;AG;count) that compare.py sets the forecast against. Source: Swiss Federal
Statistical Office (FSO).
"""
import argparse
import csv
import gzip
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
NATIONALITY = {"ch": 1, "int": 2}   # population group
SEX = {"m": 1, "f": 2}              # sex group
REGION = 19                          # the canton's number
AGES = 101                           # 0 to 100, the last one 100 and over
COLUMNS = ["nat", "sex", "age", "start_n", "year", "scen", "birthrate", "int_mothers", "mor", "emi_int",
           "emi_nat", "acq", "imm_int_n", "imm_nat_n", "fso_projection_n"]


class DataError(Exception):
    pass


def read_rows(path, needed):
    """The rows of a gzipped table as dictionaries; a missing column is an error naming it."""
    try:
        with gzip.open(path, "rt", encoding="utf-8", newline="") as f:
            reader = csv.DictReader(f)
            missing = [c for c in needed if c not in (reader.fieldnames or [])]
            if missing:
                raise DataError(f"{path}: column {', '.join(missing)} missing (the file has {', '.join(reader.fieldnames or [])})")
            rows = []
            for line, row in enumerate(reader, start=2):
                row["_line"] = line
                rows.append(row)
            return rows
    except OSError as e:
        raise DataError(f"{path}: {e.strerror or e}") from None


def number(row, column, path):
    try:
        return float(row[column])
    except (TypeError, ValueError):
        raise DataError(f"{path}: line {row['_line']}: column {column}: not a number: {row[column]!r}") from None


def cohort(row, path):
    try:
        return NATIONALITY[row["nat"]], SEX[row["sex"]], int(row["age"])
    except (KeyError, ValueError):
        raise DataError(f"{path}: line {row['_line']}: unknown cohort {row['nat']!r}, {row['sex']!r}, {row['age']!r}") from None


def fmt(v):
    return repr(float(v)) if v != int(v) else str(int(v))


def write(path, head, lines):
    with open(path, "w", encoding="utf-8") as f:
        for h in head:
            f.write("# " + h + "\n")
        for line in lines:
            f.write(";".join(str(c) for c in line) + "\n")


def main(argv):
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--scenario", default="reference", help="reference, high or low")
    p.add_argument("--out", required=True, help="directory of the variant")
    p.add_argument("--data", default=os.path.join(HERE, "data"), help="directory of the FSO tables")
    p.add_argument("--first", type=int, help="first forecast year (default: the first of the data)")
    p.add_argument("--last", type=int, help="last forecast year (default: the last of the data)")
    p.add_argument("--start", choices=["fso", "observed"], default="fso",
                   help="start population: the FSO's own start of the first year (default) or the observed "
                        "population of 31 December 2024")
    p.add_argument("--regions", type=int, default=1,
                   help="split the canton into this many equal regions (keys 1901, 1902, ...), each with its "
                        "share of the start and of the arrivals: a large study area for timing the reader")
    a = p.parse_args(argv)
    if a.regions < 1 or a.regions > 9999:
        raise DataError(f"--regions {a.regions}: from 1 to 9999")

    params = os.path.join(a.data, "fso_parameters.csv.gz")
    rows = read_rows(params, COLUMNS)
    scenarios = sorted({r["scen"] for r in rows})
    if a.scenario not in scenarios:
        raise DataError(f"{params}: scenario {a.scenario!r} not in the data (it holds {', '.join(scenarios)})")
    rows = [r for r in rows if r["scen"] == a.scenario]
    years = sorted({int(r["year"]) for r in rows})
    first = years[0] if a.first is None else a.first
    last = years[-1] if a.last is None else a.last
    for name, y in (("--first", first), ("--last", last)):
        if y not in years:
            raise DataError(f"{name} {y}: year outside the data ({years[0]} to {years[-1]})")
    if last < first:
        raise DataError(f"--last {last} before --first {first}")

    # the parameters by year and cohort
    P = {}
    for r in rows:
        y = int(r["year"])
        if first <= y <= last:
            P[(y,) + cohort(r, params)] = r
    for y in range(first, last + 1):
        for b in (1, 2):
            for g in (1, 2):
                for age in range(AGES):
                    if (y, b, g, age) not in P:
                        raise DataError(f"{params}: scenario {a.scenario}, year {y}: no row for nat {b}, sex {g}, age {age}")
    val = lambda y, b, g, age, c: number(P[(y, b, g, age)], c, params)

    os.makedirs(a.out, exist_ok=True)
    out = lambda name: os.path.join(a.out, name)
    source = "Quelle: Bundesamt für Statistik (BFS), kantonale Bevölkerungsszenarien 2025, Szenario " + a.scenario

    regions = [REGION] if a.regions == 1 else [REGION * 10000 + i for i in range(1, a.regions + 1)]
    share = 1.0 / len(regions)
    write(out("reftyp.csv"), [source, "GKZ;Name;TYG;TYS;TYB;TYZZA;TYQWA;TYNEE;TYREA;TYWBG;TYAGF;TYHH;AGG"],
          [[z, "Aargau" if len(regions) == 1 else f"Aargau {i + 1}", 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1]
           for i, z in enumerate(regions)])

    # the start: the office's own start of the first year is its population of the year before at
    # the age reached in the year; one age lower it is the end of the year before
    start_year = first - 1
    lines = []
    if a.start == "fso":
        for b in (1, 2):
            for g in (1, 2):
                for age in range(1, AGES):
                    v = val(first, b, g, age, "start_n")
                    if v:
                        lines += [[start_year, z, b, g, age - 1, fmt(v * share)] for z in regions]
    else:
        popfile = os.path.join(a.data, "fso_population.csv.gz")
        pop = read_rows(popfile, ["year", "nat", "sex", "age", "n"])
        for r in pop:
            if int(r["year"]) != start_year:
                raise DataError(f"{popfile}: line {r['_line']}: year {r['year']}, the start of --first {first} is {start_year}")
            b, g, age = cohort(r, popfile)
            v = number(r, "n", popfile)
            if v:
                lines += [[start_year, z, b, g, age, fmt(v * share)] for z in regions]
    write(out(f"gem{start_year}.csv"), [source, "Jahr;GKZ;BG;GG;AG;Anzahl"], lines)

    quotas, fso = [], []
    for y in range(first, last + 1):
        fruc, strb, bgwr, wegz, zuvg = [], [], [], [], []
        for b in (1, 2):
            for age in range(AGES):
                f = val(y, b, 2, age, "birthrate")
                if f:
                    fruc.append([1, b, age, fmt(f)])
            for g in (1, 2):
                for age in range(AGES):
                    strb.append([1, b, g, age, fmt(val(y, b, g, age, "mor"))])
                    for area, column in ((1, "emi_int"), (2, "emi_nat")):
                        v = val(y, b, g, age, column)
                        if v:
                            wegz.append([1, area, b, g, age, fmt(v)])
                    for area, column in ((1, "imm_int_n"), (2, "imm_nat_n")):
                        v = val(y, b, g, age, column)
                        if v:
                            zuvg += [[y, area, z, b, g, age, fmt(v * share)] for z in regions]
                    if b == 2:
                        v = val(y, b, g, age, "acq")
                        if v:
                            bgwr.append([1, 2, 1, g, age, fmt(v)])
                    fso.append([y, b, g, age, fmt(val(y, b, g, age, "fso_projection_n"))])
        swiss = val(y, 2, 2, 0, "int_mothers")
        quotas += [[y, 1, 1, 1, 1], [y, 1, 2, 1, fmt(swiss)], [y, 1, 2, 2, fmt(1 - swiss)]]
        write(out(f"fruc{y}.csv"), [source, "TYG;BG;AG;Geburten je Frau"], fruc)
        write(out(f"strb{y}.csv"), [source, "TYS;BG;GG;AG;Sterbewahrscheinlichkeit"], strb)
        write(out(f"bgwr{y}.csv"), [source, "TYWBG;BG von;BG nach;GG;AG;Einbürgerungsrate"], bgwr)
        write(out(f"wegz{y}.csv"), [source, "TYQWA;TYA (1 Ausland, 2 andere Kantone);BG;GG;AG;Rate"], wegz)
        write(out(f"zuvg{y}.csv"), [source, "Jahr;TYA (1 Ausland, 2 andere Kantone);GKZ;BG;GG;AG;Anzahl"], zuvg)
    write(out("bgwqg.csv"), [source, "Jahr;TYG;BG Mutter;BG Kind;Anteil (Kinder ausländischer Mütter, die Schweizer sind)"],
          quotas)
    write(out("zuvol.csv"), [source, "Jahr;TYA;BG;GG;Anzahl (bei K6 nur gelesen; die Zuzüge stehen in zuvg)"],
          [[f"{first}..{last}", "*", "*", "*", 1]])
    write(out("fso.csv"), [source, "Jahr;BG;GG;AG;Bevölkerung am 31.12. (Projektion des BFS)"], fso)

    with open(out("aargau.ini"), "w", encoding="utf-8") as f:
        f.write(f"""[NOTIZ]
000=Kanton Aargau, Szenario {a.scenario} des BFS ({first} bis {last}); Quelle: Bundesamt für Statistik (BFS)
[DEFAULTS]
RUNFORECAST=1
STARTJAHR={first}
ENDJAHR={last}
AUSGABE_PROTOKOLL=1
GAM=0
ABEW=1
ABEWGEM=1
AusgabeNull=0
STRunden=0
AUSGABE_BINNEN_MATRIX=0
AUSGABE_AUSSEN_MATRIX=0
DIFF_G=0
PYRAMIDE=0
PLOT_DATEN=0
NITER=100
EPS=0.0001
SCE=1
SUMTOL=1e-06
DIFF_BG=0
DIFF_GG=0
DIFF_AG=0
DELAY=1000
[METHODE]
NAG={AGES}
NGG=2
NBG=2
NTYA=2
GP={105 / 205!r}
ANPASSUNG_WEGZUG=A0
ANPASSUNG_ZUZUG=B0
ZIELWERT_WEGZUG=C0
NEUBAU=D0
RUECKBAU=E0
GEBURTENECKWERT=G0
BINNENWANDERUNG=I0
AUSSENWANDERUNGSDATEN=K6
ZIELWERT_BESTAND=M0
ZIELWERT_AUSSENWANDERUNGSSALDO=N0
ZIELWERTE=P0
ANSTALTSBEVOELKERUNG=R0
STERBEECKWERT=S0
BEVOELKERUNGSBEWEGUNGEN=T1
ATTRAKTIVITAET=V0
BEVGRPWECHSEL=W1
BGWQG=Y1
G=0
RELEASE=
GRND=0
GNGZ=1
GNTYG=1
GNTYS=1
GNTYB=1
GNTYZZA=1
GNTYQWA=1
GNTYNEE=1
GNTYREA=1
GNTYWBG=1
GNRA=1
GPAR=0
[LA]
AUSGABE_EINZELWERTE=1
MATRIX_AUSGABEFORMAT=0
FMT_ANZAHL=%.1f
FMT_RATE=%.6f
[ZR]
RUNZR=0
ZRGEM=zr_gem
GKZ=$i
BG=$i
GG=$i
AG=$i
""")
    print(f"{a.out}: variant aargau, scenario {a.scenario}, {first} to {last}")
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except DataError as e:
        print(f"make_canton.py: {e}", file=sys.stderr)
        sys.exit(1)
