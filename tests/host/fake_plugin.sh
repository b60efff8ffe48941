# zdhost over a plug-in that fails on request: no failure is missed, none leaves something half done. Read by "run".
export ZDHOST_FAKE="" ZDHOST_FAKE_REPORT=""
report=$(printf 'Z:%s/report' "$work")
ZDHOST_FAKE_REPORT=$report
make_file three 3145728 three
small="$here/run"

# Runs with a fault and the fake plug-in; --quiet leaves only what went wrong.
with() {
    ZDHOST_FAKE=$1
    shift
    rm -f report
    : >report
    run --quiet --plugin "$fake" "$@"
}

echo "the connection"
with "" --pool käse --second zwei --third drei mkdir /d
ends 0
says_nothing
holds 'grep -q "^connected pool=kdse second=zwei third=drei open=0 disconnected$" report'
with "ZdConnect=53" mkdir /d
ends 1
says "zdhost: ZdConnect failed: 53 ("
says ") pool"
holds '[ "$(cat report)" = "" ]'
with "connect-throws" mkdir /d
ends 1
says "zdhost: ZdConnect (thrown) failed: 1117 ("
with "no-object" mkdir /d
ends 1
says "GetProtocol answered no object"
with "ZdDisconnect=31" mkdir /d
ends 1
says "ZdDisconnect failed: 31 ("

echo "one connection for a script, handles given back"
cat >in <<'END'
mkdir "/a b"
put three '/a b/it''s'
cp "/a b/it's" /copy
append /copy "/a b/it's"
truncate /copy 2M
rm /copy
cat "/a b/it's" --offset 2M --length 10
END
with "" script
ends 0
says_nothing
holds '[ "$(cat report)" = "connected pool=pool second= third= open=0 disconnected" ]'
tail -c +2097153 three | head -c 10 >expected
same expected out
# A refused connection ends the script, whatever else is asked.
printf 'mkdir /d\nmkdir /e\n' >in
with "ZdConnect=53" script --keep-going
ends 1
says "line 1: ZdConnect failed: 53 ("
holds '! grep -q "line 2" err'
: >in

echo "callers: the service connects and disconnects, the caller does the rest"
told() { # EXPECTED: the report without the names of the connection
    checks=$((checks + 1))
    [ "$(sed 's/^.* third= //' report)" = "$1" ] || fail "the report should be: $1, and is: $(cat report)"
}
with "tell-callers" mkdir /d
told "connect-by=process open-by=process open=0 disconnected disconnect-by=process"
with "tell-callers" --as self mkdir /d
ends 0
says_nothing
told "connect-by=process open-by=administrator open=0 disconnected disconnect-by=process"
with "tell-callers" --as restricted mkdir /d
ends 0
says_nothing
told "connect-by=process open-by=other open=0 disconnected disconnect-by=process"
with "tell-callers ZdCreateFile=5" --as restricted mkdir /d
ends 1
says 'zdhost: ZdCreateFile failed: 5 ('
told "connect-by=process open-by=other open=0 disconnected disconnect-by=process"
with "ZdConnect=53" --as restricted mkdir /d
ends 1
says 'zdhost: ZdConnect failed: 53 ('
# What the system refuses is not done as somebody else.
with "tell-callers" --as anonymous mkdir /d
if [ "$status" = 0 ]; then
    told "connect-by=process open-by=other open=0 disconnected disconnect-by=process"
else
    says 'zdhost: impersonating "anonymous" failed: '
    told "connect-by=process open=0 disconnected disconnect-by=process"
fi
printf 'mkdir /a\n--as self mkdir /b\n--as restricted mkdir /b\n--as restricted mkdir /c\nmkdir /d\n' >in
with "tell-callers" script --keep-going
ends 1
says 'line 3: ZdCreateFile failed: 183 ('
told "connect-by=process open-by=process open-by=administrator open-by=other open-by=other open-by=process\
 open=0 disconnected disconnect-by=process"
# Inside a script that runs as somebody, each line ends as that caller again.
with "tell-callers" --as restricted script --keep-going
ends 1
told "connect-by=process open-by=other open-by=administrator open-by=other open-by=other open-by=other\
 open=0 disconnected disconnect-by=process"
# A connection that is given up and made again on the way begins and ends as the first one did.
printf 'mkdir /a\nreconnect\nmkdir /b\n' >in
with "tell-callers" --as restricted shell
ends 0
holds '[ "$(grep -c "third= connect-by=process open-by=other open=0 disconnected disconnect-by=process$" report)" = 2 ]'
printf 'mkdir /a\n--as nobody mkdir /b\n' >in
with "tell-callers" script
ends 2
says 'line 2: --as: "nobody" is none of self, restricted, anonymous'
told "connect-by=process open-by=process open=0 disconnected disconnect-by=process"
: >in

