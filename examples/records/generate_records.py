#!/usr/bin/env python3
"""Synthetic statistics data sets of the demo town, in the fixed-width record layouts.

Writes dstbest2023.txt (one stock record per person at 31.12.2023, exactly the start
population of ../gem2023.csv, the persons grouped into households) and dstbew2024.txt
(births, deaths and moves of 2024). No real microdata: every value comes from a seeded
random generator, so the files are the same on every run.

    python3 examples/records/generate_records.py [output directory] [population table]

The population table defaults to ../gem2023.csv, the start population of the demo.
"""
import os
import random
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
RECORD = 350


def put(record, column, width, value):
    """Writes value right-aligned (numbers) or left-aligned (text) into its columns."""
    text = str(value)
    text = text.rjust(width) if isinstance(value, int) else text.ljust(width)
    assert len(text) == width, (column, width, value)
    record[column - 1:column - 1 + width] = list(text)


def expand(cell):
    if ".." in cell:
        a, b = cell.split("..")
        return range(int(a), int(b) + 1)
    return [int(cell)]


def persons_of(gem):
    """(region, group, sex, age) for every person of the population table."""
    people = []
    for line in open(gem, encoding="utf-8"):
        line = line.strip()
        if not line or line.startswith("#"):
            continue
        year, regions, groups, sexes, ages, count = line.split(";")
        for region in expand(regions):
            for group in expand(groups):
                for sex in expand(sexes):
                    for age in expand(ages):
                        people.extend([(region, group, sex, age)] * int(count))
    return people


def common(record, region, group, sex, birth, nationality):
    put(record, 1, 8, 9001000)             # R01 office and municipality
    put(record, 24, 7, region * 10000)     # R02 block: region key and four digits of block
    put(record, 31, 1, "1")                # W01 main residence
    put(record, 109, 8, birth)             # P01 date of birth
    put(record, 117, 1, str(sex))          # P02 sex
    put(record, 132, 3, str(nationality).rjust(3))  # P05 nationality, 0 German


def households_of(members, rng):
    """Groups the persons of a region into households: families with children (couples or
    single mothers, now and then with a grandparent), couples, persons alone, descendant and
    ascendant pairs and shared flats. Each person is a dict that gets its household fields.
    The mix is that of a German town: close to half of the households are persons alone,
    about three in ten couples without children, a sixth to a fifth families, some 1.9
    persons per household."""
    pool = {"kid": [], "woman": [], "man": [], "old": []}
    for region, group, sex, age in members:
        person = {"region": region, "group": group, "sex": sex, "age": age}
        key = "kid" if age < 18 else "old" if age >= 65 else "woman" if sex == 2 else "man"
        pool[key].append(person)
    for persons in pool.values():
        rng.shuffle(persons)

    def take(key, low, high):
        for i, person in enumerate(pool[key]):
            if low <= person["age"] <= high:
                return pool[key].pop(i)
        return None

    households = []
    while pool["kid"]:
        mother = take("woman", 22, 49)
        if mother is None:
            break
        family = [dict(mother, role="mother")]
        if rng.random() < 0.85:
            father = take("man", mother["age"] - 5, mother["age"] + 10)
            if father:
                family.append(dict(father, role="father"))
        for _ in range(min(rng.choice([1, 1, 2, 2, 2, 3, 4]), len(pool["kid"]))):
            family.append(dict(pool["kid"].pop(), role="child"))
        if rng.random() < 0.06 and pool["old"]:
            family.append(dict(pool["old"].pop(), role="grandparent"))
        households.append(family)
    families = list(households)
    while pool["kid"]:
        rng.choice(families).append(dict(pool["kid"].pop(), role="child"))

    adults = pool["woman"] + pool["man"] + pool["old"]
    rng.shuffle(adults)
    women = [p for p in adults if p["sex"] == 2]
    men = [p for p in adults if p["sex"] == 1]
    used = set()

    def free(persons):
        while persons and id(persons[-1]) in used:
            persons.pop()
        return persons[-1] if persons else None

    for person in adults:
        if id(person) in used:
            continue
        used.add(id(person))
        r = rng.random()
        if r < 0.38:
            partner = free(men if person["sex"] == 2 else women)
            if partner is not None:
                used.add(id(partner))
                same = rng.random() < 0.02
                if same:   # a partnership of two persons of the same sex stays with the woman alone
                    households.append([dict(person, role="alone")])
                    used.discard(id(partner))
                    continue
                first, second = (person, partner) if person["sex"] == 2 else (partner, person)
                households.append([dict(first, role="wife"), dict(second, role="husband")])
                continue
        if r < 0.42 and person["age"] >= 60:
            child = free(women if rng.random() < 0.5 else men)
            if child is not None and child["age"] < person["age"] - 18:
                used.add(id(child))
                households.append([dict(person, role="ascendant"), dict(child, role="descendant")])
                continue
        if r < 0.46:
            mate = free(women if rng.random() < 0.5 else men)
            if mate is not None:
                used.add(id(mate))
                households.append([dict(person, role="other"), dict(mate, role="other")])
                continue
        households.append([dict(person, role="alone")])
    return households


