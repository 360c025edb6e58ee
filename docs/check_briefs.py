#!/usr/bin/env python3
"""Fails when a public class or free function in doxygen's XML output has no one-line description.

Usage: check_briefs.py XML_DIR. Prints one "file:line: kind name has no description" line per finding.
"""
import sys
import xml.etree.ElementTree as ET
from pathlib import Path


def text(element):
    return "".join(element.itertext()).strip() if element is not None else ""


def location(element):
    where = element.find("location")
    return f"{where.get('file')}:{where.get('line')}" if where is not None else "?"


def main(xml_dir):
    missing = []
    seen = set()
    for path in sorted(Path(xml_dir).glob("*.xml")):
        if path.name in ("index.xml", "Doxyfile.xml"):
            continue
        for compound in ET.parse(path).getroot().iter("compounddef"):
            kind = compound.get("kind")
            name = text(compound.find("compoundname"))
            if kind in ("class", "struct", "union") and compound.get("prot", "public") == "public":
                if not text(compound.find("briefdescription")):
                    missing.append(f"{location(compound)}: {kind} {name} has no description")
            if kind not in ("file", "namespace"):
                continue
            for member in compound.iter("memberdef"):
                if member.get("kind") != "function" or member.get("id") in seen:
                    continue
                seen.add(member.get("id"))
                if not text(member.find("briefdescription")):
                    signature = text(member.find("definition")) + text(member.find("argsstring"))
                    missing.append(f"{location(member)}: function {signature} has no description")
    for line in sorted(missing):
        print(line)
    if missing:
        print(f"check_briefs: {len(missing)} public classes and free functions have no description")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
