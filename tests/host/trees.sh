# zdhost put -r and get -r over the plug-in and the local engine. Read by "run".
make_pool
mib=1048576
# The tree "back" is what came back of the tree "$1".
same_trees() {
    checks=$((checks + 1))
    diff -r "$1" back >difference 2>&1 || fail "$1 and back should be the same: $(head -n 5 difference)"
}
# EXPRESSION in python, over "j", what zdhost wrote.
json_holds() {
    checks=$((checks + 1))
    python3 -c "
import json
j = json.load(open('out'))
assert $1, j" 2>python.err || fail "the JSON should hold: $1: $(tail -n 1 python.err)"
}

echo "a tree there and back"
mkdir -p tree/a/b/c 'tree/ü 日本 𝄞/leer' tree/empty tree/many
make_file tree/six $((6 * mib + 4321)) six
make_file tree/a/exactly $((2 * mib)) two
make_file tree/a/b/small 17 small
: >tree/a/b/c/none
make_file 'tree/ü 日本 𝄞/Datei, mit Blanks' 70000 blank
for n in $(seq 60); do printf 'file %s' "$n" >"tree/many/$n"; done
touch -d 2001-02-03T04:05:06Z tree/six tree/many/7
bytes=$(find tree -type f -printf '%s\n' | awk '{ s += $1 } END { print s }')
run put -r tree /t
ends 0
says_nothing
prints "put: 65 files, 7 directories, $bytes bytes (8.1 MiB) in "
prints ': \t'
holds '[ "$(wc -l <out)" = 1 ]'
run get -r /t back
ends 0
says_nothing
prints "get: 65 files, 7 directories, $bytes bytes (8.1 MiB) in "
same_trees tree
holds '[ "$(find back -newermt 2010-01-01 -name six | wc -l)" = 1 ]'
holds '[ -d back/empty ] && [ -d "back/ü 日本 𝄞/leer" ]'
quietly ls -R /t
holds '[ "$(grep -c . out)" = $((65 + 7 + 8)) ]'
# It is the tree that is counted: one level further down.
run --quiet put -r tree/many /t/sub
ends 0
prints_nothing
rm -r back
quietly get -r /t/sub back
same_trees tree/many

echo "times"
quietly put -r -t tree /times
quietly stat --unopened /times/six /times/many/7
holds '[ "$(grep -c "written      2001-02-03T04:05:06Z" out)" = 2 ]'
rm -r back
quietly get -r /times back --times
same_trees tree
holds '[ "$(stat -c %Y back/six back/many/7 | sort -u)" = 981173106 ]'
holds '[ "$(stat -c %Y back/many/8)" = "$(stat -c %Y tree/many/8)" ]'
quietly put -t tree/six /one
quietly get -t /one one
same tree/six one
holds '[ "$(stat -c %Y one)" = 981173106 ]'
run put -t - /one
ends 2
says 'standard input has no time'

echo "into what is there"
rm -r back
mkdir -p more/a/b
printf 'new' >more/a/b/small
printf 'more' >more/a/added
run put -r more /t
ends 0
prints 'put: 2 files, 2 directories, 7 bytes in '
quietly get -r /t back
rm -r back/sub
cp -r tree merged
cp -r more/. merged
same_trees merged
# What is only here stays.
printf 'mine' >back/mine
printf 'old' >back/a/added
quietly get -r /t back
rm -r back/sub
holds '[ "$(cat back/mine)" = mine ]'
rm back/mine
same_trees merged
quietly put -r more /
quietly cat /a/added
quietly get -r /a/b back/deep
same more/a/b/small back/deep/small

echo "empty, missing and mistaken"
mkdir nothing
rm -r back
run put -r nothing /nothing
ends 0
prints 'put: 0 files, 0 directories, 0 bytes in '
quietly get -r /nothing back
same_trees nothing
run put -r missing /x
ends 1
says 'opening the local directory failed: 2 ('
prints_nothing
run put -r one /x
ends 1
says '-r copies a directory, and this is a file'
run get -r /missing x
ends 1
says 'ZdQueryPathInfo failed: 2 ('
run get -r /one x
ends 1
says '-r copies a directory, and this is a file: \one'
run put -r tree /one
ends 1
says 'ZdCreateFile failed: '
run put -r tree /not/there
ends 1
says 'ZdCreateFile failed: 2 ('
run get -r /t not/there
ends 1
says 'making the local directory failed: 3 ('
run put tree /x
ends 1
says 'the local name is a directory, not a file'
run put --json tree /x
ends 2
holds '[ ! -e x ]'
run ls /x
ends 1

