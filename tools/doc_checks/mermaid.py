"""The structure of Mermaid blocks: the kind of diagram, what opens and closes, arrows, names that are used."""

import re

NAME = r"[A-Za-z_][\w]*"
SHAPES = [("[", "]"), ("(", ")"), ("{", "}"), ("[[", "]]"), ("([", "])"), ("((", "))"), ("[(", ")]"), ("{{", "}}")]
ARROW = re.compile(r"""\s*(?:
    --\s+(?:"[^"]*"|[^-"]+?)\s+--[>-] | -\.\s+(?:"[^"]*"|[^."]+?)\s+\.-> | ==\s+(?:"[^"]*"|[^="]+?)\s+==>
    | (?:<?--+>|---+|<?-\.+->|-\.+-|<?==+>|===+|~~~)(?:\|[^|]+\|)? )\s*""", re.VERBOSE)
MESSAGE = re.compile(rf"^({NAME})\s*(?:-->>|->>|--x|-x|--\)|-\)|-->|->)\s*[+-]?({NAME})\s*:\s*\S.*$")
STATE = r"(?:\[\*\]|" + NAME + ")"
TRANSITION = re.compile(rf"^{STATE}\s*-->\s*{STATE}(?:\s*:\s*\S.*)?$")


def check(document, block):
    lines = [(block.line + i, line.split("%%")[0].strip()) for i, line in enumerate(block.lines)]
    lines = [(number, line) for number, line in lines if line]
    if not lines:
        document.report(block.line, "an empty diagram")
        return
    kind = lines[0][1].split()[0]
    readers = {"flowchart": flowchart, "graph": flowchart, "sequenceDiagram": sequence, "stateDiagram-v2": states}
    if kind not in readers:
        document.report(lines[0][0], f"{kind} is no diagram that is known here ({', '.join(readers)})")
        return
    if readers[kind] is flowchart and not re.fullmatch(r"\w+\s+(TB|TD|BT|LR|RL)", lines[0][1]):
        document.report(lines[0][0], "a flow chart without a direction")
    readers[kind](document, lines[1:])


class Nesting:
    def __init__(self, document):
        self.document, self.open = document, []

    def begin(self, number, word):
        self.open.append((number, word))

    def end(self, number):
        if self.open:
            self.open.pop()
        else:
            self.document.report(number, '"end" where nothing is open')

    def finish(self):
        for number, word in self.open:
            self.document.report(number, f'"{word}" that does not end')


def walk(document, lines, opens, closes, problem_of):
    """What opens and closes by patterns; every other line by `problem_of`, which answers None for a sound one."""
    nesting = Nesting(document)
    for number, line in lines:
        if re.match(opens, line):
            nesting.begin(number, line.split()[0])
        elif line == closes:
            nesting.end(number)
        else:
            problem = problem_of(line, number, nesting)
            if problem:
                document.report(number, problem)
    nesting.finish()


def flowchart(document, lines):
    def problem_of(line, *_):
        if re.match(r"^(direction (TB|TD|BT|LR|RL)|(classDef|class|style|linkStyle|click)\s.+)$", line):
            return None
        rest = chain(line)
        return rest and f"a line of the flow chart that cannot be read, from: {rest}"

    walk(document, lines, rf'^subgraph\s+{NAME}(\s*\["[^"]*"\])?$', "end", problem_of)


def chain(line):
    """Reads "a[...] & b --> c"; what is left where it cannot be read, None for all of it."""
    rest = line.rstrip(";")
    while True:
        taken = node(rest)
        if taken is None:
            return rest or line
        rest = taken.lstrip()
        if rest.startswith("&"):
            rest = rest[1:].lstrip()
            continue
        if not rest:
            return None
        arrow = ARROW.match(rest)
        if not arrow:
            return rest
        rest = rest[arrow.end():]


def node(text):
    """What stands behind a node's name and shape; None where there is none."""
    name = re.match(NAME, text)
    if not name:
        return None
    rest = text[name.end():]
    if not rest or rest[0] not in "[({":
        return rest
    for opening, closing in sorted(SHAPES, key=lambda shape: -len(shape[0])):
        if rest.startswith(opening):
            inside = re.match(re.escape(opening) + r'\s*(?:"[^"]*"|[^"\[\](){}]+)\s*' + re.escape(closing), rest)
            if inside:
                return rest[inside.end():]
    return None


def sequence(document, lines):
    declared = {name[1] for _, line in lines if (name := re.match(rf"^(?:participant|actor)\s+({NAME})\b", line))}

    def problem_of(line, _, nesting):
        message = MESSAGE.match(line)
        if message:
            strange = [name for name in message.groups() if declared and name not in declared]
            return strange and f"{strange[0]} is no participant"
        if re.match(r"^(else|and|option)\b", line):
            return None if nesting.open else f'"{line.split()[0]}" where nothing is open'
        sound = re.match(rf"^((participant|actor)\s+{NAME}(\s+as\s+.+)?|autonumber|(activate|deactivate)\s+{NAME}"
                         r"|Note\s+(over|left of|right of)\s.+:.+)$", line, re.IGNORECASE)
        return None if sound else f"a line of the sequence that cannot be read: {line}"

    walk(document, lines, r"^(loop|opt|alt|par|critical|break|rect)\b", "end", problem_of)


def states(document, lines):
    def problem_of(line, *_):
        sound = (TRANSITION.match(line) or re.match(rf"^{NAME}\s*:\s*\S.*$", line)
                 or re.match(rf'^state\s+"[^"]+"\s+as\s+{NAME}$', line)
                 or re.match(r"^(direction (TB|LR|BT|RL)|note\s.+)$", line))
        return None if sound else f"a line of the state diagram that cannot be read: {line}"

    walk(document, lines, r"^state\s.*\{$", "}", problem_of)
