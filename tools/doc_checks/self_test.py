"""Tries the checks: documents with one fault each, which has to be reported, and sound ones, which have to pass."""

import re

from . import links, operations
from .markdown import Document

# (document, what has to be reported; nothing where it is sound)
ROWS = [
    # Links and anchors.
    ("[a](docs/hosts.md) [b](docs/zdhost.md#settings) <https://example.org> [c](https://example.org/x)", None),
    ("[a](docs/nowhere.md)", "the link docs/nowhere.md leads nowhere"),
    ("[a](docs/Hosts.md)", "the link docs/Hosts.md leads nowhere"),
    ("![a](docs/nothing.svg)", "docs/nothing.svg leads nowhere"),
    ('<img src="docs/nothing.svg">', "docs/nothing.svg leads nowhere"),
    ("[a](../outside.md)", "leads out of the tree"),
    ("[a](docs/zdhost.md#nothing-like-this)", "there is no heading for the link"),
    ("# One `Two` (three)\n\n[a](#one-two-three)", None),
    ("# One\n\n# One\n\n[a](#one-1)", None),
    ("# One\n\n[a](#two)", "there is no heading for the link"),
    ("[a]: docs/nowhere.md", "leads nowhere"),
    ("a text over two\nlines with [a\nlink](docs/nowhere.md)", "leads nowhere"),
    ("`[a](docs/nowhere.md)` is code", None),
    # Paths in inline code.
    ("`plugin/operations/WriteFile.cpp`, `host/`, `docs/hosts.md`, `WordInfo.h`, `tests/proof/fault/*Situations.cpp`", None),
    ("`plugin/files/WriteFiles.cpp`", "there is no plugin/files/WriteFiles.cpp"),
    ("`tools/nothing`", "there is no tools/nothing"),
    ("`packaging/nothing`", "there is no packaging/nothing"),
    ("`NoSuchHeader.h`", "there is no NoSuchHeader.h"),
    ("`plugin/nothing/`", "there is no plugin/nothing/"),
    ("`tests/*Nothing.cpp`", r"there is no tests/\*Nothing.cpp"),
    ("`build/anything.h` and `report.pdf`", None),
    # Blocks.
    ("```\nx\n```", "does not say its language"),
    ("```klingon\nx\n```", "language klingon is not known"),
    ("```text\nx", "does not end"),
    ("text\n\n    int a = 1;\n    int b = 2;\n", "has to stand in a block that says so"),
    # Shell.
    ("```sh\nif true; then echo; fi\n```", None),
    ("```sh\nif true; then echo\n```", "does not parse"),
    ("    ./test -R CCloseTest    # fine\n", None),
    ("    ./test              the program's own\n", "does not parse"),
    # The project's commands.
    ("`zdhost --as anonymous ls -l --json /x`, `zdhost --trace COMMAND`, `zdhost acl get /x`", None),
    ("`zdhost ls --longer /x`", "zdhost ls has no option --longer"),
    ("`zdhost --verbose ls /x`", "zdhost has no option --verbose"),
    ("`zdhost list /x`", "zdhost has no command list"),
    ("`zdhost acl get --json /x`", "zdhost acl get has no option --json"),
    ("```sh\ntools/wine build/release/bin/zdhost.exe put --nothing a b\n```", "zdhost put has no option --nothing"),
    ("```sh\nprintf x | zdhost cat -x\n```", "zdhost cat has no option -x"),
    ("`./bench --group transfers`, `tools/setup --dev`", None),
    ("`./bench --groups transfers`", "./bench has no option --groups"),
    ("`tools/nothing --now`", "tools/nothing is no program"),
    ("`packaging/nothing --now`, `packaging/check --only`", "packaging/nothing is no program"),
    ("`packaging/make --nothing`", "packaging/make has no option --nothing"),
    ("`cmake --preset fast`", "there is no preset fast"),
    ("`cmake --build build/x --target nothing_tests`", "there is no target nothing_tests"),
    ("`./test -R CNothingTest`", "no test is called CNothingTest"),
    ("`ctest -L nothing_tests`", "no test has a label nothing_tests"),
    ("```sh\ntools/wine build/debug/bin/tests/files_close_tests.exe --gtest_filter=A.B\n```", "no test is called A.B"),
    ("`ZD_PRESET=debug ./test`", None),
    ("`ZD_PRESENT=debug ./test`", "nothing in the tree knows ZD_PRESENT"),
    ("`-DZD_BUILD_HOST=OFF`", None),
    ("`-DZD_BUILD_HOSTS=OFF`", "nothing in the tree knows ZD_BUILD_HOSTS"),
    ("`-DZD_BUILD_HOS=OFF`", "nothing in the tree knows ZD_BUILD_HOS$"),
    # C++.
    ('```cpp\n#include "ZdvfsLoader.h"\nint main() { return 0; }\n```', None),
    ("```cpp\nint main() { return x; }\n```", "does not compile.*x.*not declared"),
    ("<!-- inside: tools/doc_checks/in_a_test.cpp.in -->\n```cpp\nDouble().MakeFile(\"pool/a\");\n```", None),
    ("<!-- inside: tools/doc_checks/in_a_test.cpp.in -->\n```cpp\nDouble().NoSuch();\n```", "NoSuch"),
    ("<!-- inside: tools/doc_checks/none.in -->\n```cpp\nint a;\n```", "there is no tools/doc_checks/none.in"),
    ("<!-- from: samples/host/main.cpp -->\n\n```cpp\n    Handle m_handle = 0;\n};\n...\nint wmain(int count,"
     " wchar_t** words) {\n```", None),
    ("<!-- from: samples/host/main.cpp -->\n\n```cpp\nHandle m_handle = 1;\n```", "not the text of.*m_handle = 1"),
    ("<!-- from: samples/host/main.cpp -->\n\n```cpp\nint wmain(int count, wchar_t** words) {\n...\n"
     "Handle m_handle = 0;\n```", "not the text of"),
    ("<!-- from: samples/none.cpp -->\n\n```cpp\nint a;\n```", "there is no samples/none.cpp"),
    ("```mermaid\nflowchart TB\n  a --> b\n```", None),
    # Data.
    ('```json\n{"a": [1, 2]}\n```\n\n```xml\n<a><b/></a>\n```\n\n```cmake\nfind_package(X 1)\n```', None),
    ('```json\n{"a": [1, 2}\n```', "json that does not parse"),
    ("```xml\n<a><b></a>\n```", "xml that does not parse"),
    ("```cmake\nfind_package(X 1\n```", "CMake that does not parse"),
]

