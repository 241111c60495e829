#!/usr/bin/env python3
"""Checks the HTML pages of a protocol directory: every page parses with balanced elements, no
link stands inside another link, ids are unique, every link resolves (a file relative to the page,
an anchor of the page), and no text shows a dictionary key in square brackets.

usage: html_pages_check.py directory [dictionary.xml] [allowed-bracket-text ...]
A text in brackets that is a text of the dictionary (a section row such as "[Defaults]") is no
key and is allowed.
Prints one line per fault and ends with status 1 when there is any."""
import os
import re
import sys
import urllib.parse
from html.parser import HTMLParser

VOID = {"area", "base", "br", "col", "embed", "hr", "img", "input", "link", "meta", "source", "track", "wbr"}
# elements whose end tag HTML lets the browser imply
OPTIONAL_END = {"p", "li", "dt", "dd", "tr", "td", "th", "thead", "tbody", "tfoot", "option", "colgroup", "caption"}
KEY_IN_BRACKETS = re.compile(r"\[[A-Za-z_][A-Za-z_0-9?]*\]")


class PageCheck(HTMLParser):
    def __init__(self, path):
        super().__init__(convert_charrefs=True)
        self.path = path
        self.faults = []
        self.stack = []
        self.ids = {}
        self.links = []
        self.text = []

    def fault(self, text):
        line, _ = self.getpos()
        self.faults.append(f"{self.path}:{line}: {text}")

    def handle_starttag(self, tag, attrs):
        attrs = dict(attrs)
        if tag == "a" and "a" in self.stack:
            self.fault("a link inside a link")
        if "id" in attrs:
            if attrs["id"] in self.ids:
                self.fault(f"id {attrs['id']} given twice")
            self.ids[attrs["id"]] = True
        if tag == "a" and attrs.get("href") is not None:
            self.links.append((self.getpos()[0], attrs["href"]))
        if tag in VOID:
            return
        # an implied end: a new row ends the open cell and row, a new cell the open cell
        if tag in ("tr", "td", "th"):
            while self.stack and self.stack[-1] in (("td", "th", "tr") if tag == "tr" else ("td", "th")):
                self.stack.pop()
        self.stack.append(tag)

    def handle_startendtag(self, tag, attrs):
        self.handle_starttag(tag, attrs)
        if tag not in VOID and self.stack and self.stack[-1] == tag:
            self.stack.pop()

    def handle_endtag(self, tag):
        if tag in VOID:
            return
        if tag not in self.stack:
            self.fault(f"</{tag}> without <{tag}>")
            return
        while self.stack[-1] != tag:
            open_tag = self.stack.pop()
            if open_tag not in OPTIONAL_END:
                self.fault(f"<{open_tag}> not closed before </{tag}>")
        self.stack.pop()

    def handle_data(self, data):
        if "style" not in self.stack and "script" not in self.stack:
            self.text.append((self.getpos()[0], data))


def check_page(path, allowed):
    with open(path, encoding="utf-8") as f:
        source = f.read()
    page = PageCheck(path)
    page.feed(source)
    page.close()
    faults = page.faults
    for tag in page.stack:
        if tag not in OPTIONAL_END | {"html", "body"}:
            faults.append(f"{path}: <{tag}> not closed at the end of the page")
    if not source.lstrip().lower().startswith("<!doctype html>") and path.endswith(("index.html", "inp.htm", "out.htm")):
        faults.append(f"{path}: no <!DOCTYPE html>")
    base = os.path.dirname(path)
    for line, href in page.links:
        url = urllib.parse.urlsplit(href)
        if url.scheme in ("http", "https", "mailto"):
            continue
        if url.scheme == "file":
            target = urllib.parse.unquote(url.path)
        elif url.scheme:
            faults.append(f"{path}:{line}: link {href} of an unknown kind")
            continue
        else:
            target = os.path.join(base, urllib.parse.unquote(url.path)) if url.path else path
        if not os.path.exists(target):
            faults.append(f"{path}:{line}: link {href} leads nowhere")
        elif url.fragment and target == path and url.fragment not in page.ids:
            faults.append(f"{path}:{line}: link {href} to a missing anchor")
    for line, data in page.text:
        for key in KEY_IN_BRACKETS.findall(data):
            if key not in allowed:
                faults.append(f"{path}:{line}: dictionary key {key} shown")
    return faults


def main():
    if len(sys.argv) < 2:
        print(__doc__)
        return 2
    directory, allowed = sys.argv[1], set()
    for arg in sys.argv[2:]:
        if arg.endswith(".xml"):
            import xml.etree.ElementTree as ET
            allowed |= {f"[{k.text}]" for k in ET.parse(arg).getroot().iter("k") if k.text}
        else:
            allowed.add(arg)
    pages = sorted(os.path.join(directory, name) for name in os.listdir(directory) if name.endswith((".htm", ".html")))
    if not pages:
        print(f"{directory}: no pages")
        return 1
    faults = []
    for page in pages:
        faults += check_page(page, allowed)
    for fault in faults:
        print(fault)
    print(f"{len(pages)} pages, {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
