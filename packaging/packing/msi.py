"""Makes the MSI: a description for wixl from the staged files, and then what wixl cannot be told."""

import hashlib
import re
import subprocess
import uuid
from xml.sax.saxutils import quoteattr

import gi

gi.require_version("Libmsi", "1.0")
from gi.repository import Libmsi  # noqa: E402

# These stand for the product for ever: Windows finds an older version, and a file of one, by them.
UPGRADE_CODE = "{3F1B6C52-7E0D-4B8B-9A6E-52C0D6A1E7F4}"
COMPONENTS = uuid.UUID("8d7a5c1e-0c2f-4f35-9be4-6f0b1d3c9a27")
PRODUCTS = uuid.UUID("c2e94a60-51d7-4a0e-8f6b-7b1a2e5d8c93")

EVENT_KEY = r"SYSTEM\CurrentControlSet\Services\EventLog\Application\ZDVFS"
SETTINGS_KEY = r"SOFTWARE\Orvane\Zendra\ZDVFS"

MESSAGES = "bin/ZdvfsMessages.dll"
FOLDERS = ("INSTALLDIR", "ZENDRADIR", "ORVANEDIR")

# Feature: title, description, which staged files. The first that takes a file has it.
FEATURES = {
    "Plugin": ("Plug-in", "The plug-in, the texts of its events, and their registration.",
               r"bin/Zdvfs[^/]*\.dll|licences/.*|[^/]*\.json"),
    "Settings": ("Settings key", "The registry key of the plug-in's settings.", None),
    "Host": ("zdhost", "The reference host for the command line.", r"bin/.*"),
    "Documents": ("Documents", "Documents.", r"docs/.*|[^/]*\.md"),
    "Administration": ("Administration", "Templates for the registry and for group policy.", r"admin/.*"),
    "Sdk": ("Host SDK", "Headers, a CMake package and a sample for authors of hosts.", r"include/.*|lib/.*|share/.*"),
}
VERSIONED = re.compile(r".*\.(dll|exe)")


def guid(value):
    return "{" + str(value).upper() + "}"


def identifier(path):
    """A short name of a staged file or folder for the tables."""
    return "x" + hashlib.sha256(path.encode()).hexdigest()[:30]


def feature_of(path):
    for name, (_, _, pattern) in FEATURES.items():
        if pattern and re.fullmatch(pattern, path):
            return name
    raise ValueError(f"no feature takes {path}")


def component(path, content, condition=""):
    return (f'<Component Id="c{identifier(path)}" Guid={quoteattr(guid(uuid.uuid5(COMPONENTS, path)))} '
            f'Win64="yes"{condition}>{content}</Component>')


def registry_value(key, name, kind, value, key_path=False):
    return (f'<RegistryValue Root="HKLM" Key={quoteattr(key)} Name={quoteattr(name)} Type="{kind}" '
            f'Value={quoteattr(value)}{" KeyPath=" + chr(34) + "yes" + chr(34) if key_path else ""}/>')


def directory_tree(paths, stage, members):
    """The folders and their components, as nested elements; what each feature holds is added to `members`."""
    folders = {}
    for path in paths:
        folder = folders
        *parents, name = path.split("/")
        for parent in parents:
            folder = folder.setdefault(parent, {})
        folder[name] = path

    def elements(folder, prefix):
        lines = []
        for name, entry in sorted(folder.items()):
            if isinstance(entry, dict):
                inner = prefix + name + "/"
                lines.append(f'<Directory Id="d{identifier(inner)}" Name={quoteattr(name)}>')
                lines += elements(entry, inner)
                lines.append("</Directory>")
                continue
            members[feature_of(entry)].append(entry)
            content = (f'<File Id="f{identifier(entry)}" Name={quoteattr(name)} Source={quoteattr(stage + "/" + entry)} '
                       'KeyPath="yes"/>')
            if entry == MESSAGES:
                content += registry_value(EVENT_KEY, "EventMessageFile", "string", "set below")
                content += registry_value(EVENT_KEY, "TypesSupported", "integer", "7")
                content += "".join(f'<RemoveFolder Id="{name}" On="uninstall"/>' for name in FOLDERS)
            lines.append(component(entry, content))
        return lines

    return elements(folders, "")