echo "what fails is told, and the rest goes on"
quietly mkdir /f
quietly mkdir /f/six
quietly put one /f/many
run put -r tree /f
ends 1
says 'zdhost: put six: ZdCreateFile failed: '
says ') \f\six'
says 'zdhost: put many: ZdCreateFile failed: '
holds '[ "$(wc -l <err)" = 2 ]'
kept=$((bytes - 6 * mib - 4321 - $(cat tree/many/* | wc -c)))
prints "put: 4 files, 6 directories, 2 failures, $kept bytes"
rm -rf back
mkdir back
mkdir back/a # a file is there
rmdir back/a
printf 'in the way' >back/a
mkdir back/six
run get -r --json /t back
ends 1
says 'zdhost: get a: making the local directory failed: 183 ('
says 'zdhost: get six: the local name is a directory, not a file'
json_holds 'j["command"] == "get" and j["from"] == "/t" and j["to"] == "back" and j["ended"] is None'
json_holds '[f["path"] for f in j["failures"]] == ["a", "six"]'
json_holds '"making the local directory failed: 183" in j["failures"][0]["message"]'
json_holds 'j["files"] == 121 and j["directories"] == 5'
holds '[ "$(cat back/a)" = "in the way" ] && [ -z "$(ls back/six)" ]'
same tree/many/60 back/many/60
run put -r --json tree /fine
ends 0
says_nothing
json_holds "j['failures'] == [] and j['files'] == 65 and j['directories'] == 7 and j['bytes'] == $bytes"
json_holds '0 < j["seconds"] < 300'

echo "names that one side cannot hold"
quietly mkdir /h
for name in 'CON' 'nul.txt' 'a:b' 'que?' 'dot.' 'blank ' 'fine'; do quietly put one "/h/$name"; done
quietly mkdir /h/lpt1
quietly put one /h/lpt1/inside
rm -r back
run get -r /h back
ends 1
for name in 'CON' 'nul.txt' 'lpt1'; do says "zdhost: get $name: the name is that of a device"; done
for name in 'a:b' 'que?'; do says "zdhost: get $name: the name holds a character that a local one cannot hold"; done
for name in 'dot.' 'blank '; do says "zdhost: get $name: a local name cannot end in a dot or a blank"; done
prints 'get: 1 file, 0 directories, 7 failures, '
holds '[ "$(ls back)" = fine ]'
mkdir case
printf 1 >case/Name
printf 2 >case/name
printf 3 >'case/x;F1'
printf 4 >'case/x;Fy'
run put -r case /case
ends 1
says 'zdhost: put name: the name differs from another one there in case only'
says 'zdhost: put x;F1: the pool keeps the parts of large files under such names'
prints 'put: 2 files, 0 directories, 2 failures, 2 bytes'
rm -r back
quietly get -r /case back
holds '[ "$(cat back/Name back/x*)" = 14 ] && [ "$(ls back | wc -l)" = 2 ]'

echo "directories that lead back, and deep ones"
mkdir -p loop/in/side
ln -s ../.. loop/in/side/back
ln -s side loop/in/other
printf 'x' >loop/in/side/file
run put -r loop /loop
ends 1
says 'zdhost: put in\side\back: it leads back to a directory above it'
says 'zdhost: put in\other\back: it leads back to a directory above it'
prints 'put: 2 files, 3 directories, 2 failures, 2 bytes'
deep=$(printf 'd%.0s/' {1..135})
mkdir -p "deep/$deep"
run put -r deep /deep
ends 1
says ': it stands more than 128 directories deep'
prints 'put: 0 files, 128 directories, 1 failure, '
run setup --clear
ends 0