# (document, a text in it, what stands in its place, what has to be reported)
CHANGES = [
    ("docs/host-guide.md", "### 12 ZdReadFile", "### 13 ZdReadFile", "slot 13 is not ZdReadFile"),
    ("docs/host-guide.md", "### 12 ZdReadFile", "### 12 ZdReedFile", "ZdReadFile has no heading"),
    ("docs/host-guide.md", "### 9 ZdDeleteFile(request)", "Deleting", "ZdDeleteFile has no heading"),
    ("docs/host-guide.md", "ZdReadFile(handle, offset,", "ZdReadFile(handle, position,", "arguments of ZdReadFile are"),
    ("docs/host-guide.md", "ZdCreateFile(name, isDirectory,", "ZdCreateFile(isDirectory, name,", "of ZdCreateFile are"),
    ("docs/host-guide.md", "to 25 ZdStub1, ZdStub2", "to 25 ZdStub2, ZdStub1", "slot 23 is not ZdStub2"),
    ("README.md", "`ZdQueryFileInfo` | 5", "`ZdQueryFileInfo` | 6", "slots of ZdQueryFileInfo are not"),
    ("README.md", "`ZdGetRandomTag`", "`ZdRandomTag`", "ZdGetRandomTag is not in the table"),
    ("README.md", "| `samples/` |", "| names |", "folder samples/ is not in the table"),
    ("README.md", "23 to 25", "23 to 26", "slots of .*ZdStub1"),
]


def run_self_test(facts, root, check):
    failures = 0
    documents = [Document(root / f"self-test-{i}.md", str(i), text) for i, (text, _) in enumerate(ROWS)]
    findings = check(documents, facts, root)
    for i, (text, expected) in enumerate(ROWS):
        told = [finding.text for finding in findings if finding.path == str(i)]
        right = not told if expected is None else any(re.search(expected, text) for text in told)
        failures += not right
        if not right:
            print(f"FAILED: {text!r}\n  expected: {expected or 'nothing'}\n  reported: {told or 'nothing'}")
    for name, old, new, expected in CHANGES:
        told = [finding.text for finding in changed(root, name, old, new)]
        right = any(re.search(expected, text) for text in told)
        failures += not right
        if not right:
            print(f"FAILED: {name} with {new!r}\n  expected: {expected}\n  reported: {told or 'nothing'}")
    count = len(ROWS) + len(CHANGES)
    print(f"{count - failures} of {count} faults and sound documents were told apart")
    return 1 if failures else 0


def changed(root, name, old, new):
    text = (root / name).read_text(encoding="utf-8")
    if old not in text:
        return []
    document = Document(root / name, name, text.replace(old, new))
    slots = operations.interface((root / "include" / "IProtocolManager.h").read_text(encoding="utf-8"))
    if name.endswith("guide.md"):
        operations.check_guide(document, slots)
    else:
        operations.check_table(document, slots)
        links.check_folders(document, links.Tree(root))
    return document.findings
