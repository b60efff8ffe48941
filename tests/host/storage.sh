# zdhost over the plug-in and the local engine: what goes in comes back, on disk in fragments of 1 MiB. Read by "run".
make_pool
mib=1048576

# The data files of the pool: not the engine's own folder, not the metadata beside each object.
data_files() { find pools/pool -path 'pools/pool/%pool' -prune -o -type f ! -name '%m.*' -print; }
# Compares a remote file with a local one.
remote_is() {
    rm -f back
    quietly get "$1" back
    same "$2" back
}

echo "put and get"
make_file six $((6 * mib + 4321)) six
cp six before
quietly mkdir /d
run put six /d/six.bin
ends 0
says_nothing
prints "put: $((6 * mib + 4321)) bytes (6.0 MiB) in "
holds '[ "$(data_files | wc -l)" = 7 ]'
holds '[ "$(data_files | xargs -d "\n" stat -c %s | sort -n | uniq -c | tr -s " " | tr "\n" ";")" = " 1 4321; 6 1048576;" ]'
holds 'data_files | LC_ALL=C sort | xargs -d "\n" cat | cmp -s - six'
remote_is /d/six.bin six
remote_is 'd\six.bin' six
same before six

echo "exactly one fragment, empty, and what follows from it"
make_file one $mib one
: >none
quietly put one one
holds '[ "$(data_files | wc -l)" = 8 ]'
remote_is one one
quietly put none one
holds '[ "$(data_files | wc -l)" = 8 ]'
remote_is one none
quietly rm one
holds '[ "$(data_files | wc -l)" = 7 ]'

echo "pieces"
for piece in "0 1" "1048575 2" "1048576 1048576" "3000000 2500000" "6295776 99" "6295777 99" "9000000 1" "0 0"; do
    # shellcheck disable=SC2086
    set -- $piece
    quietly cat /d/six.bin --offset "$1" --length "$2"
    tail -c +$(($1 + 1)) six | head -c "$2" >expected
    same expected out
done
quietly cat /d/six.bin --offset 5M
tail -c +$((5 * mib + 1)) six >expected
same expected out

echo "overwriting in the middle"
make_file patch 5000 patch
quietly write /d/six.bin patch --offset $((2 * mib - 100))
dd if=patch of=six bs=1M oflag=seek_bytes seek=$((2 * mib - 100)) conv=notrunc status=none
remote_is /d/six.bin six
# At and behind the end; the gap reads as zero.
quietly write /d/six.bin patch --offset $((6 * mib + 4321 + 1000))
dd if=patch of=six bs=1M oflag=seek_bytes seek=$((6 * mib + 4321 + 1000)) conv=notrunc status=none
remote_is /d/six.bin six
# Further out than one fragment behind the last.
run write /d/six.bin patch --offset 20M
ends 1
says "ZdWriteFile failed: 87 ("
remote_is /d/six.bin six
printf 'from a pipe' >in
run --quiet write /d/six.bin - --offset 5
ends 0
: >in
printf 'from a pipe' | dd of=six bs=1M oflag=seek_bytes seek=5 conv=notrunc status=none
remote_is /d/six.bin six
run write /d/missing patch --offset 0
ends 1
says 'ZdCreateFile failed: 2 ('

echo "inside the storage"
run cp /d/six.bin /d/copy.bin
ends 0
prints "cp: $(stat -c %s six) bytes"
remote_is /d/copy.bin six
quietly append /d/six.bin /d/copy.bin
cat six six >twice
remote_is /d/copy.bin twice
quietly append /d/six.bin /d/made-by-append
remote_is /d/made-by-append six
quietly cp /d/copy.bin /d/made-by-append
remote_is /d/made-by-append twice
run cp /d/missing /d/made-by-append
ends 1
says 'ZdCreateFile failed: 2 ('
remote_is /d/made-by-append twice
run cp /d/six.bin /d/SIX.bin
ends 2

echo "truncate"
cp six cut
for size in $((4 * mib)) $((3 * mib + 77)) $((5 * mib + 5)) 1 $((2 * mib)) 0; do
    quietly truncate /d/six.bin "$size"
    truncate -s "$size" cut
    remote_is /d/six.bin cut
done
quietly truncate /d/six.bin 1M
truncate -s $mib cut
remote_is /d/six.bin cut
run truncate /d/missing 5
ends 1
says 'ZdCreateFile failed: 2 ('

