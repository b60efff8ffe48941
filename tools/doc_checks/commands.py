"""Shell code: it parses, and the project's own programs, options, presets, tests and variables in it are there."""

import fnmatch
import json
import os
import re
import shlex
import subprocess

from .code import SHELL

OWN = re.compile(r"^(\./(demo|test|bench)|\.ci/run|(?:tools|packaging)/[\w-]+)$")
FIRST = re.compile(r"^(\./(demo|test|bench)\b|\.ci/run\b|(?:tools|packaging)/[\w-]+|cmake\s+-|ctest\s+-|zdhost\s|"
                   r"export\s|[A-Z_]+=\S+\s|x86_64-w64-mingw32-|printf\s.*\|\s*zdhost|tar\s.*\|\s*zdhost)")
VARIABLE = re.compile(r"(?:\b|-D)((?:ZD|ZDVFS_LOCAL|ZDHOST)_[A-Z][A-Z_]*[A-Z])\b")
PLACEHOLDER = re.compile(r"^[A-Z][A-Z0-9_-]*$")
# Where documents and these checks themselves stand: a name there makes nothing known.
SKIPPED_FOLDERS = {".git", "build", "docs", "doc_checks"}


def is_shell(block):
    if block.language in SHELL:
        return True
    return block.language == "indented" and bool(FIRST.match(block.lines[0]))


def command_lines(block):
    """(number, command) of a block: continued lines in one, what programs print left out of indented blocks."""
    joined, start = "", 0
    for offset, line in enumerate(block.lines):
        if not joined:
            start = block.line + offset
        joined += line
        if joined.endswith("\\") and not re.search(r"\w:\\\S*\\$", joined):
            joined = joined[:-1] + " "
            continue
        if joined.strip() and (block.language in SHELL or FIRST.match(joined)):
            yield start, joined
        joined = ""


class Facts:
    """What there is to compare with; each is found out when it is first needed."""

    def __init__(self, root, zdhost):
        self.root, self.zdhost_program = root, zdhost
        self._help, self._names, self._texts, self._variables = None, None, None, None
        presets = json.loads((root / "CMakePresets.json").read_text(encoding="utf-8"))
        self.presets = {preset["name"] for preset in presets["configurePresets"] if not preset.get("hidden")}

    def texts(self):
        """All files of the tree but documents, in one text each."""
        if self._texts is None:
            self._texts = {}
            for folder, folders, files in os.walk(self.root):
                folders[:] = [name for name in folders if name not in SKIPPED_FOLDERS]
                for name in files:
                    if not name.endswith((".md", ".svg", ".png")):
                        path = os.path.join(folder, name)
                        with open(path, encoding="utf-8", errors="replace") as file:
                            self._texts[os.path.relpath(path, self.root)] = file.read()
        return self._texts

    def names(self):
        """(tests, programs and other targets, labels)"""
        if self._names is None:
            tests, targets, labels = set(), set(), set()
            for path, text in self.texts().items():
                if path.endswith(".cpp"):
                    tests |= {f"{suite}.{name}" for suite, name in
                              re.findall(r"^TEST(?:_[FP])?\(\s*(\w+),\s*(\w+)\s*\)", text, re.MULTILINE)}
                elif path.endswith(("CMakeLists.txt", ".cmake")):
                    made = re.findall(r"(?:add_executable|add_library|zd_add_tests|add_custom_target)\((\w+)", text)
                    targets |= set(made)
                    labels |= set(made) | set(re.findall(r"LABELS (\w+)", text))
                    tests |= {re.sub(r"\$\{\w+\}", "", name) for name in re.findall(r"add_test\(NAME (\S+)", text)}
            self._names = tests, targets, labels
        return self._names

    def variables(self):
        if self._variables is None:
            self._variables = {name for text in self.texts().values() for name in VARIABLE.findall(text)}
        return self._variables

    def zdhost(self):
        """"" or a command -> {option: takes a value}, from zdhost's own help."""
        if self._help is None:
            whole = self._ask("--help")
            commands = re.findall(r"^  ([a-z]+) {2,}", whole.split("Subcommands:")[1], re.MULTILINE)
            self._help = {"": options_of(whole)}
            told = self._ask("script", "--keep-going", text="".join(f"{name} --help\n" for name in commands))
            self._take(told)
            inner = [f"{name} {sub}" for name in commands for sub in re.findall(
                r"^  ([a-z]+) {2,}", self._section(told, name).partition("Subcommands:")[2], re.MULTILINE)]
            if inner:
                self._take(self._ask("script", "--keep-going", text="".join(f"{name} --help\n" for name in inner)))
            for name in commands:
                if name not in self._help:
                    self._take(self._ask(name, "--help"))
        return self._help

    @staticmethod
    def _section(told, name):
        found = re.search(rf"^Usage: (?:zdhost )?{name} (.*?)(?=^Usage: |\Z)", told, re.MULTILINE | re.DOTALL)
        return found[1] if found else ""

    def _take(self, told):
        for part in re.split(r"^Usage: ", told, flags=re.MULTILINE)[1:]:
            name = re.match(r"(?:zdhost )?([a-z]+(?: [a-z]+)?)", part)
            if name:
                self._help[name[1]] = options_of(part)

    def _ask(self, *arguments, text=""):
        run = subprocess.run([str(self.root / "tools" / "wine"), str(self.zdhost_program), *arguments], input=text,
                             capture_output=True, text=True, check=False)
        if "Usage:" not in run.stdout:
            raise RuntimeError(f"zdhost {' '.join(arguments)}: {run.stderr.strip() or 'no help'}")
        return run.stdout.replace("\r", "")


