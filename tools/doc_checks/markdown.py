"""A document taken apart: its lines of prose, headings, code blocks and inline code."""

import re

FENCE = re.compile(r"^(\s*)(`{3,}|~{3,})\s*(\S*)\s*$")
HEADING = re.compile(r"^(#{1,6})\s+(.*?)\s*#*\s*$")
MARKER = re.compile(r"^\s*<!--\s*(from|inside):\s*(\S+)\s*-->\s*$")
INLINE = re.compile(r"(`+)(.+?)\1(?!`)", re.DOTALL)


class Finding:
    def __init__(self, path, line, text):
        self.path, self.line, self.text = path, line, text

    def __str__(self):
        return f"{self.path}:{self.line}: {self.text}"


class Block:
    """A code block. `language` is the word behind the fence, "indented" for one that stands further in."""

    def __init__(self, language, line, lines, marker):
        self.language, self.line, self.lines, self.marker = language, line, lines, marker

    @property
    def text(self):
        return "\n".join(self.lines) + "\n"


class Document:
    def __init__(self, path, name, text):
        self.path, self.name = path, name  # the file, and how it is told
        self.blocks, self.prose, self.headings, self.findings = [], [], [], []
        self._take_apart(text.split("\n"))
        self.anchors = self._anchors(text)

    def report(self, line, text):
        self.findings.append(Finding(self.name, line, text))

    def _take_apart(self, lines):
        index, marker = 0, None
        while index < len(lines):
            line = lines[index]
            fence = FENCE.match(line)
            if fence:
                index = self._fenced(lines, index, fence, marker)
            elif self._begins_indented(lines, index):
                index = self._indented(lines, index)
            else:
                self._prose_line(index, line)
                index += 1
            marker = MARKER.match(line) if not fence and line.strip() else (None if fence else marker)

    def _fenced(self, lines, index, fence, marker):
        width, body, at = len(fence[1]), [], index + 1
        end = re.compile(rf"^\s*{fence[2]}{fence[2][0]}*\s*$")
        while at < len(lines) and not end.match(lines[at]):
            body.append(lines[at][width:] if lines[at][:width].isspace() else lines[at])
            at += 1
        if at == len(lines):
            self.report(index + 1, "a code block that does not end")
        if not fence[3]:
            self.report(index + 1, "a code block that does not say its language")
        self.blocks.append(Block(fence[3], index + 2, body, (marker[1], marker[2]) if marker else None))
        return at + 1

    def _begins_indented(self, lines, index):
        if not lines[index].startswith("    ") or not lines[index].strip():
            return False
        before = next((line for line in reversed(lines[:index]) if line.strip()), "")
        inside_list = re.match(r"^\s*([-*+]|\d+\.)\s", before) or before.startswith("  ")
        return (index == 0 or not lines[index - 1].strip()) and not inside_list

    def _indented(self, lines, index):
        at = index
        while at < len(lines) and (lines[at].startswith("    ") or not lines[at].strip()):
            at += 1
        body = [line[4:] for line in lines[index:at]]
        while not body[-1].strip():
            body.pop()
        self.blocks.append(Block("indented", index + 1, body, None))
        return at

    def _prose_line(self, index, line):
        heading = HEADING.match(line)
        if heading:
            self.headings.append((index + 1, len(heading[1]), heading[2]))
        self.prose.append((index + 1, line))

    def _anchors(self, text):
        anchors, seen = set(re.findall(r'<a\s+(?:id|name)="([^"]+)"', text)), {}
        for _, _, heading in self.headings:
            anchor = slug(heading)
            count = seen.get(anchor, 0)
            seen[anchor] = count + 1
            anchors.add(f"{anchor}-{count}" if count else anchor)
        return anchors

    def paragraphs(self):
        """Runs of lines of prose, as (first line's number, text), since inline code may go over a line's end."""
        run = []
        for number, line in self.prose:
            starts = not line.strip() or re.match(r"^\s*([-*+|#]|\d+\.)", line)
            if run and (starts or number != run[-1][0] + 1):
                yield run[0][0], "\n".join(text for _, text in run)
                run = []
            if line.strip():
                run.append((number, line))
        if run:
            yield run[0][0], "\n".join(text for _, text in run)

    def inline_code(self):
        for first, text in self.paragraphs():
            for found in INLINE.finditer(text):
                yield first + text.count("\n", 0, found.start()), found[2].strip().replace("\n", " ")


def slug(heading):
    """The anchor that readers of the repository's pages get for a heading."""
    text = re.sub(r"!?\[([^\]]*)\]\([^)]*\)", r"\1", heading).replace("`", "")
    text = re.sub(r"[*]", "", text).lower()
    return re.sub(r"[^\w\- ]", "", text).replace(" ", "-")