echo "listings"
quietly mkdir /l
quietly put before /l/many.bin
quietly put patch '/l/Klein ü'
quietly mkdir /l/sub
quietly put none /l/sub/none
run ls /l
ends 0
printf 'Klein ü\nmany.bin\nsub\\\n' >expected
same expected out
run ls -l /l
ends 0
holds 'grep -qE "^-------N  6295777  [0-9]{4}-[0-9-]+T[0-9:]+Z  many\.bin$" out'
holds 'grep -qE "^-------N     5000  .*  Klein ü$" out'
holds 'grep -qE "^D------.  .*  sub.$" out'
run ls -a /l
holds '[ "$(head -n 2 out | tr "\n" " ")" = ".\\ ..\\ " ] && [ "$(wc -l <out)" = 5 ]'
run ls -R /l
ends 0
printf '\\l:\nKlein ü\nmany.bin\nsub\\\n\n\\l\\sub:\nnone\n' >expected
same expected out
run ls -R --json /l
ends 0
holds 'python3 -c "
import json
rows = json.load(open(\"out\"))
assert [r[\"path\"] for r in rows] == [\"\\\\l\\\\Klein ü\", \"\\\\l\\\\many.bin\", \"\\\\l\\\\sub\", \"\\\\l\\\\sub\\\\none\"]
assert [r[\"size\"] for r in rows] == [5000, 6295777, 0, 0]
assert [r[\"directory\"] for r in rows] == [False, False, True, False]
assert all(r[\"changeTime\"] == r[\"creationTime\"] for r in rows)
" 2>err'
quietly ls --json /l/sub/none
prints '"name":"none"'
quietly ls /l/many.bin
holds '[ "$(cat out)" = "\\l\\many.bin" ]'
quietly mkdir /l/empty
quietly ls /l/empty
prints_nothing
quietly ls --json /l/empty
holds '[ "$(cat out)" = "[]" ]'
quietly rm -d /l/empty
run ls /l/missing
ends 1
says 'ZdQueryPathInfo failed: 2 ('
says '\l\missing'

echo "information"
quietly stat /l/many.bin /l/sub
holds '[ "$(grep -c "^  size         6295777$" out)" = 1 ]'
prints '  name         many.bin'
prints '  kind         directory'
quietly stat --json /l/many.bin
cp out opened
prints '"name":"many.bin"'
quietly stat --json --unopened /l/many.bin
sed 's/"name":"many.bin",//' opened >expected
same expected out
run stat /l/missing
ends 1
says 'ZdCreateFile failed: 2 ('
run stat --unopened /l/missing
ends 1
says 'ZdQueryPathInfo failed: 2 ('

echo "attributes and times"
# Bits that mean nothing are told in the log and handed on.
quietly attrib /l/many.bin --value 0x10080
holds 'grep -h "ignored file attributes" logs/*.LOG >/dev/null'
for object in /l/many.bin /l/sub; do
    quietly attrib "$object" --set rha
    quietly attrib "$object"
    holds 'grep -qE "^[D-]RH-A---  " out'
    quietly attrib "$object" --clear RA --set s
    quietly attrib "$object"
    holds 'grep -qE "^[D-]-HS----  " out'
    quietly attrib "$object" --clear hs
    quietly touch "$object" --write 2020-02-03T04:05:06Z --access @1000000000
    quietly stat --unopened "$object"
    prints 'written      2020-02-03T04:05:06Z'
    prints 'accessed     2001-09-09T01:46:40Z'
done
quietly attrib /l/sub
holds 'grep -qF "D-------  " out'
quietly attrib /l/many.bin --value 0x2020
quietly attrib /l/many.bin
holds '[ "$(cat out)" = "----A-I-  \\l\\many.bin" ]'
run attrib /l/many.bin --set 0x400
ends 1
says 'ZdSetFileBasicInfo failed: 87 ('
# One of the two times: the other keeps its value.
quietly touch /l/many.bin --write '2021-01-01 10:11'
quietly stat --unopened /l/many.bin
prints 'written      2021-01-01T10:11:00Z'
prints 'accessed     2001-09-09T01:46:40Z'
since=$(date -u +%Y-%m-%dT%H:%M:%SZ)
quietly touch /l/many.bin /l/made
quietly stat --unopened /l/many.bin /l/made
holds '[ "$(awk -v since="$since" "/ written /{ if (\$2 >= since) n++ } END { print n }" out)" = 2 ]'
run touch -c /l/missing
ends 1
says 'ZdCreateFile failed: 2 ('
remote_is /l/many.bin before

echo "renames"
quietly mv /l/many.bin /l/sub/moved
remote_is /l/sub/moved before
holds '[ "$(find pools/pool/l -maxdepth 1 -name "many.bin*" | wc -l)" = 0 ]'
holds '[ "$(find pools/pool/l/sub -name "moved*" | wc -l)" = 7 ]'
quietly put six /l/target
run mv /l/sub/moved /l/target
ends 1
says 'ZdRenameFile failed: 183 ('
says '\l\sub\moved -> \l\target'
remote_is /l/target six
remote_is /l/sub/moved before
quietly mv -f /l/sub/moved /l/target
remote_is /l/target before
quietly ls /l/sub
holds '[ "$(cat out)" = none ]'
quietly mv -f /l/target /l/new-name
quietly mv /l/sub /l/renamed
quietly cat /l/renamed/none
run mv /l/missing /l/x
ends 1
says 'ZdCreateFile failed: 2 ('
remote_is /l/new-name before

echo "the volume, the pools, the tag"
quietly df
prints 'file system   NTFS, names of up to 260 characters'
quietly df --json
holds 'python3 -c "
import json, os
v = json.load(open(\"out\"))
disk = os.statvfs(\".\")
assert v[\"totalBytes\"] == disk.f_frsize * disk.f_blocks, v
assert 0 < v[\"availableBytes\"] <= v[\"totalBytes\"] and v[\"serialNumber\"] == 0x12345678
" 2>err'
printf 'label "mein Pool ü"\nlabel\ndf\n' >in
quietly script
holds '[ "$(head -n 1 out)" = "mein Pool ü" ]'
prints 'label         mein Pool ü'
: >in
run setup --pool-config "ein=Z:$work/agent/pool.cfg" --pool-config "zwei=Z:$work/agent/pool.cfg"
quietly pools
holds '[ "$(grep -cxE "ein|zwei" out)" = 2 ]'
quietly pools --json
holds 'python3 -c "import json; assert {\"ein\", \"zwei\"} <= set(json.load(open(\"out\")))" 2>err'
quietly tag
holds '[ "$(tr -d "\n" <out | wc -c)" -ge 6 ]'

echo "control requests and paths"
run ioctl 16 0xff
ends 0
prints 'ioctl: 0'
quietly ioctl 2 65536 --on /l/new-name
prints_nothing
quietly ioctl --show
holds 'grep -qE "^ +16  255 +[0-9]+  /pool  \(sync file count\)$" out'
holds 'grep -qE "^ +2  65536 +[0-9]+  /pool/l/new-name  \(segment size\)$" out'
quietly ioctl --show --json
holds 'python3 -c "
import json
r = {x[\"request\"]: x for x in json.load(open(\"out\"))}
assert r[16][\"value\"] == \"255\" and r[2][\"path\"] == \"/pool/l/new-name\"
" 2>err'
run ioctl 2 5 --on /l/missing
ends 1
says 'ZdCreateFile failed: 2 ('
run control /l/renamed/
ends 1
says 'ZdControlPath answered 0'
quietly put none /l/.refresh
quietly put none /l/renamed/.refresh
run control /l/renamed/
ends 0
prints 'control: refreshed: \\.zdvfs\pool\l\renamed\'
quietly control '\\.zdvfs\pool\l\'

echo "refreshing, and what the log makes of it"
rm -f logs/*
printf 'refresh --full 30\nrefresh --full 30\nioctl --show\n' >in
quietly script
holds 'grep -qE "^ +14  630 +1  /pool  \(task time\)$" out'
holds '[ "$(cat logs/*.LOG | grep -c "DoAddTaskTimeUpdate: renewing task - m_OpenDirectIOorWriteFiles: 0")" = 1 ]'
run setup --debug-level 2 --log-suppress 1
rm -f logs/*
{
    for _ in $(seq 1000); do echo 'mkdir /l'; done
    echo 'say --level 2 "another line"'
    echo 'say --level 3 "not at this level"'
} >in
run script --keep-going
ends 1
holds '[ "$(grep -c "ZdCreateFile failed: 183 (" err)" = 1000 ]'
cat logs/*.LOG >log
holds '[ "$(grep -c "directory already exists" log)" = 1 ]'
holds '[ "$(grep -c "The previous 1 messages have repeated 1000 times" log)" = 1 ]'
holds '[ "$(grep -c "another line" log)" = 1 ] && [ "$(grep -c "not at this level" log)" = 0 ]'
holds 'grep -A 1 "have repeated" log | tail -n 1 | grep -q "another line"'
: >in
run setup --debug-level 6 --log-suppress 0
quietly rm /l/new-name '/l/Klein ü' /l/made /l/.refresh /l/renamed/.refresh /l/renamed/none
quietly rm -d /l/renamed /l

echo "descriptors"
for object in /d/six.bin /d; do
    quietly acl set "$object" 'O:BAG:SYD:(A;;FA;;;BA)(A;;0x1200a9;;;WD)'
    quietly acl get "$object"
    prints 'O:BAG:SYD:(A;;FA;;;BA)(A;;0x1200a9;;;WD)'
done
run acl get /d/missing
ends 1
says 'ZdCreateFile failed: 2 ('
run acl set /d/six.bin 'nonsense'
ends 1
says "reading the descriptor's text failed"
quietly acl get /d/six.bin
prints '(A;;0x1200a9;;;WD)'

echo "callers"
# Only administrators may use it: the one whom the group only denies is refused at the open, by every command.
closed='O:BAG:BAD:(A;;FA;;;BA)(A;;FA;;;SY)'
quietly acl set /d/copy.bin "$closed"
for words in "cat /d/copy.bin" "write /d/copy.bin patch --offset 5" "truncate /d/copy.bin 3" "rm /d/copy.bin" \
    "append /d/six.bin /d/copy.bin" "mv /d/copy.bin /d/mine" "attrib /d/copy.bin --set r" "touch /d/copy.bin" \
    "acl get /d/copy.bin" "acl set /d/copy.bin D:(A;;FA;;;WD)" "put six /d/copy.bin"; do
    # shellcheck disable=SC2086
    run --quiet --as restricted $words
    ends 1
    says 'zdhost: ZdCreateFile failed: 5 ('
    says ') \d\copy.bin'
    prints_nothing
done
quietly acl get /d/copy.bin
holds '[ "$(tr -d "\r" <out)" = "$closed" ]'
quietly attrib /d/copy.bin
prints '-------N  '
remote_is /d/copy.bin twice
quietly --as self cat /d/copy.bin --length 5
holds '[ "$(cat out)" = "$(head -c 5 twice)" ]'
# Granted reading alone; then the right to change the descriptor, but not to one that shuts the caller out.
quietly acl set /d/copy.bin 'O:BAG:BAD:(A;;FA;;;BA)(A;;0x1200a9;;;WD)'
rm -f back
quietly --as restricted get /d/copy.bin back
same twice back
run --as restricted write /d/copy.bin patch --offset 0
ends 1
says 'ZdCreateFile failed: 5 ('
open='O:BAG:BAD:(A;;FA;;;BA)(A;;0x1e00a9;;;WD)'
quietly acl set /d/copy.bin "$open"
run --as restricted acl set /d/copy.bin "$closed"
ends 1
says 'zdhost: ZdSetSecurity failed: 5 ('
quietly acl get /d/copy.bin
holds '[ "$(tr -d "\r" <out)" = "$open" ]'
printf -- '--as restricted acl set /d/copy.bin %s\n--as restricted cat /d/copy.bin\nacl set /d/copy.bin %s\n' "$open" "$closed" >in
printf -- '--as restricted cat /d/copy.bin\ncat /d/copy.bin\n' >>in
run --quiet script --keep-going
ends 1
: >in
holds '[ "$(cat err)" = "zdhost: line 4: ZdCreateFile failed: 5 (Access denied.) \\d\\copy.bin" ]'
cat twice twice >expected
same expected out

echo "names"
printf 'by its name' >'ein Name, ü 日本 𝄞'
for name in 'ein Name, ü 日本 𝄞' 'CON' 'trailing. ' 'UPPER and lower' '[brackets]' "it's" '100%' 'a:b*c?"<>|'; do
    quietly put 'ein Name, ü 日本 𝄞' "/d/$name"
    quietly cat "/d/$name"
    same 'ein Name, ü 日本 𝄞' out
    quietly rm "/d/$name"
    run cat "/d/$name"
    ends 1
    says "ZdCreateFile failed: 2 ("
    says "\\d\\$name"
done
quietly put 'ein Name, ü 日本 𝄞' -- /-dash
quietly cat -- -dash
same 'ein Name, ü 日本 𝄞' out
quietly rm -- -dash

echo "directories"
quietly mkdir -p /p/q/r
quietly mkdir -p /p/q
run mkdir /p/q
ends 1
says 'ZdCreateFile failed: 183 ('
run mkdir /x/y
ends 1
says 'ZdCreateFile failed: '
says '\x\y'
run rm -d /p/q
ends 1
says 'ZdCloseFile failed: '
run rm /p/q/r
ends 1
says 'ZdCreateFile failed: '
run rm -d /d/six.bin
ends 1
quietly rm -d /p/q/r /p/q /p
run rm -d /p
ends 1
says 'ZdCreateFile failed: 3 ('
run get /d back
ends 1
holds '[ ! -e back.zdhost-* ]'

echo "scripts and processes"
cat >in <<END
# one connection
mkdir "/my files"
put one "/my files/one"
cp "/my files/one" /second
append /second "/my files/one"
cat "/my files/one" --offset 1048570 --length 12
END
quietly script
cat one one | tail -c +1048571 | head -c 12 >expected
same expected out
printf 'rm /second\nrm /second\nrm "/my files/one"\n' >in
run script
ends 1
says 'line 2: ZdCreateFile failed: 2 ('
: >in
quietly cat "/my files/one" --length 1
printf 'rm /missing\nrm "/my files/one"\nrm -d "/my files"\n' >in
run - -k
ends 1
says 'line 1: ZdCreateFile failed: 2 ('
holds '! grep -q "line 2" err'
: >in
# Two processes at one pool.
"$root/tools/wine" "$zdhost" --quiet put twice /left </dev/null >left.out 2>left.err &
left=$!
quietly put six /right
wait "$left"
holds '[ "$?" = 0 ]'
remote_is /left twice
remote_is /right six
quietly rm /left /right

echo "names that would drive a terminal"
name=$'/d/\e[2J\a\rzdhost: x\nforged: line\x7f\u009b2Jend'
shown='<001b>[2J<0007><000d>zdhost: x<000a>forged: line<007f><009b>2Jend'
quietly put twice "$name"
for command in "ls /d" "ls -l /d" "ls -R /" "--trace ls /d"; do
    # shellcheck disable=SC2086
    run $command
    ends 0
    prints "$shown"
    holds '! grep -qE "^forged" out err && ! LC_ALL=C grep -q "[[:cntrl:]]" out'
done
quietly stat "$name"
prints "\\d\\$shown"
run stat "$name.missing"
ends 1
says "$shown.missing"
holds '! grep -q "^forged" err && ! LC_ALL=C grep -q "[[:cntrl:]]" err'
quietly ls --json /d
# Bytes beyond ASCII are no control characters in this locale, so that those among the characters are looked for apart.
raw=$'\u009b'
holds 'grep -qF "\\u009b" out && ! grep -qF "$raw" out && ! LC_ALL=C grep -q "[[:cntrl:]]" out'
NAME=$name python3 -c "
import json, os
names = [entry['name'] for entry in json.load(open('out'))]
assert os.environ['NAME'][3:] in names, names" || fail "the name should come through in JSON"
quietly rm "$name"

echo "nothing stays behind"
quietly rm /d/six.bin /d/copy.bin /d/made-by-append
quietly rm -d /d
holds '[ "$(data_files | wc -l)" = 0 ]'
ZDVFS_LOCAL_CREATE=0
run --pool other cat /x
ends 1
says "ZdConnect failed: 2 ("
says ") other"
run --pool 'a\b' cat /x
ends 1
says "ZdConnect failed: 87 ("

echo "the log is whole"
cat logs/*.LOG >log 2>err
current="the log"
holds '[ "$(grep -c " - ~CProtocolManager Enter" log)" -gt 20 ]'
holds 'tail -n 1 log | grep -q "~CProtocolManager Enter"'
holds 'grep -q "zdhost.exe, " log'
run setup --clear
ends 0
