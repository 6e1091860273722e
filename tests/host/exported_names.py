"""The list of exported names, the prototypes in the headers and the library's dynamic symbols are the same set.

    exported_names.py NM EXPORTS.LIST INCLUDE-FOLDER LIBRARY
"""
import pathlib
import re
import subprocess
import sys

# A declaration begins with QV_API (functions) or extern QV_API (objects) and ends at the first ";".
DECLARATION = re.compile(r"(extern\s+)?\bQV_API\b(.*?);", re.DOTALL)


def listed(path):
    lines = [line.strip() for line in pathlib.Path(path).read_text().splitlines()]
    return [line for line in lines if line and not line.startswith("#")]


def declared(folder):
    names = []
    for header in sorted(pathlib.Path(folder).rglob("*.h")):
        text = re.sub(r"/\*.*?\*/|//[^\n]*", " ", header.read_text(), flags=re.DOTALL)
        text = re.sub(r"\\\n", " ", text)
        text = re.sub(r"(?m)^[ \t]*#.*$", " ", text)
        for is_object, body in DECLARATION.findall(text):
            pattern = r"(\w+)\s*(?:\[[^]]*\]\s*)*$" if is_object else r"(\w+)\s*\("
            found = re.search(pattern, body)
            if not found:
                sys.exit("%s: cannot read the declaration:%s" % (header, body))
            names.append(found[1])
    return names


def defined(nm, library):
    out = subprocess.run([nm, "-D", "--defined-only", library], check=True, capture_output=True, text=True).stdout
    rows = [line.split() for line in out.splitlines()]
    return [row[-1] for row in rows]


def main():
    nm, export_list, include, library = sys.argv[1:]
    sets = {}
    wrong = False
    for what, names in (("export list", listed(export_list)), ("headers", declared(include)),
                        ("library", defined(nm, library))):
        sets[what] = set(names)
        twice = sorted({name for name in names if names.count(name) > 1})
        if twice:
            wrong = True
            print("%s: more than once: %s" % (what, " ".join(twice)))
        print("%s: %d names" % (what, len(sets[what])))
    if not all(sets.values()):
        sys.exit("nothing to compare")
    for name in sorted(set.union(*sets.values())):
        missing = [what for what in sets if name not in sets[what]]
        if missing:
            wrong = True
            print("%s: missing in %s" % (name, " and in ".join(missing)))
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
