# zdhost shell: piped lines, and a console. Read by "run".
make_pool
# Runs the shell on the lines given.
shell() {
    printf '%s\n' "$@" >in
    run shell
    : >in
}
printed() {
    checks=$((checks + 1))
    printf '%s\n' "$@" >expected
    cmp -s expected out || fail "standard output should be: $*"
}
make_file two 2097153 two
printf 'it is' >"it's here"

echo "the current directory"
shell pwd 'mkdir d' 'mkdir /d/e' 'cd d' pwd 'cd e' pwd 'cd ..' pwd 'cd ../..' pwd 'cd \d\e\.' pwd 'cd ../../../d' pwd \
    'cd ./e/../../d/e/' pwd cd pwd
ends 0
says_nothing
printed '\' '\d' '\d\e' '\d' '\' '\d\e' '\d' '\d\e' '\'
shell 'cd d/missing' pwd 'put two f' 'cd f' pwd 'cd d x' 'cd ""'
ends 1
says 'zdhost: line 1: ZdQueryPathInfo failed: 2 ('
says '\d\missing'
says 'zdhost: line 4: cd: that is a file: \f'
says 'zdhost: line 6: The following argument was not expected: x; see help cd'
says 'zdhost: line 7: '
holds '[ "$(grep -v "^put: " out)" = "$(printf "\\\\\n\\\\")" ]'

echo "every command from there"
quietly mkdir -p /w/sub
shell 'cd w' 'put two a' 'get a back' 'cp a sub/b' 'append a sub/b' 'mv sub/b ./c' 'truncate ../w/c 5' 'ls' 'ls ..' \
    'ls sub' 'cat c' 'touch sub/../made' 'stat --unopened made' 'attrib made' 'acl get made' 'write c "it'"'s"' here" --offset 0' \
    'cat c' 'mkdir -p x/y' 'ls x' 'rm -d x/y x' 'rm made' 'ioctl 2 65536 --on a' 'cd sub' 'mv ../c .' 'mv ../c c' 'ls' 'ls /w'
ends 1
same two back
holds '[ "$(wc -l <err)" = 1 ]'
says 'zdhost: line 24: '
prints 'two'
prints 'it is'
for path in '\w\a' '\w\made'; do prints "$path"; done
holds '[ "$(tail -n 4 out | tr "\n" " ")" = "c a made sub\\ " ] || [ "$(tail -n 3 out | tr "\n" " ")" = "c a sub\\ " ]'
quietly cat /w/sub/c
holds '[ "$(cat out)" = "it is" ]'
quietly put two /w/.refresh
shell 'cd w' 'control sub/' 'put two sub/.refresh' 'control sub/' 'control .'
ends 1
says 'zdhost: line 2: ZdControlPath answered 0, not every directory has a .refresh: \\.zdvfs\pool\w\sub\'
prints 'control: refreshed: \\.zdvfs\pool\w\sub\'
prints 'control: refreshed: \\.zdvfs\pool\w'
# Above the top there is nothing.
shell 'cd w' 'cat ../../../w/sub/c' 'cat /../w/./sub/c'
ends 0
holds '[ "$(cat out)" = "it isit is" ]'

echo "trees from there"
mkdir -p tree/in/empty
printf 1 >tree/one
printf 2 >tree/in/two
shell 'mkdir /trees' 'cd trees' 'put -r tree .' 'put -r tree/in again' 'get -r . back-tree' 'ls -R'
ends 0
prints 'put: 2 files, 2 directories, 2 bytes in '
prints ': \trees\again'
prints 'get: 3 files, 4 directories, 3 bytes in '
cp -r tree expected-tree
cp -r tree/in expected-tree/again
holds 'diff -r expected-tree back-tree'

echo "the local directory"
shell 'lcd tree' lpwd 'put one /from-tree' 'lcd in' 'get /from-tree fetched' 'lcd ..' 'lcd missing' lpwd lcd
ends 1
holds '[ "$(grep -c "^Z:.*tree$" out)" = 2 ]'
says 'zdhost: line 7: lcd failed: 2 ('
says 'zdhost: line 9: DIR is required; see help lcd'
same tree/one tree/in/fetched

