"""The host's interface and what documents say of it: each operation, at its slot, with its arguments."""

import re

HEADING = re.compile(r"^(\d+)(?: to (\d+))? (\w+(?:, \w+)*)(?:\((.*)\))?$")
ROW = re.compile(r"^\|([^|]*)\|\s*(\d[\d, to]*)\s*\|")


def interface(text):
    """The operations in order of their slots: (name, names of the arguments)."""
    found = re.findall(r"virtual\s+[\w:]+\s+(\w+)\(([^)]*)\) = 0;", text)
    return [(name, re.findall(r"(\w+)\s*(?:,|$)", arguments)) for name, arguments in found]


def check_guide(document, operations):
    """Each operation has a heading of its own, "12 ZdReadFile(handle, ...)"; no other one does."""
    slots, told, last = {name: slot for slot, (name, _) in enumerate(operations)}, set(), 0
    for line, level, heading in document.headings:
        last = line
        found = HEADING.match(heading)
        if level != 3 or not found:
            continue
        first = int(found[1])
        for offset, name in enumerate(found[3].split(", ")):
            told.add(name)
            if slots.get(name) != first + offset:
                document.report(line, f"slot {first + offset} is not {name}")
            elif found[4] is not None:
                check_arguments(document, line, name, found[4], operations[slots[name]][1])
    for name in slots:
        if name not in told:
            document.report(last, f"{name} has no heading")


def check_arguments(document, line, name, written, arguments):
    words = [word.strip() for word in written.split(",") if word.strip()]
    if "…" in words:
        # In order, with some left out.
        rest = iter(arguments)
        right = all(word == "…" or word in rest for word in words)
    else:
        right = words == arguments
    if not right:
        document.report(line, f"the arguments of {name} are {', '.join(arguments)}")


def check_table(document, operations):
    """The table of operations names each one beside its slot."""
    slots, told, last = {name: slot for slot, (name, _) in enumerate(operations)}, set(), 1
    for line, text in document.prose:
        row = ROW.match(text)
        names = re.findall(r"`(Zd[A-Z]\w*|Release)`", row[1]) if row else []
        if not names:
            continue
        last = line
        numbers = numbers_of(row[2])
        if " to " in row[1] and len(names) == 2 and all(name in slots for name in names):
            names = [name for name, slot in slots.items() if slots[names[0]] <= slot <= slots[names[1]]]
        told |= set(names)
        for name in names:
            if name not in slots:
                document.report(line, f"there is no operation {name}")
        if all(name in slots for name in names) and sorted(slots[name] for name in names) != sorted(numbers):
            document.report(line, f"the slots of {', '.join(names)} are not {row[2].strip()}")
    for name in slots:
        if name not in told:
            document.report(last, f"{name} is not in the table of operations")


def numbers_of(text):
    numbers = []
    for part in text.split(","):
        ends = [int(number) for number in re.findall(r"\d+", part)]
        numbers += range(ends[0], ends[-1] + 1) if ends else []
    return numbers
