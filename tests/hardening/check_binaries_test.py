#!/usr/bin/env python3
"""Tests of packaging/check-binaries: each protection is taken out of a copy of a real binary, and has to be missed.

    tests/hardening/check_binaries_test.py build/release/bin
"""

import importlib.machinery
import importlib.util
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BINARIES = pathlib.Path(sys.argv.pop(1)) if len(sys.argv) > 1 else ROOT / "build" / "release" / "bin"
PLUGIN, HOST = "ZdvfsProtocol.dll", "zdhost.exe"


def load(path):
    loader = importlib.machinery.SourceFileLoader(path.name.replace("-", "_"), str(path))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module


check = load(ROOT / "packaging" / "check-binaries")


def image_of(name):
    return check.Image(bytearray((BINARIES / name).read_bytes()))


def put(image, form, offset, value):
    struct.pack_into("<" + form, image.data, offset, value)


class CheckBinaries(unittest.TestCase):
    def expect(self, image, text, name=PLUGIN, **options):
        found = check.problems(name, check.Image(image.data), **options)
        self.assertEqual(len(found), 1, found)
        self.assertIn(text, found[0])

    def replace(self, old, new, name=PLUGIN):
        self.assertEqual(len(old), len(new))
        image = image_of(name)
        self.assertIn(old, image.data)
        image.data = image.data.replace(old, new)
        return image

    def test_what_is_built_is_fine(self):
        for name in check.SHIPPED:
            with self.subTest(name=name):
                self.assertEqual(check.problems(name, image_of(name)), [])

    def test_each_protection(self):
        for bit, name in check.PROTECTIONS.items():
            for binary in check.SHIPPED:
                with self.subTest(name=name, binary=binary):
                    image = image_of(binary)
                    put(image, "H", image.protections_at, image.protections & ~bit)
                    self.expect(image, f"lacks {name}", binary)

    def test_a_low_base(self):
        image = image_of(PLUGIN)
        put(image, "Q", image.header + 24 + 24, 0x10000000)
        # The callbacks of threads are told by absolute addresses, which would be wrong now.
        struct.pack_into("<II", image.data, image.directories_at + 8 * check.TLS, 0, 0)
        self.expect(image, "prefers the address 0x10000000, below 4 GiB")

    def test_sections(self):
        for name, flag, text in ((".text", check.SECTION_WRITE, ".text is writable and executable"),
                                 (".rdata", check.SECTION_EXECUTE, ".rdata is executable"),
                                 (".data", check.SECTION_EXECUTE, ".data is writable and executable"),
                                 (".bss", check.SECTION_SHARED, ".bss is shared")):
            with self.subTest(name=name):
                image = image_of(PLUGIN)
                section = next(section for section in image.sections if section.name == name)
                put(image, "I", section.header + 36, section.flags | flag)
                self.expect(image, text)

    def test_relocations(self):
        image = image_of(HOST)
        struct.pack_into("<II", image.data, image.directories_at + 8 * check.RELOCATIONS, 0, 0)
        self.expect(image, "no relocations", HOST)
        image = image_of(HOST)
        put(image, "H", image.header + 22, image.flags | check.RELOCS_STRIPPED)
        self.expect(image, "relocations are stripped", HOST)
        image = image_of(HOST)
        put(image, "H", image.header + 22, image.flags & ~check.LARGE_ADDRESS_AWARE)
        self.expect(image, "not aware of large addresses", HOST)

    def test_the_entry(self):
        image = image_of(PLUGIN)
        data = next(section for section in image.sections if section.name == ".data")
        put(image, "I", image.header + 24 + 16, data.address)
        self.expect(image, "begins outside .text")

    def test_imported_libraries(self):
        self.expect(self.replace(b"ADVAPI32.dll\0", b"VERSION0.dll\0"), "imports VERSION0.dll")
        self.expect(self.replace(b"api-ms-win-crt-heap-l1-1-0.dll\0", b"msvcrt.dll\0" + b"\0" * 20), "imports msvcrt.dll")
        found = check.problems(PLUGIN, check.Image(self.replace(b"\0hul.dll\0", b"\0huh.dll\0").data))
        self.assertEqual(found, ["imports huh.dll", "does not import hul.dll by name"])
        # What the plug-in may import, the engine may not.
        self.expect(self.replace(b"ADVAPI32.dll\0", b"hul.dll\0\0\0\0\0\0", "zdvfs.dll"), "imports hul.dll", "zdvfs.dll")

    def test_imported_functions_that_load(self):
        self.expect(self.replace(b"GetModuleHandleExW\0", b"LoadLibraryW" + b"\0" * 7), "imports LoadLibraryW,")
        self.expect(self.replace(b"LoadLibraryExW\0", b"LoadLibraryA\0\0\0", HOST), "imports LoadLibraryA,", HOST)

    def test_a_function_imported_by_number(self):
        image = image_of(PLUGIN)
        first = image.at(image.directory[check.IMPORTS][0])
        put(image, "Q", image.at(image.number("I", first)), 1 << 63 | 123)
        self.expect(image, "imports #123 of ADVAPI32.dll by number")

    def test_exports(self):
        self.expect(self.replace(b"\0GetProtocol\0", b"\0GetProtocoL\0"), "['GetProtocoL']; does not export: ['GetPro")

    def test_callbacks_of_threads(self):
        for address, text in ((".data", "callback of threads outside .text"), (".text", "unknown callback of threads")):
            with self.subTest(text=text):
                image = image_of(PLUGIN)
                self.assertGreater(len(image.tls_callbacks()), 0)
                section = next(section for section in image.sections if section.name == address)
                table = image.number("Q", image.at(image.directory[check.TLS][0]) + 24)
                put(image, "Q", image.at(table - image.base), image.base + section.address)
                self.expect(image, text)

    def test_paths(self):
        for path in (b"/home/builder/x.cpp", str(ROOT).encode() + b"/x", b"C:\\Users\\me\\x.cpp"):
            with self.subTest(path=path):
                image = image_of(PLUGIN)
                data = next(section for section in image.sections if section.name == ".rdata")
                image.data[data.raw_offset:data.raw_offset + len(path) + 1] = path + b"\0"
                found = check.problems(PLUGIN, check.Image(image.data))
                self.assertTrue(any(text.startswith("holds the path ") for text in found), found)

    def test_symbols(self):
        self.expect(self.with_symbol("__emutls_get_address"), "holds __emutls_get_address")
        image = image_of(PLUGIN)
        struct.pack_into("<II", image.data, image.header + 12, 0, 0)
        # Without symbols the names of debug sections are gone too, and their content could be anything.
        found = check.problems(PLUGIN, check.Image(image.data))
        self.assertIn("has no symbols to look at", found)

    def with_symbol(self, name):
        known = next(known for known in image_of(PLUGIN).symbols() if len(known) == len(name))
        return self.replace(b"\0" + known.encode() + b"\0", b"\0" + name.encode() + b"\0")

    def test_the_messages_are_resources_alone(self):
        self.assertEqual(check.problems(check.MESSAGES, image_of(check.MESSAGES)), [])
        found = check.problems(check.MESSAGES, image_of("hul.dll"))
        self.assertEqual(found[:2], ["holds code", "imports or exports something"])
        image = image_of(check.MESSAGES)
        struct.pack_into("<II", image.data, image.directories_at + 8 * check.RESOURCES, 0, 0)
        self.expect(image, "holds no resources", check.MESSAGES)

    def test_stripped_binaries_are_checked_without_symbols(self):
        with tempfile.TemporaryDirectory() as folder:
            for name in check.SHIPPED:
                target = pathlib.Path(folder) / name
                subprocess.run(["x86_64-w64-mingw32-strip", "-o", target, BINARIES / name], check=True)
                image = check.Image(bytearray(target.read_bytes()))
                self.assertEqual(image.symbols(), {})
                self.assertEqual(check.problems(name, image, stripped=True), [])
                put(image, "H", image.protections_at, 0)
                self.assertEqual(len(check.problems(name, check.Image(image.data), stripped=True)), 3)

    def test_a_folder_holds_all_of_them(self):
        with tempfile.TemporaryDirectory() as folder:
            for name in (*check.SHIPPED, check.MESSAGES):
                shutil.copy(BINARIES / name, folder)
            self.assertEqual(self.status_of(folder), (0, ""))
            for name in (*check.SHIPPED, check.MESSAGES):
                with self.subTest(name=name):
                    (pathlib.Path(folder) / name).unlink()
                    status, told = self.status_of(folder)
                    self.assertEqual(status, 1)
                    self.assertIn(f"{name}: cannot be read: ", told)
                    shutil.copy(BINARIES / name, folder)

    @staticmethod
    def status_of(folder):
        run = subprocess.run([ROOT / "packaging" / "check-binaries", folder], capture_output=True, text=True, check=False)
        return run.returncode, run.stderr

    def test_what_is_no_program(self):
        for data in (b"", b"MZ", b"#!/bin/sh\n" + b"x" * 200, bytes(image_of(PLUGIN).data[:0x100])):
            with self.subTest(size=len(data)):
                self.assertRaises(check.Malformed, check.Image, data)


if __name__ == "__main__":
    unittest.main()
