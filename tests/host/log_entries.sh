# What the tests of the log's reader share. Read by them.
mkdir logs
log() { printf '%b' "$2" >"logs/(ZDVFS)$1.LOG"; }
# follow ARGUMENT...: begins to follow; "interrupted" ends that as Ctrl-C does, "followed" waits for it.
follow() {
    current="zdhost log --follow $*"
    "$root/tools/wine" "$zdhost" log --follow --for "${seconds:-120}" "$@" <in >out 2>err &
    follower=$!
}
followed() {
    wait "$follower"
    status=$?
    ends 0
}
interrupted() {
    kill -INT "$follower"
    followed
}
# Waits until the follower has shown a text.
until_shown() {
    local try
    for try in $(seq 300); do
        grep -qF -- "$1" "${2:-out}" && return
        sleep 0.1
    done
}
# As the shell sees the expected text, with \n and \t.
shows() {
    printf '%b' "$1" >expected
    same expected out
}
# A Python condition over the entries of the JSON, e.
entries() {
    checks=$((checks + 1))
    python3 -c '
import json, sys
e = [json.loads(line) for line in open("out", encoding="utf-8")]
sys.exit(0 if eval(sys.argv[1]) else 1)' "$1" 2>>err || fail "should hold of the entries: $1"
}
one='2026/11/16 03:29:25 (1234:host.exe, 5678) - '
run setup --clear
run setup --clear --former-tree
