#!/usr/bin/env python3
"""Fails when a German word of the program's own texts shows in what an English run gave.

usage: german_words_check.py run-dir console-file datadict_de.xml datadict_en.xml user-data-dir

The German words are those of the German dictionary and of the German messages the English
dictionary translates (keys "de:..."), less every word that the English dictionary uses too and
every word of the user's own data (tables and variant file of the study area), whose names stay
as the user wrote them. Checked are the protocol pages, prot.tmp, the console, the column names
of every result table and the texts of the chart commands (gnuplot comments aside).
"""
import glob
import os
import re
import sys
import xml.etree.ElementTree as ET

WORD = re.compile(r"[A-Za-zÄÖÜäöüß][A-Za-zÄÖÜäöüß\-]*[A-Za-zÄÖÜäöüß]")
# format conversions and entities are not words
NOISE = re.compile(r"%[-+ #0-9.*]*[a-zA-Z]+|&[a-z]+;|<[^>]*>")


def words(text):
    return {w for w in WORD.findall(NOISE.sub(" ", text))}


def dictionary(path):
    german, english = set(), set()
    for k in ET.parse(path).getroot().iter("k"):
        key = k.get("id", "")
        body = "".join(k.itertext())
        if key.startswith("de:"):
            german |= words(key[3:])
            english |= words(body)
        else:
            yield_into = german if path.endswith("_de.xml") else english
            yield_into |= words(body)
    return german, english


def main():
    run, console, de_xml, en_xml, user = sys.argv[1:6]
    german, _ = dictionary(de_xml)
    more_german, english = dictionary(en_xml)
    german |= more_german
    user_words = set()
    for f in glob.glob(os.path.join(user, "**", "*"), recursive=True):
        if os.path.isfile(f) and f.endswith((".csv", ".ini", ".txt")):
            user_words |= words(open(f, encoding="utf-8", errors="replace").read())
    english_lower = {w.lower() for w in english}
    suspicious = {w for w in german
                  if len(w) >= 4 and not w.isupper() and w.lower() not in english_lower and w not in user_words}
    found = {}

    def scan(name, text):
        for w in words(text) & suspicious:
            found.setdefault(w, name)

    prot = os.path.join(run, "prot")
    for f in sorted(glob.glob(os.path.join(prot, "*.htm*"))):
        scan(os.path.relpath(f, run), open(f, encoding="utf-8", errors="replace").read())
    for f in sorted(glob.glob(os.path.join(prot, "plt*.txt"))):
        lines = open(f, encoding="utf-8", errors="replace").read().splitlines()
        scan(os.path.relpath(f, run), "\n".join(l for l in lines if not l.lstrip().startswith("#")))
    for f in sorted(glob.glob(os.path.join(run, "*.csv"))):
        with open(f, encoding="utf-8-sig", errors="replace") as t:
            head = [t.readline() for _ in range(2)]
        scan(os.path.relpath(f, run), "".join(head))
    scan("prot.tmp", open(os.path.join(run, "prot.tmp"), encoding="utf-8", errors="replace").read())
    scan("console", open(console, encoding="utf-8", errors="replace").read())
    if not suspicious:
        print("no German words to look for: the dictionaries were not read")
        return 1
    for w, where in sorted(found.items()):
        print(f"German word in the English run: {w!r} in {where}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
