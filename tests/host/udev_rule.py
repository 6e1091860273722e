"""The udev rule lets whoever sits at the machine use every reader, by its USB node and by its HID node, and nothing else.

    udev_rule.py RULES-FILE
"""
import pathlib
import re
import sys

# Vendor, product: the readers that the library tries on its own, lower case as the kernel's attributes are.
READERS = [("0403", "bcd5"), ("0403", "bcd7"), ("0403", "bc95"), ("2b46", "be11"), ("2b46", "be21"), ("2b46", "be01"),
           ("2b46", "bc01")]

TERM = re.compile(r'([A-Z]+(?:\{\w+\})?)(==|!=|\+=|=)"([^"]*)"(?:,\s*|$)')


def parsed(text):
    """Each rule as a list of (key, operator, value)."""
    rules = []
    for line in text.splitlines():
        line = line.strip()
        if not line or line.startswith("#"):
            continue
        terms, at = [], 0
        while at < len(line):
            term = TERM.match(line, at)
            if not term:
                sys.exit("cannot read: %s" % line[at:])
            terms.append(term.groups())
            at = term.end()
        rules.append(terms)
    return rules


def tags(rules, event):
    """The tags that an event gets: (attribute, value) pairs against the rules, from the first one on."""
    found, skip_to = set(), None
    for terms in rules:
        if skip_to is not None:
            if ("LABEL", "=", skip_to) not in terms:
                continue
            skip_to = None
        matches = True
        for key, operator, value in terms:
            if operator in ("==", "!="):
                matches = matches and (event.get(key) in value.split("|")) == (operator == "==")
        if not matches:
            continue
        for key, operator, value in terms:
            if operator in ("==", "!="):
                continue
            if (key, operator) == ("TAG", "+="):
                found.add(value)
            elif (key, operator) == ("GOTO", "="):
                skip_to = value
            elif (key, operator) != ("LABEL", "="):
                sys.exit("unexpected: %s%s" % (key, operator))
    if skip_to is not None:
        sys.exit("no label %s" % skip_to)
    return found


def main():
    path = pathlib.Path(sys.argv[1])
    rules = parsed(path.read_text())
    wrong = []

    def expect(condition, text):
        if not condition:
            wrong.append(text)

    # Access is granted by a rule file of the system's that is numbered 73; a tag that is set later has no effect.
    expect(path.name == "70-qvreader.rules", "the name %s" % path.name)

    def got(subsystem, vendor, product, action="add"):
        return tags(rules, {"SUBSYSTEM": subsystem, "ATTRS{idVendor}": vendor, "ATTRS{idProduct}": product,
                            "ACTION": action})

    for vendor, product in READERS:
        name = vendor + ":" + product
        for subsystem in ("usb", "hidraw"):
            for action in ("add", "change", "bind"):
                expect(got(subsystem, vendor, product, action) == {"uaccess"},
                       "%s %s, %s: no access" % (action, subsystem, name))
            expect(not got(subsystem, vendor, product, "remove"), "remove %s, %s" % (subsystem, name))
            expect(not got(subsystem, product, vendor), "%s, product and vendor of %s swapped" % (subsystem, name))
            expect(not got(subsystem, vendor, "be0a"), "%s, another product of %s" % (subsystem, vendor))
        for subsystem in ("block", "tty", "hid", "input", "usbmisc"):
            expect(not got(subsystem, vendor, product), "%s, %s" % (subsystem, name))

    identified = []
    for terms in rules:
        keys = [key for key, _, _ in terms]
        if "TAG" in keys:
            expect(keys == ["ATTRS{idVendor}", "ATTRS{idProduct}", "TAG"], "terms of a reader: %s" % keys)
            identified.append((terms[0][2], terms[1][2]))
    expect(identified == READERS, "the readers and their order: %s" % identified)
    for text in wrong:
        print("wrong: " + text)
    print("%d readers" % len(identified))
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
