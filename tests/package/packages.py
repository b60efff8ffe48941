#!/usr/bin/env python3
"""Looks into the packages, and installs and removes the MSI in a Wine prefix of its own.

    packages.py PACKAGES EVENT_TEXT PREFIX
"""

import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGES, EVENT_TEXT, PREFIX = (pathlib.Path(word).resolve() for word in sys.argv[1:4])
VERSION = re.search(r"^project\(\S+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE).group(1)
NAME = f"ZdvfsProtocol-{VERSION}-win64"
BINARIES = {"bin/ZdvfsProtocol.dll", "bin/ZdvfsMessages.dll", "bin/zdhost.exe", "local/zdvfs.dll", "local/hul.dll"}
EXPECTED = BINARIES | {
    f"{NAME}.cdx.json", "README.md", "CHANGELOG.md", "SECURITY.md", "CONTRIBUTING.md", "try.cmd", "docs/packages.md",
    "docs/settings.md", "docs/zdhost.md", "include/ZdvfsProtocol/IProtocolManager.h",
    "include/ZdvfsProtocol/ZdvfsLoader.h", "lib/cmake/ZdvfsProtocol/ZdvfsProtocolConfig.cmake",
    "share/ZdvfsProtocol/sample/main.cpp", "licences/mingw-w64-x86-64-dev.txt"}
EVENT_KEY = r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application"
SETTINGS_KEY = r"HKLM\SOFTWARE\Orvane\Zendra\ZDVFS"


def digest(data):
    return hashlib.sha256(data).hexdigest()


class CArchives(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with zipfile.ZipFile(PACKAGES / f"{NAME}.zip") as archive:
            cls.entries = archive.infolist()
            cls.files = {entry.filename[len(NAME) + 1:]: archive.read(entry) for entry in cls.entries}
        cls.sbom = json.loads((PACKAGES / f"{NAME}.cdx.json").read_text(encoding="utf-8"))

    def test_holds_what_it_should(self):
        self.assertEqual(EXPECTED - set(self.files), set())
        folders = {name.split("/")[0] for name in self.files if "/" in name}
        self.assertLessEqual(folders, {"admin", "bin", "docs", "include", "lib", "licences", "local", "share"})
        self.assertEqual({name for name in self.files if name.startswith(("bin/", "local/"))}, BINARIES)
        self.assertTrue(all(entry.filename.startswith(NAME + "/") for entry in self.entries))

    def test_sums_hold(self):
        lines = (PACKAGES / "SHA256SUMS").read_text().splitlines()
        self.assertEqual(len(lines), 4)
        for line in lines:
            value, name = line.split("  ")
            self.assertEqual(value, digest((PACKAGES / name).read_bytes()), name)

    def test_sbom_lists_every_file_with_its_hash(self):
        self.assertEqual((self.sbom["bomFormat"], self.sbom["specVersion"]), ("CycloneDX", "1.5"))
        listed = {entry["name"]: entry["hashes"][0]["content"] for entry in self.sbom["components"] if "hashes" in entry}
        self.assertEqual(listed, {name: digest(data) for name, data in self.files.items() if name != f"{NAME}.cdx.json"})

    def test_sbom_names_what_is_linked_in(self):
        parts = {entry["ref"]: set(entry["dependsOn"]) for entry in self.sbom["dependencies"]}
        self.assertEqual({name for name in parts if name in BINARIES}, BINARIES)
        self.assertLessEqual({"libstdc++", "libgcc", "mingw-w64-crt"}, parts["bin/ZdvfsProtocol.dll"])
        self.assertLessEqual({"CLI11", "nlohmann-json"}, parts["bin/zdhost.exe"])
        self.assertEqual(parts["bin/ZdvfsMessages.dll"], set())
        references = {entry["bom-ref"]: entry for entry in self.sbom["components"]}
        for name in set().union(*parts.values()):
            self.assertIn(name, references)
        for entry in references.values():
            self.assertEqual("licenses" in entry, "hashes" not in entry, entry["name"])
        self.assertNotIn("licenses", self.sbom["metadata"]["component"])

    def test_binaries_have_the_version_and_name_their_symbols(self):
        with zipfile.ZipFile(PACKAGES / f"{NAME}-symbols.zip") as archive:
            symbols = {entry.split("/")[1] for entry in archive.namelist()}
        self.assertEqual(symbols, {name.split("/")[1] + ".debug" for name in BINARIES - {"bin/ZdvfsMessages.dll"}})
        text = "FileVersion\0".encode("utf-16-le")
        for name in BINARIES:
            data = self.files[name]
            after = data[data.index(text) + len(text):][:40].decode("utf-16-le", "replace").lstrip("\0")
            self.assertTrue(after.startswith(VERSION + "\0"), name)
            if name != "bin/ZdvfsMessages.dll":
                self.assertIn((name.split("/")[1] + ".debug").encode(), data)
            # Neither debug information nor the folder it was built in.
            self.assertNotIn(b"/ZdvfsProtocol-build/", data)
            self.assertNotIn(str(ROOT).encode(), data)


class CWithWine(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        shutil.rmtree(PREFIX, ignore_errors=True)
        PREFIX.parent.mkdir(parents=True, exist_ok=True)
        cls.environment = dict(os.environ, WINEPREFIX=str(PREFIX), LC_ALL="C.UTF-8")
        cls.wine("wineboot", "--init")
        cls.server("-w")
        cls.server("-p")

    @classmethod
    def tearDownClass(cls):
        cls.server("-k")

    @classmethod
    def server(cls, option):
        subprocess.run(["wineserver", option], env=cls.environment, timeout=120)

    @classmethod
    def wine(cls, *words):
        # Into a file: a service that stays behind would keep a pipe open.
        with tempfile.TemporaryFile() as said:
            done = subprocess.run([ROOT / "tools" / "wine", *map(str, words)], env=cls.environment, timeout=120,
                                  stdin=subprocess.DEVNULL, stdout=said, stderr=subprocess.STDOUT)
            said.seek(0)
            return done.returncode, said.read().decode("utf-8", "replace").replace("\r", "")

    def value(self, key, name):
        status, said = self.wine("reg", "query", key, "/v", name)
        self.assertEqual(status, 0, f"{key} {name}: {said}")
        return next(line.split(None, 2)[1:] for line in said.splitlines() if line.strip().startswith(name))

    def gone(self, key):
        return self.wine("reg", "query", key)[0] != 0

    def msi(self, option):
        status, said = self.wine("msiexec", option, f"Z:{PACKAGES / (NAME + '.msi')}".replace("/", "\\"), "/qn")
        self.assertEqual(status, 0, said)

    def test_installs_and_removes_all_of_it(self):
        folder = PREFIX / "drive_c" / "Program Files" / "Orvane" / "Zendra" / "ZDVFS"
        inside = "C:\\Program Files\\Orvane\\Zendra\\ZDVFS\\bin\\"
        self.wine("reg", "add", EVENT_KEY + r"\Another", "/v", "x", "/d", "1", "/f")
        self.msi("/i")
        with zipfile.ZipFile(PACKAGES / f"{NAME}.zip") as archive:
            wanted = {entry[len(NAME) + 1:]: archive.read(entry) for entry in archive.namelist()}
        wanted = {name: data for name, data in wanted.items() if not name.startswith("local/") and name != "try.cmd"}
        found = {str(path.relative_to(folder)): path.read_bytes() for path in folder.rglob("*") if path.is_file()}
        self.assertEqual(set(found), set(wanted))
        self.assertEqual([name for name in wanted if wanted[name] != found[name]], [])
        self.assertEqual(self.value(EVENT_KEY + r"\ZDVFS", "EventMessageFile"),
                         ["REG_EXPAND_SZ", inside + "ZdvfsMessages.dll"])
        self.assertEqual(self.value(EVENT_KEY + r"\ZDVFS", "TypesSupported"), ["REG_DWORD", "0x7"])
        self.assertEqual(self.value(SETTINGS_KEY, "PluginPath"), ["REG_SZ", inside + "ZdvfsProtocol.dll"])
        for number in ("CC00C350", "8C00C351"):
            status, said = self.wine(EVENT_TEXT, "ZDVFS", number, "ZdCloseFile: 100% of %1")
            self.assertEqual((status, said.splitlines()[-1]), (0, "ZdCloseFile: 100% of %1"), said)
        self.assertEqual(self.wine(inside + "zdhost.exe", "--version"), (0, f"zdhost {VERSION}\n"))
        self.msi("/x")
        self.assertFalse(folder.exists())
        self.assertTrue(self.gone(EVENT_KEY + r"\ZDVFS"))
        self.assertFalse(self.gone(EVENT_KEY + r"\Another"))
        self.assertTrue(self.gone(r"HKLM\SOFTWARE\Orvane"))

    def test_leaves_an_administrators_values(self):
        self.msi("/i")
        self.wine("reg", "add", SETTINGS_KEY, "/v", "DebugLevel", "/t", "REG_DWORD", "/d", "6", "/f")
        self.msi("/x")
        self.assertEqual(self.value(SETTINGS_KEY, "DebugLevel"), ["REG_DWORD", "0x6"])
        self.assertNotEqual(self.wine("reg", "query", SETTINGS_KEY, "/v", "PluginPath")[0], 0)
        self.wine("reg", "delete", r"HKLM\SOFTWARE\Orvane", "/f")

    def test_tries_everything_from_the_zip(self):
        with tempfile.TemporaryDirectory(dir=PREFIX.parent) as folder:
            with zipfile.ZipFile(PACKAGES / f"{NAME}.zip") as archive:
                archive.extractall(folder)
            unpacked = pathlib.Path(folder) / NAME
            script = f"Z:{unpacked / 'try.cmd'}".replace("/", "\\")
            readme = f"Z:{unpacked / 'README.md'}".replace("/", "\\")
            status, said = self.wine("cmd.exe", "/c", script, "put", readme, "/readme")
            self.assertEqual(status, 0, said)
            status, said = self.wine("cmd.exe", "/c", script, "cat", "/readme")
            self.assertEqual((status, said), (0, (unpacked / "README.md").read_text(encoding="utf-8")))
            self.assertEqual({path.name for path in (unpacked / "bin").iterdir()},
                             {name.split("/")[1] for name in BINARIES if name.startswith("bin/")})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
