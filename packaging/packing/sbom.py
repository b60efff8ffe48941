"""What is in the package, as CycloneDX 1.5: the files with their hashes, and what is linked into the binaries."""

import json
import os
import re
import subprocess
import time
import uuid

SERIALS = uuid.UUID("5b0c5f4e-3d1a-4d7c-8c1f-0e6a9b7d2c48")

# Third party: what it is, the licence as its Debian package states it, and how a library of it is recognised.
LINKED = {
    "libstdc++": ("GNU C++ library", "GPL-3.0-or-later WITH GCC-exception-3.1", r"libstdc\+\+.*"),
    "libgcc": ("GNU compiler runtime", "GPL-3.0-or-later WITH GCC-exception-3.1", r"libgcc(_eh)?"),
    "winpthreads": ("POSIX threads of MinGW-w64", "MIT AND BSD-3-Clause", r"lib(win)?pthread"),
    "mingw-w64-crt": ("C runtime start-up and import libraries of MinGW-w64", "ZPL-2.1", r"lib.*"),
}
# Of headers alone, which no map shows.
HEADERS = {
    "CLI11": ("Command line parser", "BSD-3-Clause", "/usr/include/CLI/CLI.hpp"),
    "nlohmann-json": ("JSON for Modern C++", "MIT", "/usr/include/nlohmann/json.hpp"),
}
DESCRIPTIONS = {
    "bin/ZdvfsProtocol.dll": "The plug-in", "bin/ZdvfsMessages.dll": "Texts of its events",
    "bin/zdhost.exe": "The reference host", "local/zdvfs.dll": "The local storage engine",
    "local/hul.dll": "The local storage engine, utilities",
}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def package_of(path):
    """The Debian package that a file belongs to, with its version."""
    name = output("dpkg-query", "-S", path).split(":")[0]
    version, architecture = output("dpkg-query", "-W", "-f", "${Version} ${Architecture}\n", name).splitlines()[0].split()
    return name, version, architecture


def libraries_in(map_file, build):
    """Which libraries outside of the build went into a binary, by their paths, as the linker's map tells."""
    text = map_file.read_text(encoding="utf-8", errors="replace")
    found = set()
    for library in re.findall(r"^(/\S+\.a)\(", text, re.MULTILINE):
        path = os.path.normpath(library)
        if not path.startswith(str(build) + "/"):
            found.add(path)
    return sorted(found)


def third_party(map_files, build):
    """For each binary the names of LINKED and HEADERS that are in it; and for each name the package it came from."""
    parts, packages = {}, {}
    for binary, map_file in map_files.items():
        names = set()
        for library in libraries_in(map_file, build):
            stem = library.rsplit("/", 1)[1][:-2]
            name = next(name for name, (_, _, pattern) in LINKED.items() if re.fullmatch(pattern, stem))
            names.add(name)
            packages.setdefault(name, package_of(library))
        if binary.endswith("zdhost.exe"):
            for name, (_, _, header) in HEADERS.items():
                names.add(name)
                packages.setdefault(name, package_of(header))
        parts[binary] = sorted(names)
    return parts, packages


def foreign_component(name, package):
    description, licence, _ = {**LINKED, **HEADERS}[name]
    debian, version, architecture = package
    expression = {"expression": licence} if " " in licence else {"license": {"id": licence}}
    return {
        "type": "library", "bom-ref": name, "name": name, "version": version, "description": description,
        "licenses": [expression],
        # A "+" has a meaning in such an address.
        "purl": f"pkg:deb/debian/{debian}@{version}?arch={architecture}".replace("+", "%2B"),
    }


def file_component(path, digest, version):
    kind = "application" if path.endswith(".exe") else "library" if path.endswith(".dll") else "file"
    entry = {"type": kind, "bom-ref": path, "name": path}
    if kind != "file":
        entry["version"] = version
        entry["description"] = DESCRIPTIONS[path]
    entry["hashes"] = [{"alg": "SHA-256", "content": digest}]
    return entry


def make(version, digests, parts, packages, contents_hash, epoch):
    """The document's text. `digests` has the hash of each file in the package."""
    product = f"ZdvfsProtocol-{version}"
    document = {
        "bomFormat": "CycloneDX", "specVersion": "1.5",
        "serialNumber": f"urn:uuid:{uuid.uuid5(SERIALS, contents_hash)}", "version": 1,
        "metadata": {
            "timestamp": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(epoch)),
            "component": {"type": "library", "bom-ref": product, "name": "ZdvfsProtocol", "version": version,
                          "supplier": {"name": "Orvane"}, "description": "Zendra ZDVFS protocol plug-in"},
        },
        "components": [file_component(path, digest, version) for path, digest in sorted(digests.items())]
                      + [foreign_component(name, package) for name, package in sorted(packages.items())],
        "dependencies": [{"ref": product, "dependsOn": sorted(parts)}]
                        + [{"ref": binary, "dependsOn": names} for binary, names in sorted(parts.items())]
                        + [{"ref": name, "dependsOn": []} for name in sorted(packages)],
    }
    return json.dumps(document, indent=2, ensure_ascii=False) + "\n"
