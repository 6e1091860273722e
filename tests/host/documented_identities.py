"""The guide of the tool names the USB identities of the list, in the order in which the IC side tries them, and then in
the order of the stripe side.

    documented_identities.py USB_IDENTITIES.LIST TOOL.MD
"""
import pathlib
import re
import sys

SECTION = "## A reader on USB\n"


def listed(path):
    rows = [line.split() for line in path.read_text().splitlines() if line.strip() and not line.startswith("#")]
    order = []
    for side in (2, 3):
        known = [row for row in rows if row[side] != "-"]
        order += ["%s:%s" % tuple(row[:2]) for row in sorted(known, key=lambda row: int(row[side]))]
    return order


def documented(path):
    text = path.read_text()
    if SECTION not in text:
        sys.exit("%s: no section \"%s\"" % (path, SECTION.strip()))
    section = text.split(SECTION, 1)[1].split("\n## ", 1)[0]
    return re.findall(r"\b[0-9A-F]{4}:[0-9A-F]{4}\b", section)


def main():
    source, guide = map(pathlib.Path, sys.argv[1:])
    wanted, found = listed(source), documented(guide)
    print("%s: %s" % (source.name, " ".join(wanted)))
    print("%s: %s" % (guide.name, " ".join(found)))
    if not wanted:
        sys.exit("nothing to compare")
    if wanted != found:
        sys.exit("they differ")


if __name__ == "__main__":
    main()
