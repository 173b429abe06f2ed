#!/usr/bin/env python3
"""Fills unfinished entries of a .ts file from a tab-separated dictionary.

Each line of the dictionary: context<TAB>source<TAB>translation. For texts with %n
the translation holds the three Russian plural forms separated by " || ".
Usage: fill_translations.py resources/langs/ru_RU.ts < dictionary.tsv
"""
import sys
import xml.etree.ElementTree as ET


def main() -> int:
    path = sys.argv[1]
    table = {}
    for raw in sys.stdin.read().splitlines():
        if not raw.strip():
            continue
        context, source, translation = raw.split("\t")
        table[(context, source.replace("\\n", "\n"))] = translation.replace("\\n", "\n")

    tree = ET.parse(path)
    filled = 0
    for ctx in tree.getroot().iter("context"):
        name = ctx.findtext("name")
        for msg in ctx.iter("message"):
            key = (name, msg.findtext("source"))
            if key not in table:
                continue
            tr = msg.find("translation")
            for child in list(tr):
                tr.remove(child)
            tr.text = None
            if msg.get("numerus") == "yes":
                for form in table[key].split(" || "):
                    ET.SubElement(tr, "numerusform").text = form
            else:
                tr.text = table[key]
            tr.attrib.pop("type", None)
            filled += 1
    ET.indent(tree, space="    ")
    with open(path, "wb") as out:
        out.write(b'<?xml version="1.0" encoding="utf-8"?>\n<!DOCTYPE TS>\n')
        tree.write(out, encoding="utf-8")
    print(f"filled {filled} entries", file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main())
