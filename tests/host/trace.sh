# What zdhost --trace shows, over the local engine and over another zdvfs.dll; and that nothing changes because of it.
# Read by "run".
mkdir agent pools logs
printf 'IFS_COMPRESSION=1\nPREFERRED_EXT_SEGKSIZE=vhd:64\n' >agent/zd.conf
printf '[Main]\nAgentID=7\n' >agent/pool.cfg
export ZDVFS_LOCAL_ROOT="Z:$work/pools" ZDVFS_LOCAL_CREATE=1
mib=1048576
run setup --clear --former-tree
ends 0
run setup --clear --agent-path "Z:$work/agent" --log-path "Z:$work/logs" --agent-type 1 --max-file-size-mb 1 \
    --debug-level 3
ends 0

# A trace without what differs from run to run or from system to system: times, addresses, sizes of the disk, threads,
# the texts of codes.
plain() {
    sed -E -e 's/  [0-9]+ us$//' -e 's/(handle|source|target)=0x[0-9a-f]+/\1=H/g' -e 's/0x[0-9a-f]{6,}/P/g' \
        -e 's/thread [0-9]+/thread N/' -e 's/(total|available)Blocks=[0-9]+/\1Blocks=N/g' -e 's/blockSize=[0-9]+/blockSize=N/' \
        -e 's/^(.* (=|threw) [1-9][0-9]*) \([^)]*\)/\1 (TEXT)/' -e 's/ +$//' "$1"
}
# The operations from the first to the last that is named, with what stands under them.
between() {
    plain err | awk -v first="$1" -v last="$2" '
        /^[^ ]/ { if (index($0, first "(") == 1) on = 1; else if (ending) exit }
        on && index($0, last "(") == 1 { ending = 1 }
        on { print }'
}
# Standard input holds what the operations FIRST to LAST should show.
shows() {
    cat >expected
    between "$1" "$2" >shown
    checks=$((checks + 1))
    diff expected shown >difference || fail "the trace differs: $(cat difference)"
}
# Checks the JSON trace of the last run: TEXT is Python, with the operations as t, and one(NAME), calls(NAME).
json_holds() {
    checks=$((checks + 1))
    python3 - "$1" 2>err <<'PYTHON' || fail "the JSON trace should hold: $1"
import json, sys
with open("trace.json", encoding="utf-8") as file:
    t = json.load(file)
def one(name):
    found = [o for o in t if o["operation"] == name]
    assert len(found) == 1, [o["operation"] for o in t]
    return found[0]
def calls(name):
    return [(c["call"], c["result"], c["errno"], c["win32"]) for c in one(name)["calls"]]
exec(sys.argv[1])
PYTHON
}