def description(version, product_code, paths, stage):
    members = {name: [] for name in FEATURES}
    tree = directory_tree(paths, stage, members)
    # Its one value is what makes the installer remove the key again, where nobody has put anything else there.
    plugin = f"[#f{identifier('bin/ZdvfsProtocol.dll')}]"
    settings = component("settings", registry_value(SETTINGS_KEY, "PluginPath", "string", plugin, key_path=True))
    members["Settings"].append("settings")
    features = []
    for name, (title, text, _) in FEATURES.items():
        references = "".join(f'<ComponentRef Id="c{identifier(path)}"/>' for path in members[name])
        if references:
            features.append(f'<Feature Id="{name}" Title={quoteattr(title)} Description={quoteattr(text)} Level="1">'
                            f"{references}</Feature>")
    # This version itself counts as an older one, where its contents differ.
    major, minor, patch = version.split(".")
    successor = f"{major}.{minor}.{int(patch) + 1}"
    newline = "\n"
    return f"""<?xml version="1.0" encoding="utf-8"?>
<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">
<Product Id="{product_code}" Name="Zendra ZDVFS protocol plug-in" Language="1033" Version="{version}"
  Manufacturer="Orvane" UpgradeCode="{UPGRADE_CODE}">
<Package InstallerVersion="500" Compressed="yes" InstallScope="perMachine" Manufacturer="Orvane"
  Description="Zendra ZDVFS protocol plug-in {version}" Comments="For 64-bit Windows"/>
<Upgrade Id="{UPGRADE_CODE}">
<UpgradeVersion Minimum="0.0.0" IncludeMinimum="yes" Maximum="{successor}" IncludeMaximum="no" Property="OLDERFOUND"/>
<UpgradeVersion Minimum="{version}" IncludeMinimum="no" OnlyDetect="yes" Property="NEWERFOUND"/>
</Upgrade>
<Condition Message="A newer version is installed. Remove it first to go back to this one.">NOT NEWERFOUND</Condition>
<Condition Message="This needs 64-bit Windows.">VersionNT64</Condition>
<Media Id="1" Cabinet="zdvfs.cab" EmbedCab="yes"/>
<Directory Id="TARGETDIR" Name="SourceDir"><Directory Id="ProgramFiles64Folder">
<Directory Id="ORVANEDIR" Name="Orvane"><Directory Id="ZENDRADIR" Name="Zendra">
<Directory Id="INSTALLDIR" Name="ZDVFS">
{newline.join(tree)}
{settings}
</Directory></Directory></Directory></Directory></Directory>
{newline.join(features)}
<InstallExecuteSequence><RemoveExistingProducts After="InstallValidate"/></InstallExecuteSequence>
</Product>
</Wix>
"""


def finish(path, version, paths, package_code, epoch):
    """Writes what wixl cannot be told, and a code and times in the place of those that it makes up."""
    database = Libmsi.Database.new(str(path), Libmsi.DbFlags.TRANSACT, None)

    def change(statement):
        query = Libmsi.Query.new(database, statement)
        query.execute(None)
        query.close()

    # A REG_EXPAND_SZ.
    change(f"UPDATE `Registry` SET `Value` = '#%[#f{identifier(MESSAGES)}]' WHERE `Name` = 'EventMessageFile'")
    # A folder other than the component's.
    for folder in FOLDERS:
        change(f"UPDATE `RemoveFile` SET `DirProperty` = '{folder}' WHERE `FileKey` = '{folder}'")
    for name in paths:
        if VERSIONED.fullmatch(name):
            # A file with a version is compared by it, not by a hash.
            key = "f" + identifier(name)
            change(f"UPDATE `File` SET `Version` = '{version}.0', `Language` = '1033' WHERE `File` = '{key}'")
            change(f"DELETE FROM `MsiFileHash` WHERE `File_` = '{key}'")
    summary = Libmsi.SummaryInfo.new(database, 3)
    summary.set_string(Libmsi.Property.UUID, package_code)
    for moment in (Libmsi.Property.CREATED_TM, Libmsi.Property.LASTSAVED_TM):
        summary.set_filetime(moment, (epoch + 11644473600) * 10000000)
    if not summary.persist() or not database.commit():
        raise RuntimeError(f"{path.name} cannot be changed")


def make(path, version, stage, paths, contents_hash, epoch):
    """Writes the MSI. The same contents have the same product and package code; others replace the installed ones."""
    product_code = guid(uuid.uuid5(PRODUCTS, "product " + version + " " + contents_hash))
    package_code = guid(uuid.uuid5(PRODUCTS, "package " + version + " " + contents_hash))
    source = stage.parent / "package.wxs"
    source.write_text(description(version, product_code, paths, stage.name), encoding="utf-8")
    path.unlink(missing_ok=True)
    # It takes no absolute paths of files. Warnings of its library go to standard error without failing.
    done = subprocess.run(["wixl", "--arch", "x64", "--output", path, source.name], cwd=stage.parent, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        raise RuntimeError(f"wixl failed:\n{done.stdout}")
    finish(path, version, paths, package_code, epoch)
