# zdhost log --follow: log files that are being written. Read by "run".
# shellcheck source=/dev/null
. "$here/log_entries.sh"
run setup --log-path "Z:$work/logs"

echo "following"
file='logs/(ZDVFS)2026-11-16-0329.LOG'
printf '%sold 1\r\n%sold 2\r\n' "$one" "$one" >"$file"
follow --last 1
until_shown "old 2"
printf '%sZdConnect En' "$one" >>"$file"
sleep 0.2
printf 'ter\r\n%sGET SD_DACL\r\n' "$one" >>"$file"
printf 'D:\r\n' >>"$file"
until_shown "D:"
# The log turns to a new file, and another process goes on writing the old one.
printf '%snewer\r\n' "$one" >'logs/(ZDVFS)2026-11-16-0400.LOG'
until_shown "newer"
printf '%solder\r\n%shalf' "$one" "$one" >>"$file"
until_shown "older"
interrupted
says_nothing
shows "-  ${one}old 2\n6  ${one}ZdConnect Enter\n6  ${one}GET SD_DACL\n    D:\n-  ${one}newer\n-  ${one}older\n-  ${one}half\n"
# It waits for the first file, and its folder; a file that is cut is read anew; one that goes is no failure.
rm -r logs
follow --json
sleep 2
mkdir logs
printf '%sfirst and long enough\r\n' "$one" >"$file"
until_shown "first"
printf '%scut\r\n' "$one" >"$file"
until_shown "cut"
rm "$file"
sleep 0.5
printf '%sand on\r\n' "$one" >'logs/(ZDVFS)2026-11-16-0400.LOG'
until_shown "and on"
interrupted
entries '[x["text"] for x in e] == ["first and long enough", "cut", "and on"]'
# Every process writes a file of its own: one is followed beside many newer ones, and those that are new are known
# though their names are older than another, or the same as that of one that has gone.
rm -f logs/*
log 2026-11-16-0329 "${one}service\r\n"
follow
until_shown "service"
for minute in 30 31 32 33 34 35 36 37 38 39 40; do log "2026-11-16-03$minute" "${one}run $minute\r\n"; done
until_shown "run 40"
printf '%sagain\r\n' "$one" >>"$file"
until_shown "again"
log 2026-11-16-0229 "${one}the hour before\r\n"
until_shown "the hour before"
rm 'logs/(ZDVFS)2026-11-16-0335.LOG'
sleep 0.5
log 2026-11-16-0335 "${one}anew\r\n"
until_shown "anew"
interrupted
says_nothing
holds '[ "$(sed "s/.*) - //" out | sort | tr "\n" ,)" = "again,anew,run 30,run 31,run 32,run 33,run 34,run 35,run 36,run 37,run 38,run 39,run 40,service,the hour before," ]'
# All that are named are followed, and with --all those of the folder.
rm logs/*
printf '%sfirst a\r\n' "$one" >a
printf '%sfirst b\r\n' "$one" >b
follow a b
until_shown "first b"
printf '%ssecond a\r\n' "$one" >>a
until_shown "second a"
printf '%ssecond b\r\n' "$one" >>b
until_shown "second b"
interrupted
shows "-  ${one}first a\n-  ${one}first b\n-  ${one}second a\n-  ${one}second b\n"
mv a "$file"
mv b 'logs/(ZDVFS)2026-11-16-0400.LOG'
follow --all --last 1
until_shown "second b"
printf '%sthird a\r\n' "$one" >>"$file"
until_shown "third a"
interrupted
shows "-  ${one}second b\n-  ${one}third a\n"
rm logs/*
# A writer that stalls inside a beginning loses nothing of it.
printf '%sbefore\r\n2026/11/16 03:2' "$one" >plain
follow plain
until_shown "before"
sleep 1.5
printf '9:25 (1234:host' >>plain
sleep 1.5
printf '.exe, 5678) - ZdConnect Exit\r\n' >>plain
until_shown "ZdConnect Exit"
interrupted
shows "-  ${one}before\n6  ${one}ZdConnect Exit\n"
# A file of another name is followed alone, here for a time that runs out.
printf '%sa\r\n' "$one" >plain
seconds=4 follow plain
until_shown "- a"
printf '%snot this\r\n' "$one" >"$file"
printf '%sb\r\n' "$one" >>plain
followed
shows "-  ${one}a\n-  ${one}b\n"
# Ctrl-C is how one stops.
printf '... "seen" ^C\n' >keys
python3 "$here/console" "$zdhost" log --follow <keys >out 2>err &
sleep 2
printf '%sseen\r\n' "$one" >>"$file"
wait $!
status=$?
current="zdhost log --follow on a terminal"
ends 0
prints "${one}seen"
# Also while older files are read, and what is kept for --last is shown: here 64 GiB of zeros stand in the way.
rm logs/*
log 2026-11-16-0329 "${one}ZdConnect Enter\r\n"
truncate -s 64G 'logs/(ZDVFS)2026-11-16-0400.LOG'
log 2026-11-16-0500 "${one}ZdConnect Exit\r\n"
printf '... 4 ^C\n' >keys
python3 "$here/console" "$zdhost" log --all --follow --known-only --last 1 <keys >out 2>err
status=$?
current="zdhost log --all --follow on a terminal"
ends 0
prints "${one}ZdConnect Enter"
holds '! grep -q "ZdConnect Exit" out'
run setup --clear
