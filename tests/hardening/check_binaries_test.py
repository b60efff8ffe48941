#!/usr/bin/python3
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

import pefile

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
    return check.read((BINARIES / name).read_bytes())


def with_numbers(image, *numbers):
    """The file's bytes with 64-bit numbers put in at addresses relative to the base."""
    data = bytearray(image.__data__)
    for address, number in numbers:
        struct.pack_into("<Q", data, image.get_offset_from_rva(address), number)
    return data


def section_of(image, name):
    return next(section for section in image.sections if check.name_of(section) == name)


def without(image, directory):
    entry = check.directory(image, directory)
    entry.VirtualAddress = entry.Size = 0
    return image


class CheckBinaries(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def problems(self, data, name=PLUGIN, **options):
        (self.folder / name).write_bytes(data.write() if isinstance(data, pefile.PE) else data)
        return check.problems(self.folder / name, **options)

    def expect(self, data, text, name=PLUGIN, **options):
        found = self.problems(data, name, **options)
        self.assertEqual(len(found), 1, found)
        self.assertIn(text, found[0])

    def replace(self, old, new, name=PLUGIN):
        self.assertEqual(len(old), len(new))
        data = (BINARIES / name).read_bytes()
        self.assertIn(old, data)
        return data.replace(old, new)

    def test_what_is_built_is_fine(self):
        for name in (*check.SHIPPED, check.MESSAGES):
            with self.subTest(name=name):
                self.assertEqual(check.problems(BINARIES / name), [])

    def test_each_protection(self):
        for name in check.PROTECTIONS:
            for binary in check.SHIPPED:
                with self.subTest(name=name, binary=binary):
                    image = image_of(binary)
                    bit = pefile.DLL_CHARACTERISTICS["IMAGE_DLLCHARACTERISTICS_" + name]
                    image.OPTIONAL_HEADER.DllCharacteristics &= ~bit
                    self.expect(image, f"lacks {name}", binary)

    def test_a_low_base(self):
        # The callbacks of threads are told by absolute addresses, which would be wrong now.
        image = without(image_of(PLUGIN), "TLS")
        image.OPTIONAL_HEADER.ImageBase = 0x10000000
        self.expect(image, "prefers the address 0x10000000, below 4 GiB")

    def test_sections(self):
        for name, flag, text in ((".text", "WRITE", ".text is writable and executable"),
                                 (".rdata", "EXECUTE", ".rdata is executable"),
                                 (".data", "EXECUTE", ".data is writable and executable"),
                                 (".bss", "SHARED", ".bss is shared")):
            with self.subTest(name=name):
                image = image_of(PLUGIN)
                section_of(image, name).Characteristics |= pefile.SECTION_CHARACTERISTICS["IMAGE_SCN_MEM_" + flag]
                self.expect(image, text)

    def test_relocations(self):
        self.expect(without(image_of(HOST), "BASERELOC"), "no relocations", HOST)
        image = image_of(HOST)
        image.FILE_HEADER.Characteristics |= pefile.IMAGE_CHARACTERISTICS["IMAGE_FILE_RELOCS_STRIPPED"]
        self.expect(image, "relocations are stripped", HOST)
        image = image_of(HOST)
        image.FILE_HEADER.Characteristics &= ~pefile.IMAGE_CHARACTERISTICS["IMAGE_FILE_LARGE_ADDRESS_AWARE"]
        self.expect(image, "not aware of large addresses", HOST)

    def test_the_entry(self):
        image = image_of(PLUGIN)
        image.OPTIONAL_HEADER.AddressOfEntryPoint = section_of(image, ".data").VirtualAddress
        self.expect(image, "begins outside .text")

    def test_imported_libraries(self):
        self.expect(self.replace(b"ADVAPI32.dll\0", b"VERSION0.dll\0"), "imports VERSION0.dll")
        self.expect(self.replace(b"api-ms-win-crt-heap-l1-1-0.dll\0", b"msvcrt.dll\0" + b"\0" * 20), "imports msvcrt.dll")
        found = self.problems(self.replace(b"\0hul.dll\0", b"\0huh.dll\0"))
        self.assertEqual(found, ["imports huh.dll", "does not import hul.dll by name"])
        # What the plug-in may import, the engine may not.
        self.expect(self.replace(b"ADVAPI32.dll\0", b"hul.dll\0\0\0\0\0\0", "zdvfs.dll"), "imports hul.dll", "zdvfs.dll")

    def test_imported_functions_that_load(self):
        self.expect(self.replace(b"GetModuleHandleExW\0", b"LoadLibraryW" + b"\0" * 7), "imports LoadLibraryW,")
        self.expect(self.replace(b"LoadLibraryExW\0", b"LoadLibraryA\0\0\0", HOST), "imports LoadLibraryA,", HOST)

    def test_a_function_imported_by_number(self):
        image = image_of(PLUGIN)
        first = image.DIRECTORY_ENTRY_IMPORT[0].struct.OriginalFirstThunk
        self.expect(with_numbers(image, (first, 1 << 63 | 123)), "imports #123 of ADVAPI32.dll by number")

    def test_a_library_without_functions(self):
        image = image_of(PLUGIN)
        library = next(entry for entry in image.DIRECTORY_ENTRY_IMPORT if b"-locale-" in entry.dll)
        none = with_numbers(image, (library.struct.OriginalFirstThunk, 0), (library.struct.FirstThunk, 0))
        self.expect(none, "imports a library without a function")

    def test_exports(self):
        self.expect(self.replace(b"\0GetProtocol\0", b"\0GetProtocoL\0"), "['GetProtocoL']; does not export: ['GetPro")

    def test_callbacks_of_threads(self):
        for name, text in ((".data", "callback of threads outside .text"), (".text", "unknown callback of threads")):
            with self.subTest(text=text):
                image = image_of(PLUGIN)
                self.assertGreater(len(check.tls_callbacks_of(image)), 0)
                base = image.OPTIONAL_HEADER.ImageBase
                table = image.DIRECTORY_ENTRY_TLS.struct.AddressOfCallBacks - base
                callback = base + section_of(image, name).VirtualAddress
                self.expect(with_numbers(image, (table, callback)), text)

    def test_paths(self):
        for path in (b"/home/builder/x.cpp", str(ROOT).encode() + b"/x", b"C:\\Users\\me\\x.cpp"):
            with self.subTest(path=path):
                image = image_of(PLUGIN)
                image.set_bytes_at_offset(section_of(image, ".rdata").PointerToRawData, path + b"\0")
                found = self.problems(image)
                self.assertTrue(any(text.startswith("holds the path ") for text in found), found)

    def test_symbols(self):
        self.expect(self.with_symbol("__emutls_get_address"), "holds __emutls_get_address")
        image = image_of(PLUGIN)
        image.FILE_HEADER.PointerToSymbolTable = image.FILE_HEADER.NumberOfSymbols = 0
        self.expect(image, "has no symbols to look at")

    def with_symbol(self, name):
        known = next(known for known in check.symbols_of(BINARIES / PLUGIN) if len(known) == len(name))
        return self.replace(b"\0" + known.encode() + b"\0", b"\0" + name.encode() + b"\0")

    def test_the_messages_are_resources_alone(self):
        found = self.problems((BINARIES / "hul.dll").read_bytes(), check.MESSAGES)
        self.assertEqual(found[:2], ["holds code", "imports or exports something"])
        self.expect(without(image_of(check.MESSAGES), "RESOURCE"), "holds no resources", check.MESSAGES)

    def test_stripped_binaries_are_checked_without_symbols(self):
        for name in check.SHIPPED:
            target = self.folder / name
            subprocess.run(["x86_64-w64-mingw32-strip", "-o", target, BINARIES / name], check=True)
            self.assertEqual(check.symbols_of(target), {})
            self.assertEqual(check.problems(target, stripped=True), [])
            image = check.read(target.read_bytes())
            image.OPTIONAL_HEADER.DllCharacteristics = 0
            self.assertEqual(len(self.problems(image, name, stripped=True)), 3)

    def test_a_folder_holds_all_of_them(self):
        for name in (*check.SHIPPED, check.MESSAGES):
            shutil.copy(BINARIES / name, self.folder)
        self.assertEqual(self.status_of(self.folder), (0, ""))
        for name in (*check.SHIPPED, check.MESSAGES):
            with self.subTest(name=name):
                (self.folder / name).unlink()
                status, told = self.status_of(self.folder)
                self.assertEqual(status, 1)
                self.assertIn(f"{name}: cannot be read: ", told)
                shutil.copy(BINARIES / name, self.folder)

    @staticmethod
    def status_of(folder):
        run = subprocess.run([ROOT / "packaging" / "check-binaries", folder], capture_output=True, text=True, check=False)
        return run.returncode, run.stderr

    def test_what_is_no_program(self):
        data = (BINARIES / PLUGIN).read_bytes()
        machine = struct.unpack_from("<I", data, 0x3C)[0] + 4
        other_machine = data[:machine] + b"\x4c\x01" + data[machine + 2:]
        for wrong in (b"", b"MZ", b"#!/bin/sh\n" + b"x" * 200, other_machine):
            with self.subTest(size=len(wrong)):
                self.assertRaises(pefile.PEFormatError, check.read, wrong)
                (self.folder / PLUGIN).write_bytes(wrong)
                status, told = self.status_of(self.folder / PLUGIN)
                self.assertEqual(status, 1)
                self.assertIn("cannot be read: ", told)

    def test_a_file_that_ends_too_early(self):
        data = (BINARIES / PLUGIN).read_bytes()
        for size in (0x100, 0x400, 0x1000, len(data) // 2):
            with self.subTest(size=size):
                (self.folder / PLUGIN).write_bytes(data[:size])
                self.assertEqual(self.status_of(self.folder / PLUGIN)[0], 1)


if __name__ == "__main__":
    unittest.main()
