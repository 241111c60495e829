#!/usr/bin/env python3
"""The assumption file zq.csv of the household forecast, derived from the stock as a
statistician would: every share is measured on the persons that the forecast applies it to.

    python3 examples/records/household_assumptions.py <household directory> <first year> <last year>

Reads, in the household directory, what the quota phase left in Quoten/: q.csv (the map of
small areas, the regions and types, the age bounds), zqa.csv (the template) and the micro file
dstbestu.txt (the stock records with PDO and HDO; the quota phase writes it with -M 1). Writes
zq.csv with the same shares for every year from first to last (the status quo of the stock).

The template holds the stock quotas as they are, and three of them are not shares of the
persons the forecast multiplies them with:
  ZQ3  the women in couples without children, applied to the women who are neither child nor
       parent; the template's Q3w divides by the mothers, which in the oldest class are few
       (hundreds of partners per mother). Here: women partners / women of PDO 3..7.
  ZQ4  the descendants, applied to the persons left after children, parents and partners; the
       template divides by children, parents and partners. Here: PDO 4 / PDO 4..7.
  ZQ5  the ascendants, likewise: PDO 5 / PDO 4..7, in the classes split at Alt.
ZQ1 (children per mother), ZQ2 (share of single mothers) and ZQ6 (persons alone among the
persons alone and others) are shares of what they are applied to and come from the template.
"""
import os
import sys

SEX, P03, R02, AGE, PDO = (117, 1), (123, 1), (24, 7), (251, 3), (268, 1)


def field(line, place):
    column, width = place
    return line[column - 1:column - 1 + width]


def number(text):
    text = text.strip()
    return int(text) if text.lstrip("-").isdigit() else 0


def head_of(q_csv):
    """map rule, {region key: type}, Jung, Alt from the head of q.csv"""
    lines = [line.strip() for line in open(q_csv, encoding="utf-8-sig")]
    rule = lines[lines.index("R02map") + 1]
    types = {}
    k = lines.index("G2T") + 1
    while lines[k] and lines[k][0].isdigit():
        key, _, _, typ = lines[k].split(";")
        types[int(key)] = int(typ)
        k += 1
    return rule, types, int(lines[lines.index("Jung") + 1]), int(lines[lines.index("Alt") + 1])


def key_of(rule, r02):
    if rule in ("", "0"):
        return 1
    if len(rule) != 1 or not rule.isdigit() or rule == "8":
        sys.exit("household_assumptions.py: only the map rules 0 and 1..7 are known, not '%s'" % rule)
    return int(r02.replace(" ", "0")[:int(rule)])


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    directory, first, last = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    quotas = os.path.join(directory, "Quoten")
    rule, types, young, old = head_of(os.path.join(quotas, "q.csv"))
    akl3 = lambda a: 0 if a < young else 1 if a < old else 2
    akj = lambda a: 0 if a < young else 1
    aka = lambda a: 0 if a < old else 1
    count = {}

    def add(name, *index):
        count[(name,) + index] = count.get((name,) + index, 0) + 1

    for line in open(os.path.join(quotas, "dstbestu.txt"), encoding="latin-1"):
        pdo = number(field(line, PDO))
        if pdo == 0:          # ignored, filtered or without core
            continue
        t = types.get(key_of(rule, field(line, R02)))
        if t is None:
            continue
        g, age = number(field(line, SEX)), min(number(field(line, AGE)), 99)
        if g == 2 and 3 <= pdo <= 7:
            add("women", t, akl3(age))
            if pdo == 3 and number(field(line, P03)) != 8:
                add("partners", t, akl3(age))
        if 4 <= pdo <= 7:
            add("rest", t, g, akj(age))
            add("rest_old", t, g, aka(age))
            if pdo == 4:
                add("descendants", t, g, akj(age))
            if pdo == 5:
                add("ascendants", t, g, aka(age))

    def share(part, whole):
        return count.get(part, 0) / count[whole] if count.get(whole) else 0.0

    rows = []
    for line in open(os.path.join(quotas, "zqa.csv"), encoding="utf-8-sig"):
        if not line[:1].isdigit():
            continue
        _, nr, t, g, c, value = line.strip().split(";")
        nr, t, g, c = int(nr), int(t), int(g), int(c)
        if nr == 3:
            value = share(("partners", t, c), ("women", t, c))
        elif nr == 4:
            value = share(("descendants", t, g, c), ("rest", t, g, c))
        elif nr == 5:
            value = share(("ascendants", t, g, c), ("rest_old", t, g, c))
        else:
            value = float(value.replace(",", "."))
        rows.append((nr, t, g, c, value))
    with open(os.path.join(directory, "zq.csv"), "w", encoding="utf-8", newline="\n") as out:
        out.write("# Annahmen der Haushaltsprognose: Anteile des Bestands, fortgeschrieben\n")
        out.write("# Z02;ZQnr;Typ;Geschlechtsgruppe;Altersgruppe;Wert\n")
        for year in range(first, last + 1):
            for nr, t, g, c, value in rows:
                out.write("%d;%d;%d;%d;%d;%.12g\n" % (year, nr, t, g, c, value))


if __name__ == "__main__":
    main()