dos=Z:${work//\//\\}
echo "the connection"
run --trace mkdir /d
ends 0
prints_nothing
shows GetProtocol ZdConnect <<END
GetProtocol() = P
ZdConnect("pool", "", "") = 0
    InifileReleaseA("$dos\\agent\\pool.cfg")
    InifileGetIntegerA("$dos\\agent\\pool.cfg", "Main", "AgentID", -1) = 7
    wcstoutf8_malloced("$dos\\agent\\pool.cfg") = "$dos\\agent\\pool.cfg"
    _HulFree(P)
    InifileGetIntegerA("$dos\\agent\\zd.conf", "__dummy__section__", "IFS_COMPRESSION", 0) = 1
    InifileGetIntegerA("$dos\\agent\\zd.conf", "__dummy__section__", "ENCRYPTION", 0) = 0
    InifileGetIntegerA("$dos\\agent\\zd.conf", "__dummy__section__", "RESTORE_DECRYPT_LOCAL", 1) = 1
    InifileGetValueA("$dos\\agent\\zd.conf", "__dummy__section__", "PREFERRED_EXT_SEGKSIZE", "", 256) = 6, value="vhd:64"
    ZdvfsMountV1("6.0.0.0", "pool", 3, 1000, "$dos\\agent\\pool.cfg") = 0
    ZdvfsStatvfs("pool") = 0, blockSize=N, totalBlocks=N, availableBlocks=N
    ZdvfsOpendir("pool") = P
    ZdvfsReaddir(P) = "."
    ZdvfsReaddir(P) = ".."
    ZdvfsReaddir(P) = null
    ZdvfsClosedir(P) = 0
    ZdvfsOpen("pool", 0x0, 0x0) = 0
    ZdvfsIoctl(0, 10, 1, 4) = 0
    ZdvfsIoctl(0, 9, 0, 4) = 0
    ZdvfsClose(0) = 0
END
shows ZdDisconnect Release <<'END'
ZdDisconnect() = 0
    ZdvfsUmount("pool") = 0
Release()
END

echo "a file of three fragments"
make_file three $((2 * mib + 777)) three
run --quiet --trace put three /x
ends 0
prints_nothing
sddl='"O:BAG:BAD:(A;;GA;;;BA)(A;;GA;;;SY)"'
shows ZdCreateFile ZdReleaseFile <<END
ZdCreateFile("\\x", isDirectory=0, fileAttributes=0x80, createDisposition=kZdOverwriteIf, access=0x2, descriptor=null) = 0, handle=H, size=0, attributes=0x80, mode=0x81a4
    ZdvfsStat("pool/x") = -1, errno 2
    ZdvfsGetNTAclStr("pool/x", 16384) = -1, errno 2
    ZdvfsGetDsidNTAclStr("pool/x", 16384) = -1, errno 2
    ZdvfsOpen("pool/x", 0x302, 0x80) = 0
    ZdvfsFtruncate(0, 0) = 0
    ZdvfsSetNTAclStr("pool/x", $sddl) = 0
    ZdvfsStat("pool/x") = 0, size=0, attributes=0x80, mode=0x81a4
    ZdvfsStat("pool/x;F1") = -1, errno 2
ZdWriteFile(handle=H, offset=0, length=1048576) = 0, bytesWritten=1048576
    ZdvfsPwrite(0, 1048576, 0) = 1048576
ZdWriteFile(handle=H, offset=1048576, length=1048576) = 0, bytesWritten=1048576
    log 3  Entering CProtocolManager::ReOpenFile("pool/x;F1"
    ZdvfsStat("pool/x;F1") = -1, errno 2
    log 3  ZdvfsStat("\\x;F1") failed with errno = 2 during ReOpenFile
    ZdvfsOpen("pool/x;F1", 0x102, 0x0) = 1
    ZdvfsPwrite(1, 1048576, 0) = 1048576
ZdWriteFile(handle=H, offset=2097152, length=777) = 0, bytesWritten=777
    log 3  Entering CProtocolManager::ReOpenFile("pool/x;F2"
    ZdvfsStat("pool/x;F2") = -1, errno 2
    log 3  ZdvfsStat("\\x;F2") failed with errno = 2 during ReOpenFile
    ZdvfsOpen("pool/x;F2", 0x102, 0x0) = 2
    ZdvfsPwrite(2, 777, 0) = 777
ZdCloseFile(handle=H, deleteFlag=0) = 0
    ZdvfsClose(0) = 0
    ZdvfsClose(1) = 0
    ZdvfsClose(2) = 0
ZdReleaseFile(handle=H) = 0
END
run --trace cat /x --offset 1048570 --length 10
ends 0
tail -c +1048571 three | head -c 10 >piece
same piece out
shows ZdReadFile ZdReadFile <<'END'
ZdReadFile(handle=H, offset=1048570, length=10) = 0, bytesRead=10
    ZdvfsPread(0, 6, 1048570) = 6
    log 3  Entering CProtocolManager::ReOpenFile("pool/x;F1"
    ZdvfsStat("pool/x;F1") = 0, size=1048576, attributes=0x0, mode=0x81a4
    ZdvfsOpen("pool/x;F1", 0x10100, 0x0) = 1
    ZdvfsPread(1, 4, 0) = 4
END
quietly --trace-to moved mv /x /d/y
cp moved err
shows ZdRenameFile ZdRenameFile <<'END'
ZdRenameFile(handle=H, "\d\y", replaceIfExists=0) = 0
    ZdvfsRename("pool/x", "pool/d/y") = 0
    ZdvfsRename("pool/x;F1", "pool/d/y;F1") = 0
    ZdvfsRename("pool/x;F2", "pool/d/y;F2") = 0
END

echo "failures, and the code that they became"
run --trace cat /missing
ends 1
says ' = 2 ('
says 'zdhost: ZdCreateFile failed: 2 ('
sed -i '/^zdhost: /d' err
shows ZdCreateFile ZdDisconnect <<'END'
ZdCreateFile("\missing", isDirectory=0, fileAttributes=0x80, createDisposition=kZdOpen, access=0x1, descriptor=null) = 2 (TEXT)
    ZdvfsStat("pool/missing") = -1, errno 2
    ZdvfsGetNTAclStr("pool/missing", 16384) = -1, errno 2
    ZdvfsGetDsidNTAclStr("pool/missing", 16384) = -1, errno 2
    ZdvfsOpen("pool/missing", 0x10000, 0x0) = -1, errno 2 -> 2
ZdDisconnect() = 0
    ZdvfsUmount("pool") = 0
END
run --trace rm -d /d
ends 1
shows ZdCloseFile ZdCloseFile <<'END'
ZdCloseFile(handle=H, deleteFlag=1) = 1117 (TEXT)
    ZdvfsClosedir(P) = 0
    ZdvfsUnlink("pool/d") = -1, errno 41 -> 1117
END
run --trace mv /d/y /missing/y
ends 1
shows ZdRenameFile ZdRenameFile <<'END'
ZdRenameFile(handle=H, "\missing\y", replaceIfExists=0) = 2 (TEXT)
    ZdvfsRename("pool/d/y", "pool/missing/y") = -1, errno 2 -> 2
END
# No call has failed with what the operation answers.
run --trace attrib /d/y --set 0x400
ends 1
shows ZdSetFileBasicInfo ZdSetFileBasicInfo <<'END'
ZdSetFileBasicInfo(handle=H, creationTime=0, lastAccessTime=0, lastWriteTime=0, changeTime=0, fileAttributes=0x400) = 87 (TEXT)
    log 1  ZdSetFileBasicInfo: FileName:   pool/d/y  ERROR:  Invalid Parameter:      dwFileAttributes value = 1024
END

echo "control requests"
run --trace ioctl 16 1000
ends 0
shows ZdPathIoctl ZdPathIoctl <<'END'
ZdPathIoctl(request=16) = 0
    wcstoutf8_buf("pool", 260) = 5
    ZdvfsOpen("/pool", 0x0, 0x0) = 0
    ZdvfsVIoctl(0, 16, 1000, 4) = 0
    ZdvfsClose(0) = 0
END
run --trace refresh --full 30
ends 0
shows ZdRefreshSettings ZdRefreshSettings <<END
ZdRefreshSettings(value=30, full=1)
    wcstoutf8_buf("pool", 260) = 5
    ZdvfsOpen("/pool", 0x0, 0x0) = 0
    ZdvfsVIoctl(0, 14, 630, 4) = 0
    ZdvfsClose(0) = 0
    wcstoutf8_buf("pool", 260) = 5
    ZdvfsOpen("/pool", 0x0, 0x0) = 0
    ZdvfsVIoctl(0, 16, 1000, 4) = 0
    ZdvfsClose(0) = 0
    InifileReleaseA("$dos\\agent\\pool.cfg")
    InifileGetIntegerA("$dos\\agent\\pool.cfg", "Main", "AgentID", -1) = 7
END
run --trace control /d/
ends 1
shows ZdControlPath ZdControlPath <<'END'
ZdControlPath("\\.zdvfs\pool\d\") = 0
    wcstoutf8_malloced("\pool\d\") = "\pool\d\"
    _HulFree(P)
    ZdvfsStat("/pool/d/.refresh") = -1, errno 2
    ZdvfsStat("/pool/d/.refresh_all") = -1, errno 2
END

echo "deletion"
run --trace rm /d/y
ends 0
shows ZdCloseFile ZdCloseFile <<'END'
ZdCloseFile(handle=H, deleteFlag=1) = 0
    ZdvfsClose(0) = 0
    ZdvfsUnlink("pool/d/y") = 0
    ZdvfsUnlink("pool/d/y;F1") = 0
    ZdvfsUnlink("pool/d/y;F2") = 0
END

echo "off unless asked for"
quietly put three /x
quietly cat /x --length 5
run put three /x
says_nothing
run --trace-json cat /x
ends 2
says '--trace-json requires --trace-to'
run --trace-to no/such/place cat /x
ends 1
says "creating the trace's file failed: 3 ("
prints_nothing
run --trace-to '' cat /x
ends 2

echo "JSON"
run setup --debug-level 6
rm -f logs/*
quietly --trace-json --trace-to trace.json put three /x
json_holds 'assert [o["operation"] for o in t] == ["GetProtocol", "ZdConnect", "ZdCreateFile", "ZdWriteFile",
    "ZdWriteFile", "ZdWriteFile", "ZdCloseFile", "ZdReleaseFile", "ZdDisconnect", "Release"]
assert one("ZdCreateFile")["arguments"]["name"] == "\\x" and one("ZdCreateFile")["arguments"]["access"] == 2
assert one("ZdCreateFile")["arguments"]["descriptor"] is None
assert one("ZdCreateFile")["out"]["handle"] == one("ZdReleaseFile")["arguments"]["handle"]
assert calls("ZdCloseFile") == [("ZdvfsClose", 0, None, None)] * 3
assert [c["arguments"]["offset"] for o in t for c in o["calls"] if c["call"] == "ZdvfsPwrite"] == [0, 0, 0]
assert all(o["microseconds"] >= sum(c["microseconds"] for c in o["calls"]) for o in t)
assert one("Release")["result"] is None and len({o["thread"] for o in t}) == 1'
# Every line of the log file is in the trace, in its order, and nothing else.
json_holds 'import glob, re
log = open(glob.glob("logs/*.LOG")[0], encoding="utf-8").read()
lines = re.split(r"\d{4}/\d\d/\d\d \d\d:\d\d:\d\d \(\d+:[^,]*, \d+\) - ", log)[1:]
traced = [line["text"] for o in t for line in o["log"]]
assert [line.rstrip("\r\n") for line in lines] == traced, (lines, traced)
assert len(traced) > 30 and {line["level"] for o in t for line in o["log"]} == {3, 6}
entry, exit = one("ZdCreateFile")["log"][0], one("ZdCreateFile")["log"][-1]
assert entry["text"].startswith("ZdCreateFile Enter \\x") and entry["afterCalls"] == 0
assert exit["afterCalls"] == len(one("ZdCreateFile")["calls"])'
run --trace-json --trace-to trace.json cat /missing
ends 1
json_holds 'assert one("ZdCreateFile")["result"] == 2
assert calls("ZdCreateFile") == [("ZdvfsStat", -1, 2, None), ("ZdvfsGetNTAclStr", -1, 2, None),
    ("ZdvfsGetDsidNTAclStr", -1, 2, None), ("ZdvfsOpen", -1, 2, 2)]'
# A command without the plug-in, and one that cannot be loaded.
run --trace-json --trace-to trace.json setup --show
ends 0
json_holds 'assert t == []'
run --trace-json --trace-to trace.json --plugin nowhere.dll cat /x
ends 1
json_holds 'assert t == []'
run --pool käse --trace-json --trace-to trace.json mkdir '/"ü"'
ends 0
json_holds 'assert one("ZdConnect")["arguments"]["poolName"] == "käse"
assert one("ZdCreateFile")["arguments"]["name"] == "\\\"ü\""'

echo "a trace that cannot be written is told"
if [ -e /dev/full ]; then
    run --quiet --trace-to 'Z:/dev/full' cat /x --length 5
    ends 1
    says 'the trace could not be written completely'
    holds '[ "$(cat out)" = "$(head -c 5 three)" ]'
fi

echo "nothing changes because of it"
cat >commands <<'END'
mkdir /s
put three /s/a
cp /s/a /s/b
append /s/a /s/b
truncate /s/a 1500000
cat /s/b --offset 2097000 --length 2000
mv /s/a /s/c
mv /s/b /s/missing/c
cat /s/missing
stat --json /s/missing
attrib /s/c --set r
attrib /s/c
ls -R /s
acl get /s/c
ioctl 2 65536 --on /s/c
ioctl 77 5
control /s/
pools --json
refresh
say --level 2 "a line"
rm /s/c /s/b
rm -d /s
END
cp commands in
texts() { sed -E -e 's/[0-9/]{10} [0-9:]{8} \([0-9]+:[^)]*\) - //g' -e 's/0000000[0-9A-F]{9}/H/g' logs/*.LOG; }
rm -f logs/*
run --quiet script --keep-going
plainStatus=$status
cp out plainOut
cp err plainErr
texts >plainLog
rm -f logs/*
run --quiet --trace-json --trace-to trace.json script --keep-going
ends "$plainStatus"
same plainOut out
same plainErr err
texts >tracedLog
same plainLog tracedLog
holds '[ "$(wc -l <plainLog)" -gt 300 ] && [ -s plainErr ] && [ -s plainOut ]'
json_holds 'assert len([o for o in t if o["operation"] == "ZdConnect"]) == 1 and len(t) > 60
assert all(o["operation"] != "outside" for o in t)'
: >in

echo "over another zdvfs.dll"
bin=$(dirname "$zdhost")
mkdir other
cp "$bin/ZdvfsProtocol.dll" "$bin"/double/*.dll other
run setup --debug-level 2
run --trace --plugin other/ZdvfsProtocol.dll label
ends 0
# The double numbers its descriptors from 3.
holds 'grep -q "^    ZdvfsOpen(\"pool\", 0x0, 0x0) = 3 " err && grep -q "^    ZdvfsClose(3) = 0 " err'

echo "between a plug-in and its library"
cp "$bin/tests/ZdhostTracePlugin.dll" other
ZDHOST_TRACE_REPORT="Z:$work/report"
export ZDHOST_TRACE_REPORT
# The same with and without the trace; the reports then hold what the plug-in saw.
twice() {
    for traced in "" --trace; do
        rm -f report
        # shellcheck disable=SC2086
        run $traced --plugin other/ZdhostTracePlugin.dll "$@"
        [ -n "$traced" ] || mv report untraced
    done
    same untraced report
    holds '[ "$(tail -n 1 report)" = "its own again" ]'
}
twice say errors
holds 'grep -qx "ZdvfsStat = -1 errno 99 last error 4711" report'
holds 'grep -qx "ZdvfsStat = 0 errno 7 last error 8" report'
shows ZdLogMessage ZdLogMessage <<'END'
ZdLogMessage(level=3, "errors<000a>")
    ZdvfsStat("pool/x") = -1, errno 28
    ZdvfsStat("pool/x") = -1, errno 99
    ZdvfsStat("pool/x") = 0, size=0, attributes=0x0, mode=0x0
    ZdvfsReaddir(null) = null
    ZdvfsReaddir(null) = null, errno 9
END
twice say requests
holds 'grep -qx "requests = 27" report'
holds 'grep -qF "(3, 77, 140737488355327, -1, -2, 3, 78187493530, 6) = 5" report'
shows ZdLogMessage ZdLogMessage <<'END'
ZdLogMessage(level=3, "requests<000a>")
    ZdvfsIoctl(3, 46, "vm1") = 5
    ZdvfsIoctl(3, 14, 600, 4) = 5
    ZdvfsIoctl(3, 77) = 5
    ZdvfsVIoctl(3, 14, 600, 4) = 6
    ZdvfsVIoctl(3, 77) = 6
END
twice say threads
plain err >shown
holds '[ "$(grep -x -A 1 "outside of an operation, thread N" shown | tail -n 1)" = "    ZdvfsStat(\"pool/other-thread\") = -1, errno 2" ]'
shows ZdLogMessage ZdLogMessage <<'END'
ZdLogMessage(level=3, "threads<000a>")
    ZdvfsUnlink("pool/own-thread") = -1, errno 2
END
twice mkdir /d
ends 1
says 'ZdConnect (thrown) failed: 31 ('
holds 'grep -qx "unsigned long 1234" report && grep -q "^runtime_error " report'
shows ZdConnect ZdConnect <<'END'
ZdConnect("pool", "", "") threw 31 (TEXT)
    ZdvfsOpen("pool/x", 0x2, 0x0) threw
    ZdvfsOpen("pool/x", 0x2, 0x0) threw
    ZdvfsClose(5) threw
END
run setup --clear
ends 0
