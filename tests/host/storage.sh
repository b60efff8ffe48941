# zdhost over the plug-in and the local engine: what goes in comes back, on disk in fragments of 1 MiB. Read by "run".
mkdir agent pools logs
printf 'IFS_COMPRESSION=1\nPREFERRED_EXT_SEGKSIZE=vhd:64\n' >agent/zd.conf
printf '[Main]\nAgentID=7\n' >agent/pool.cfg
export ZDVFS_LOCAL_ROOT="Z:$work/pools" ZDVFS_LOCAL_CREATE=1
mib=1048576
run setup --clear --former-tree
ends 0
run setup --clear --agent-path "Z:$work/agent" --log-path "Z:$work/logs" --agent-type 1 --max-file-size-mb 1 \
    --max-open-fragments 3 --debug-level 6
ends 0

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