echo "failing operations are named, with code and path"
with "ZdCreateFile=5" put three /x
ends 1
says "zdhost: ZdCreateFile failed: 5 ("
says ') \x'
with "ZdWriteFile=112" put three dir/x
ends 1
says "zdhost: ZdWriteFile failed: 112 ("
says ') \dir\x'
holds 'grep -q "open=0 disconnected" report'
with "short-write" put three /x
ends 1
says "ZdWriteFile (short count) failed"
with "ZdCloseFile=1117" put three /x
ends 1
says "ZdCloseFile failed: 1117 ("
holds 'grep -q "open=0 disconnected" report'
with "ZdReleaseFile=6" put three /x
ends 1
says "ZdReleaseFile failed: 6 ("
printf 'put three /x\nacl get /x\n' >in
with "ZdGetSecurity=5" script
ends 1
says 'line 2: ZdGetSecurity failed: 5 ('
printf 'put three /x\nacl set /x D:(A;;FA;;;WD)\n' >in
with "ZdSetSecurity=1338" script
ends 1
says 'line 2: ZdSetSecurity failed: 1338 ('
printf 'put three /x\nacl set /x nonsense\n' >in
with "" script
ends 1
says "line 2: reading the descriptor's text failed: "
printf 'put three /x\ntruncate /x 1\n' >in
with "ZdSetFileSize=112" script
ends 1
says 'line 2: ZdSetFileSize failed: 112 ('
printf 'put three /x\ncp /x /y\n' >in
with "ZdAppendFile=6" script
ends 1
says 'line 2: ZdAppendFile failed: 6 ('
with "short-append" script
ends 1
says 'line 2: ZdAppendFile left 3145727 bytes where 3145728 are due: \y'
printf 'put three /x\ncp /x \\X\n' >in
with "" script
ends 2
says 'source and target are the same file'
printf 'put three /x\nmkdir /d\ncp /d/../x //x\n' >in
with "" script
ends 2
says 'line 3: cp: source and target are the same file'

with "ZdQueryPathInfo=2" ls
ends 1
says 'zdhost: ZdQueryPathInfo failed: 2 ('
with "ZdQueryDirContents=1117" ls
ends 1
says 'zdhost: ZdQueryDirContents failed: 1117 ('
holds 'grep -q "open=0 disconnected" report'
with "ZdQueryFileInfo=6" stat /
ends 1
says 'zdhost: ZdQueryFileInfo failed: 6 ('
holds 'grep -q "open=0 disconnected" report'
with "ZdSetFileBasicInfo=5" attrib / --set r
ends 1
says 'zdhost: ZdSetFileBasicInfo failed: 5 ('
with "ZdSetFileBasicInfo=5" touch /
ends 1
says 'zdhost: ZdSetFileBasicInfo failed: 5 ('
with "ZdRenameFile=183" mv / /x
ends 1
says 'zdhost: ZdRenameFile failed: 183 ('
says '\ -> \x'
holds 'grep -q "open=0 disconnected" report'
with "ZdQueryVolumeInfo=1117" df
ends 1
says 'zdhost: ZdQueryVolumeInfo failed: 1117 ('
with "ZdSetVolumeLabel=8" label x
ends 1
says 'zdhost: ZdSetVolumeLabel failed: 8 ('
with "ZdEnumerateSpaList=5" pools
ends 1
says 'zdhost: ZdEnumerateSpaList failed: 5 ('
# Where nothing was ever registered there is no list, which is no failure; and no connection is made.
with "ZdEnumerateSpaList=2 ZdConnect=53" pools --json
ends 0
holds '[ "$(cat out)" = "[]" ]'
with "ZdConnect=53" tag
ends 0
holds '[ "$(cat out)" = "   123" ]'
with "" ioctl 5
ends 1
says 'zdhost: ZdPathIoctl answered 0xFFFFFFFF'
printf 'put three /x\nioctl 5 --on /x\n' >in
with "" script
ends 1
says 'line 2: ZdHandleIoctl answered 0xFFFFFFFF'
: >in
with "" ioctl --show
ends 1
says 'ZdPathIoctl could not reach the pool'
with "no-answer" ioctl --show
ends 1
says 'this zdvfs.dll does not tell what it remembers'
with "" control /d/
ends 1
says 'ZdControlPath answered 0'
# An entry without a name is shown and not entered; half a character does not spoil the JSON.
with "" ls -R
ends 0
holds '[ "$(wc -l <out)" = 3 ]'
with "" ls --json
ends 0
holds 'python3 -c "import json; assert [e[\"name\"] for e in json.load(open(\"out\"))] == [\"\", chr(0xFFFD) * len(json.load(open(\"out\"))[1][\"name\"])]" 2>err'