def stock(people, rng):
    lines = []
    by_region = {}
    for p in people:
        by_region.setdefault(p[0], []).append(p)
    address = 0
    for region in sorted(by_region):
        for household in households_of(by_region[region], rng):
            address += 1
            size = len(household)
            kids = sum(1 for p in household if p["role"] == "child")
            family = kids > 0
            couple = any(p["role"] == "father" for p in household)
            for number, p in enumerate(household):
                record = [" "] * RECORD
                group, sex, age = p["group"], p["sex"], p["age"]
                nationality = 0 if group == 1 else rng.choice([100, 163, 221, 475])
                common(record, region, group, sex, (2023 - age) * 10000 + rng.randint(1, 12) * 100 + rng.randint(1, 28),
                       nationality)
                put(record, 9, 5, address // 1000 + 1)   # R03U1 street
                put(record, 14, 4, address % 1000)       # R03U2 house number
                role = p["role"]
                married = role in ("wife", "husband") or (couple and role in ("mother", "father"))
                put(record, 123, 1, "1" if role == "child" or (not married and age < 30) else "2" if married else "3")  # P03
                put(record, 179, 1, "5" if family else "1")   # KERNS kind of core family
                put(record, 183, 4, 1)                        # HHNR household at the address
                if role in ("mother", "child"):
                    put(record, 187, 2, "1 ")                 # HZUO member of the core family
                if role == "grandparent":
                    put(record, 187, 2, 4)
                if role in ("mother", "wife"):
                    put(record, 189, 1, "1" if married else "3")   # HPAAR
                if role == "mother" and not couple:
                    put(record, 189, 1, "3")
                if role in ("father", "husband"):
                    put(record, 189, 1, "2")
                if role in ("mother", "father"):
                    put(record, 190, 1, "1")                  # HELT parent
                if role in ("grandparent", "ascendant"):
                    put(record, 191, 1, "1")                  # HVOR ascendant
                if role == "descendant":
                    put(record, 192, 1, "1")                  # HNACH descendant
                put(record, 195, 1, "1")                      # W04
                put(record, 227, 8, 20231231)                 # Z02 reference date
                put(record, 251, 3, age)                      # A01 age
                put(record, 256, 1, "1" if number == 0 else "0")   # A03 first person of the household
                put(record, 260, 2, size)                     # A06 persons in the household
                put(record, 262, 2, kids)                     # A07 children in the household
                put(record, 350, 1, 1)                        # DS350 record end
                lines.append("".join(record))
    return lines


def movements(people, rng):
    regions = sorted({p[0] for p in people})
    lines = []

    def event(region, group, sex, age, b03, b04, b07, **extra):
        record = [" "] * RECORD
        nationality = 0 if group == 1 else 163
        day = 20240000 + rng.randint(1, 12) * 100 + rng.randint(1, 28)
        birth_year = 2024 - age
        common(record, region, group, sex, birth_year * 10000 + 101, nationality)
        put(record, 148, 8, day)            # Z01 event date
        put(record, 156, 8, day)            # Z02 registration date
        put(record, 170, 1, str(b03))       # B03 1 in, 2 out
        put(record, 171, 1, str(b04))       # B04 1 birth, 2 death, 3 across the boundary, 4 inside
        put(record, 172, 2, str(extra.get("b05", 0)).rjust(2))
        put(record, 175, 1, str(b07))       # B07 kind of residence
        put(record, 243, 3, str(extra.get("before", nationality)).rjust(3))  # P05QZ earlier nationality
        put(record, 250, 1, extra.get("neub", 0))
        if "mother" in extra:
            put(record, 183, 2, extra["mother"])               # G01 age of the mother
            put(record, 185, 3, str(extra["mother_nat"]).rjust(3))
        if "origin" in extra:
            put(record, 77, 7, extra["origin"] * 10000)        # RQZ block of origin
        if "outside" in extra:
            put(record, 85, 3, str(extra["outside"]).rjust(3, "0"))   # W40 state or country
            put(record, 88, 8, extra["outside_place"])                # W41 place
        put(record, 350, 1, 1)
        lines.append("".join(record))

    for region, group, sex, age in people:
        r = rng.random()
        if 20 <= age <= 42 and sex == 2 and r < 0.05:
            event(region, group, rng.choice([1, 2]), 0, 1, 1, 1, mother=age, mother_nat=0 if group == 1 else 163)
        elif r < 0.002 + (0.08 if age > 80 else 0.01 if age > 60 else 0.0):
            event(region, group, sex, age, 2, 2, 1)
        elif r < 0.09:
            event(region, group, sex, age, 2, 3, 1, outside=rng.choice([5, 6, 9, 150]), outside_place=rng.choice([111000, 314000]))
        elif r < 0.17:
            event(region, group, sex, age, 1, 3, 1, outside=rng.choice([5, 6, 9, 150]), outside_place=rng.choice([111000, 314000]))
        elif r < 0.25:
            event(rng.choice(regions), group, sex, age, 2, 4, 1, origin=region)
        elif r < 0.252 and group == 2:
            event(region, 1, sex, age, 2, 9, 1, b05=4, before=163)
    return lines


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(HERE)
    rng = random.Random(2023)
    gem = sys.argv[2] if len(sys.argv) > 2 else os.path.join(os.path.dirname(HERE), "gem2023.csv")
    people = persons_of(gem)
    with open(os.path.join(out, "dstbest2023.txt"), "w", encoding="ascii", newline="\n") as f:
        f.write("\n".join(stock(people, rng)) + "\n")
    with open(os.path.join(out, "dstbew2024.txt"), "w", encoding="ascii", newline="\n") as f:
        f.write("\n".join(movements(people, rng)) + "\n")
    print(len(people), "persons")


if __name__ == "__main__":
    main()