echo "lines"
shell '' '   ' '# a comment' "mkdir \"/it's\" " "put \"it's here\" '/it''s/my file'" 'cat "/it'"'"'s/my file"'
ends 0
says_nothing
prints 'it is'
shell 'mkdir "/x' 'frobnicate' 'put - /x' pwd 'script' 'shell'
ends 2
says 'zdhost: line 1: a quote is not closed'
says 'zdhost: line 2: there is no command "frobnicate"; see help'
says 'line 3: standard input holds the commands and cannot be "-" too'
says 'zdhost: line 5: there is no command "script"; see help'
says 'zdhost: line 6: there is no command "shell"; see help'
printed '\'
printf '\xef\xbb\xbfpwd\r\npwd' >in
run shell
ends 0
printed '\' '\'
printf 'pwd\nmkdir \xff\npwd\n' >in
run shell
ends 2
says 'line 2: the line is not UTF-8'
printed '\' '\'
: >in
run shell
ends 0
prints_nothing
says_nothing

echo "the end and the status"
shell pwd exit pwd
ends 0
printed '\'
shell 'rm /missing' frobnicate quit pwd
ends 1
prints_nothing
shell frobnicate 'rm /missing' pwd
ends 2
printed '\'
shell 'exit now' pwd
ends 2
printed '\'
printf 'mkdir /p\ncd p\npwd\n' >in
run shell --prompt
ends 0
holds '[ "$(cat err)" = "pool:\\> pool:\\> pool:\\p> pool:\\p> " ]'
printed '\p'
printf 'put two /quiet\n' >in
run -q shell
ends 0
prints_nothing
run shell -
ends 2
: >in

echo "help"
shell help
ends 0
for command in put get ls mv acl ioctl cd pwd lcd lpwd reconnect help exit; do
    holds "grep -qE '^  $command  ' out"
done
shell 'help put' 'put --help' 'help acl set' 'help frobnicate' 'help acl frobnicate' 'help cd'
ends 2
holds '[ "$(grep -c "^Copy a local file" out)" = 2 ]'
prints 'Replace the descriptor of a file or directory'
prints 'Change the current directory in the pool'
says 'line 4: there is no command "frobnicate"'
says 'line 5: there is no command "frobnicate"'

echo "one connection, given up and made anew"
rm -f logs/*
shell 'label mine' 'label' 'ls /missing' 'label' 'reconnect' 'label' 'reconnect' 'reconnect' 'cat /w/sub/c'
ends 1
holds '[ "$(grep -c "^mine$" out)" = 2 ]'
prints 'it is'
holds '[ "$(cat logs/*.LOG | grep -ac "~CProtocolManager Enter")" = 3 ]'
holds 'cat logs/*.LOG | tail -n 1 | grep -q "~CProtocolManager Enter"'
# A connection that cannot be made is tried again by each command that needs one.
current="a pool that appears"
ZDVFS_LOCAL_CREATE=0
printf 'ls\npwd\nls\n' >in
run --pool later shell
ends 1
says 'line 1: ZdConnect failed: 2 ('
says 'line 3: ZdConnect failed: 2 ('
printed '\'
ZDVFS_LOCAL_CREATE=1
rm err
(
    echo ls
    until grep -qs "line 1" err; do sleep 0.1; done
    cp -r pools/pool pools/later
    echo 'cat /w/sub/c'
) | ZDVFS_LOCAL_CREATE=0 "$root/tools/wine" "$zdhost" --pool later shell >out 2>err
status=$?
ends 1
says 'line 1: ZdConnect failed: 2 ('
holds '[ "$(wc -l <err)" = 1 ]'

echo "a console"
# Types the lines given into a shell on a terminal; "out" is what it showed.
console() {
    current="a console"
    printf '%s\n' "$@" >keys
    "$here/console" "$zdhost" shell <keys >out 2>err
    status=$?
}
console pwd 'cd wx^H' pwd '^P' '... 0.5 ^C' '... 0.5 lpwd^M' 'cd sub' 'cat c' exit
ends 0
says_nothing
holds '[ "$(grep -c "^\\\\w$" out)" = 2 ]'
prints 'pool:\w>cd sub'
prints 'it is'
# Ctrl-C ends the command, the shell goes on, and its next command is not told of it.
truncate -s 2G zeros
console 'put zeros /zeros' '... 1 ^C' 'put two /after' 'frobnicate' exit
ends 1
prints 'zdhost: interrupted'
prints 'put: 2097153 bytes'
prints 'zdhost: there is no command "frobnicate"; see help'
rm zeros
quietly get /after back
same two back
quietly rm /zeros
mkdir many
for n in $(seq 3); do truncate -s 700M "many/$n"; done
console 'put -r many /many' '... 1 ^C' pwd exit
ends 1
prints 'directories, incomplete, '
prints 'of 3 files'
prints 'zdhost: interrupted'
rm -r many
run setup --clear
ends 0