echo "a get that fails leaves the local file alone"
printf 'as it was' >before
cp before mine
printf 'put three /x\nget /x mine\n' >in
with "early-end" script
ends 1
says 'line 2: ZdReadFile (data ends early) failed: 38 ('
same before mine
holds '[ "$(ls | grep -c "zdhost-")" = 0 ]'
with "" script
ends 0
same three mine
printf 'put three /x\nget /x folder\n' >in
mkdir folder
with "" script
ends 1
says 'line 2: the local name is a directory'
printf 'put three /x\nget /x no/such/place\n' >in
with "" script
ends 1
says 'line 2: creating the local file failed: 3 ('
: >in

echo "trees: names that lead elsewhere, and failures in the middle"
printf 'put three /good\nget -r / inner/back\n' >in
mkdir inner
with "hostile-names" script
ends 1
holds '[ "$(wc -l <err)" = 7 ] && [ "$(grep -c "zdhost: get .*: the name " err)" = 7 ]'
says 'zdhost: get ..\..\out: the name holds a character'
says 'zdhost: get out<001b>: the name holds a character'
says 'zdhost: get COM1.x: the name is that of a device'
holds '[ "$(cd inner && find . | LC_ALL=C sort | tr "\n" " ")" = ". ./back ./back/good " ]'
holds '[ "$(find . -name "*out*" | grep -v "^./out$" | wc -l)" = 0 ]'
same three inner/back/good
# A file that fails midway does not count, and the local one of before stays.
printf 'as it was' >inner/back/good
printf 'put three /good\nget -r --json / inner/back\n' >in
with "hostile-names early-end" script
ends 1
says 'get good: ZdReadFile (data ends early) failed: 38 ('
holds '[ "$(cat inner/back/good)" = "as it was" ] && [ "$(ls inner/back)" = good ]'
holds 'python3 -c "
import json
j = json.load(open(\"out\"))
assert j[\"files\"] == 0 and j[\"bytes\"] == 0 and len(j[\"failures\"]) == 8 and j[\"ended\"] is None, j
" 2>err'
: >in
mkdir -p inner/source/sub
cp three inner/source/sub/1
cp three inner/source/sub/2
with "ZdWriteFile=112" put -r --json inner/source /t
ends 1
holds '[ "$(grep -c "ZdWriteFile failed: 112 (" err)" = 2 ] && grep -q "open=0 disconnected" report'
holds 'python3 -c "
import json
j = json.load(open(\"out\"))
assert j[\"files\"] == 0 and j[\"directories\"] == 1 and j[\"bytes\"] == 0, j
assert [f[\"path\"] for f in j[\"failures\"]] == [chr(92).join([\"sub\", n]) for n in \"12\"], j
" 2>err'
with "ZdSetFileBasicInfo=5" put -r -t inner/source /t
ends 1
holds '[ "$(grep -c "ZdSetFileBasicInfo failed: 5 (" err)" = 2 ]'

echo "names and bytes"
with "" get /nothing mine
ends 1
says 'zdhost: ZdCreateFile failed: 2 ('
same three mine
cp three 'ein Name mit Blanks ü 日本 𝄞'
printf 'put "ein Name mit Blanks ü 日本 𝄞" "[1]"\nget [1] "zurück 𝄞"\n' >in
with "" script
ends 0
same three 'zurück 𝄞'
: >empty
printf 'put empty /e\nget /e empty-back\ncat /e\ncat /e --offset 5 --length 7\n' >in
with "" script
ends 0
prints_nothing
same empty empty-back
printf 'put three /x\nmkdir -p /a/b/c\nmkdir -p /a/b\nrm -d /a/b/c\nrm -d /a/b/c\n' >in
with "" script
ends 1
says 'line 5: ZdCreateFile failed: 2 ('
# Standard input as the source.
cp three in
with "" put - /x
ends 0
with "short-write" put - /x
ends 1
: >in
# Reports go to standard output where they are wanted.
ZDHOST_FAKE=""
run --plugin "$fake" put three /x
ends 0
says_nothing
prints 'put: 3145728 bytes (3.0 MiB) in '
prints ': \x'
holds '[ "$(wc -l <out)" = 1 ]'
# Standard output that takes nothing more.
current="cat into a full device"
printf 'put three /x\ncat /x\n' >in
"$root/tools/wine" "$zdhost" --quiet --plugin "$fake" script <in >/dev/full 2>err
status=$?
: >out
ends 1
says "line 2: cannot write to standard output"
