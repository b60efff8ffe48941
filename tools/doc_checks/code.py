"""Code blocks: each has a language that is known, parses in it, and where it says so is the text of a file.

C++ that is no whole file says in a comment before it, which readers do not see, how it is tried:

    <!-- from: plugin/operations/WriteFile.cpp -->      its lines stand in that file, in this order; "..." stands for left-out ones
    <!-- inside: tools/doc_checks/x.in -->  it compiles in the place of @code@ in that file
"""

import concurrent.futures
import json
import subprocess
import tempfile
import xml.etree.ElementTree

COMPILER = ["x86_64-w64-mingw32-g++-posix", "-std=c++20", "-fsyntax-only", "-x", "c++", "-D_UCRT", "-DUNICODE",
            "-D_UNICODE", "-DWIN32_LEAN_AND_MEAN", "-DNOMINMAX", "-D_WIN32_WINNT=0x0601", "-Wall", "-Wextra", "-Werror",
            "-Wno-unused"]
GOOGLETEST = "/usr/src/googletest"
# Shown as they are: diagrams, output, layouts, other programs' files.
PLAIN = {"mermaid", "text", "console", "ini", "reg", "diff", "bat", "powershell"}
SHELL = {"sh", "bash"}


def check(document, root):
    compiled = []
    for block in document.blocks:
        if block.marker and block.language in PLAIN | SHELL | {"json", "xml", "cmake"} and block.marker[0] != "from":
            document.report(block.line, "only C++ is compiled inside a file")
        if block.marker and block.marker[0] == "from":
            check_quotation(document, block, root)
        elif block.language == "cpp":
            compiled.append(block)
        elif block.language == "json":
            parse(document, block, json.loads)
        elif block.language == "xml":
            parse(document, block, xml.etree.ElementTree.fromstring)
        elif block.language == "cmake":
            check_cmake(document, block)
        elif block.language == "indented":
            check_indented(document, block)
        elif block.language and block.language not in PLAIN | SHELL:
            document.report(block.line, f"the language {block.language} is not known here")
    return [(document, block) for block in compiled]


def parse(document, block, read):
    try:
        read(block.text)
    except (ValueError, xml.etree.ElementTree.ParseError) as error:
        document.report(block.line, f"{block.language} that does not parse: {error}")


def check_indented(document, block):
    code = [line for line in block.lines if line.strip()]
    if sum(line.rstrip().endswith((";", "{", "}")) for line in code) * 2 > len(code):
        document.report(block.line, "C++ has to stand in a block that says so")


def check_quotation(document, block, root):
    path = root / block.marker[1]
    if not path.is_file():
        document.report(block.line, f"there is no {block.marker[1]} to quote from")
        return
    source = [line.strip() for line in path.read_text(encoding="utf-8").split("\n")]
    at, piece, first = 0, [], block.line
    for offset, line in enumerate(block.lines + ["..."]):
        if line.strip() not in ("...", "// ..."):
            piece.append(line.strip())
            continue
        while piece and not piece[-1]:
            piece.pop()
        while piece and not piece[0]:
            piece.pop(0)
        found = next((i for i in range(at, len(source) - len(piece) + 1) if source[i:i + len(piece)] == piece), None)
        if piece and found is None:
            document.report(first, f"not the text of {block.marker[1]}: {longest_start(source[at:], piece)}")
            return
        at = at if found is None else found + len(piece)
        piece, first = [], block.line + offset + 1


def longest_start(source, piece):
    """The first line that differs where as much as possible is the same."""
    best = 0
    for start in range(len(source)):
        same = 0
        while same < len(piece) and start + same < len(source) and source[start + same] == piece[same]:
            same += 1
        best = max(best, same)
    return piece[min(best, len(piece) - 1)]


def check_cmake(document, block):
    with tempfile.NamedTemporaryFile("w", suffix=".cmake") as script:
        # Read as a whole, nothing of it carried out.
        script.write("if(FALSE)\n" + block.text + "endif()\n")
        script.flush()
        run = subprocess.run(["cmake", "-P", script.name], capture_output=True, text=True, check=False)
    if run.returncode != 0:
        document.report(block.line, "CMake that does not parse: " + " ".join(run.stderr.split())[:200])


def compile_all(pairs, root, jobs=2):
    """C++ blocks, as (document, block)."""
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for (document, block), text in zip(pairs, pool.map(lambda pair: complaint(pair[1], root), pairs)):
            if text:
                document.report(block.line, f"C++ that does not compile: {text}")


def complaint(block, root):
    text = f'#line 1 "block"\n{block.text}'
    if block.marker:
        path = root / block.marker[1]
        if not path.is_file():
            return f"there is no {block.marker[1]}"
        text = path.read_text(encoding="utf-8").replace("@code@", text)
    places = [root / "include", root, root / "tests", f"{GOOGLETEST}/googletest/include",
              f"{GOOGLETEST}/googlemock/include"]
    run = subprocess.run([*COMPILER, *(f"-I{place}" for place in places), "-"], input=text, capture_output=True,
                         text=True, check=False)
    if run.returncode == 0:
        return None
    errors = [line for line in run.stderr.split("\n") if "error" in line]
    return (errors or run.stderr.split("\n"))[0]