def options_of(text):
    options = {}
    for names, value in re.findall(r"^\s+((?:--?[\w-]+)(?:,--?[\w-]+)*)(?: ([A-Z]+)\b(?!:))?", text, re.MULTILINE):
        options.update({name: bool(value) for name in names.split(",")})
    return options


def check(document, facts):
    for block in document.blocks:
        if is_shell(block):
            check_block(document, block, facts)
        for offset, line in enumerate(block.lines):
            check_variables(document, block.line + offset, line, facts)
    for line, code in document.inline_code():
        check_variables(document, line, code, facts)
        if " " in code and FIRST.match(code):
            check_command(document, line, code, facts)


def check_block(document, block, facts):
    commands = list(command_lines(block))
    text = block.text if block.language in SHELL else "".join(f"{command}\n" for _, command in commands)
    run = subprocess.run(["bash", "-n"], input=text, capture_output=True, text=True, check=False)
    if run.returncode != 0:
        document.report(block.line, "shell code that does not parse: " + " ".join(run.stderr.split())[:200])
        return
    for line, command in commands:
        check_command(document, line, command, facts)


def check_variables(document, line, text, facts):
    for name in VARIABLE.findall(text):
        if name not in facts.variables():
            document.report(line, f"nothing in the tree knows {name}")


def simple_commands(text):
    lexer = shlex.shlex(text, posix=True, punctuation_chars=True)
    lexer.whitespace_split = True
    lexer.commenters = "#"
    words = []
    for word in lexer:
        if word and set(word) <= set("|&;()"):
            yield words
            words = []
        elif word and set(word) <= set("<>"):
            words.append("<")
        else:
            words.append(word)
    yield words


def check_command(document, line, text, facts):
    try:
        commands = list(simple_commands(text))
    except ValueError as error:
        document.report(line, f"a command that cannot be read ({error}): {text}")
        return
    for words in commands:
        while words and (words[0] in ("export", "sudo", "env") or re.match(r"^\w+=", words[0])):
            words = words[1:]
        problem = words and problem_of(words, facts)
        if problem:
            document.report(line, problem)


def problem_of(words, facts):
    program, rest = words[0], words[1:]
    if program == "tools/wine" and rest:
        return own_program(program, [], facts) or problem_of(rest, facts)
    if re.search(r"(^|/)zdhost(\.exe)?$", program):
        return zdhost_problem(rest, facts)
    if OWN.match(program):
        return own_program(program, rest, facts)
    if program == "cmake":
        return cmake_problem(rest, facts)
    if program == "ctest":
        return ctest_problem(rest, facts)
    found = re.search(r"/bin/tests/(\w+)\.exe$", program)
    return found and test_program(found[1], rest, facts)


def own_program(program, words, facts):
    path = facts.root / program
    if not path.is_file() or not os.access(path, os.X_OK):
        return f"{program} is no program of the tree"
    if program == "./test":
        return ctest_problem(words, facts)
    text = path.read_text(encoding="utf-8")
    for word in words:
        option = re.match(r"^--[a-z][\w-]*", word)
        if option and not re.search(re.escape(option[0]) + r"(?![\w-])", text) and option[0] != "--help":
            return f"{program} has no option {option[0]}"
    return None


def cmake_problem(words, facts):
    for index, word in enumerate(words):
        if word == "--preset" and index + 1 < len(words) and words[index + 1] not in facts.presets:
            if not PLACEHOLDER.match(words[index + 1]):
                return f"there is no preset {words[index + 1]}"
        if word == "--target":
            targets = [name for name in words[index + 1:] if not name.startswith("-")]
            missing = [name for name in targets if name not in facts.names()[1] and not PLACEHOLDER.match(name)]
            if missing:
                return f"there is no target {missing[0]}"
    return None


def ctest_problem(words, facts):
    tests, _, labels = facts.names()
    for index, word in enumerate(words[:-1]):
        value = words[index + 1]
        if PLACEHOLDER.match(value):
            continue
        if word == "-R" and not any(re.search(value, name) for name in tests):
            return f"no test is called {value}"
        if word in ("-L", "-LE") and not any(re.search(value, name) for name in labels):
            return f"no test has a label {value}"
    return None


def test_program(name, words, facts):
    tests, targets, _ = facts.names()
    if name not in targets:
        return f"there is no test program {name}"
    for word in words:
        if word.startswith("--gtest_filter="):
            pattern = word.split("=", 1)[1]
            if not PLACEHOLDER.match(pattern) and not fnmatch.filter(tests, pattern):
                return f"no test is called {pattern}"
    return None


def zdhost_problem(words, facts):
    help_of, index = facts.zdhost(), 0
    while index < len(words) and words[index].startswith("-") and words[index] != "-":
        option = words[index].split("=")[0]
        if option not in help_of[""]:
            return f"zdhost has no option {option}"
        index += 2 if help_of[""][option] and "=" not in words[index] else 1
    if index >= len(words) or words[index] in ("-", "...", "<") or words[index].startswith("[") \
            or PLACEHOLDER.match(words[index]):
        return None
    command, rest = words[index], words[index + 1:]
    if command not in help_of:
        return f"zdhost has no command {command}"
    if rest and f"{command} {rest[0]}" in help_of:
        command, rest = f"{command} {rest[0]}", rest[1:]
    for word in rest:
        if word in ("--", "<"):
            break
        option = word.strip("[]").split("=")[0]
        if re.match(r"^--?[a-zA-Z]", option) and option not in help_of[command]:
            return f"zdhost {command} has no option {option}"
    return None
