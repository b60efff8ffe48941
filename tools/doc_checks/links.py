"""Links, anchors, and the paths of the tree that stand in inline code."""

import re
import urllib.parse

from .markdown import INLINE, Document

LINK = re.compile(r"!?\[(?:[^\[\]]|\[[^\]]*\])*\]\(\s*<?([^)\s>]+)>?(?:\s+\"[^\"]*\")?\s*\)")
REFERENCE = re.compile(r"^\s{0,3}\[[^\]]+\]:\s*(\S+)")
ATTRIBUTE = re.compile(r'<(?:img|source|a)\b[^>]*?\b(?:src|srcset|href)="([^"\s]+)"')
SOURCE = re.compile(r"\.(h|cpp|def|cmake|py|md|svg|sh|txt|json|rc|mc|in|wxs|admx|adml|reg|bash)$")
# Made by a build or a run.
MADE = ("build/", "build")


def targets(document):
    for first, text in document.paragraphs():
        plain = INLINE.sub(lambda found: " " * len(found[0]), text)
        for pattern in (LINK, ATTRIBUTE):
            for found in pattern.finditer(plain):
                yield first + plain.count("\n", 0, found.start()), found[1]
    for number, line in document.prose:
        found = REFERENCE.match(line)
        if found:
            yield number, found[1]


def check_links(document, root, documents):
    """`documents`: path -> Document, of all that have been read."""
    for line, target in targets(document):
        if re.match(r"^[a-z][a-z0-9+.-]*:", target, re.IGNORECASE):
            continue
        name, _, anchor = target.partition("#")
        path = (document.path.parent / urllib.parse.unquote(name)).resolve() if name else document.path
        if not name:
            if anchor not in document.anchors:
                document.report(line, f"there is no heading for the link {target}")
        elif root not in path.parents and path != root:
            document.report(line, f"the link {target} leads out of the tree")
        elif not exists_as_written(path, root):
            document.report(line, f"the link {target} leads nowhere")
        elif anchor and path.suffix == ".md":
            other = documents.get(path)
            if other is None:
                other = documents[path] = Document(path, str(path), path.read_text(encoding="utf-8"))
            if anchor not in other.anchors:
                document.report(line, f"there is no heading for the link {target}")


def exists_as_written(path, root):
    """Whether the path exists with this case, which a Windows reader's disk would not tell apart."""
    while path != root:
        if not path.exists() or path.name not in {entry.name for entry in path.parent.iterdir()}:
            return False
        path = path.parent
    return True


class Tree:
    """The names of the tree, without what is built."""

    def __init__(self, root):
        self.root = root
        self.tops = {entry.name for entry in root.iterdir() if entry.is_dir() and not entry.name.startswith(".git")}
        self.files = {}
        for top in self.tops - {"build"}:
            for path in (root / top).rglob("*"):
                self.files.setdefault(path.name, path)
        for path in root.iterdir():
            self.files.setdefault(path.name, path)


def check_folders(document, tree):
    """The table of folders leaves none out."""
    shown = {code.rstrip("/") for _, code in document.inline_code()}
    for top in sorted(tree.tops - {"build"} - shown):
        if not top.startswith("."):
            document.report(1, f"the folder {top}/ is not in the table of folders")


def check_paths(document, tree):
    for line, code in document.inline_code():
        if looks_like_a_path(code, tree) and not stands_in(code, document, tree):
            document.report(line, f"there is no {code} in the tree")


def looks_like_a_path(code, tree):
    if not re.fullmatch(r"[\w.*/+-]+", code) or code.startswith(MADE):
        return False
    top = code.split("/")[0]
    if "/" in code:
        return top in tree.tops and (code.endswith("/") or bool(SOURCE.search(code)) or top in ("tools", "packaging", ".ci", "docs"))
    # A name alone: that of a source file, which stands somewhere.
    return bool(re.fullmatch(r"[A-Za-z_][\w-]*\.(h|cpp|cmake|md)", code))


def stands_in(code, document, tree):
    if "*" in code:
        return any(tree.root.glob(code))
    if "/" not in code:
        return code in tree.files
    places = (tree.root, document.path.parent, tree.root / "tests")
    return any((place / code).exists() for place in places)
