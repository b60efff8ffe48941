# zdhost log: the reader of the log's files. Read by "run".
# shellcheck source=/dev/null
. "$here/log_entries.sh"

echo "where the log is"
run log
ends 1
says 'neither Agent\logpath nor Agent\path names a folder: there is no log file'
run setup --agent-path "Z:$work/none"
run log
ends 1
says "looking for log files failed: 3 ("
mkdir agent
run setup --agent-path "Z:$work/agent"
mkdir agent/log
run log
ends 1
says "there is no log file in Z:"
says 'agent\log'
printf '2026/11/16 03:29:25 (1:a.exe, 2) - from the agent folder\r\n' >'agent/log/(ZDVFS)2026-11-16-0329.LOG'
run log
ends 0
shows '-  2026/11/16 03:29:25 (1:a.exe, 2) - from the agent folder\n'
run setup --log-path "Z:$work/logs"
log 2026-11-16-0329 '2026/11/16 03:29:25 (1:a.exe, 2) - first\r\n'
log 2026-11-17-0000 '2026/11/17 00:00:00 (1:a.exe, 2) - last\r\n'
log 2025-12-31-2359 '2025/12/31 23:59:00 (1:a.exe, 2) - oldest\r\n'
printf 'no log\n' >logs/other.LOG
printf 'no log\n' >'logs/(ZDVFS)2027-01-01-000.LOG'
run log
ends 0
says_nothing
shows '-  2026/11/17 00:00:00 (1:a.exe, 2) - last\n'
run log --all
shows '-  2025/12/31 23:59:00 (1:a.exe, 2) - oldest\n-  2026/11/16 03:29:25 (1:a.exe, 2) - first\n-  2026/11/17 00:00:00 (1:a.exe, 2) - last\n'
cp out all
run log "Z:$work/logs" --all
same all out
# Their names put files in order, however they are given.
run log 'logs/(ZDVFS)2026-11-17-0000.LOG' 'logs/(ZDVFS)2025-12-31-2359.LOG' 'logs/(ZDVFS)2026-11-16-0329.LOG'
same all out
run log logs/other.LOG
shows '-  no log\n'
run log --last 2 --all
tail -n 2 all >two
same two out
run log --last 0 --all
ends 0
prints_nothing
# The former maker's tree, where it is the one in use.
run setup --clear
run setup --former-tree --log-path "Z:$work/agent/log"
run log
shows '-  2026/11/16 03:29:25 (1:a.exe, 2) - from the agent folder\n'
run setup --clear --former-tree
run setup --log-path "Z:$work/logs"

echo "arguments"
run log missing.LOG
ends 1
says "opening the log file failed: 2 ("
run log --for 1
ends 2
says "--follow"
run log --level two
ends 2
says "is no number"
run log --last x
ends 2
run log ""
ends 2
says "an empty file name"
run log --all logs/other.LOG
ends 2
run log logs logs/other.LOG
ends 2
says "a folder goes alone"

echo "levels, summaries, lines of several kinds"
{
    printf '%sZdCreateFile Enter pool/a FileAttributes: 128  CreateDisposition: 1\r\n' "$one"
    printf '%sZdCreateFile:  FileName:   pool/a  ERROR:  directory already exists\r\n' "$one"
    printf '%sZdCreateFile:   FileName:   pool/a  ERROR:  ignored file attributes:        dwFileAttributes value = 64 \r\n' "$one"
    printf '%sClosed fragment 3 to open pool/a;F5\r\n' "$one"
    printf '%sThe previous 2 messages have repeated 31 times\r\n' "$one"
    printf '%sThe previous two messages have repeated\r\n' "$one"
    printf '%szdvfs: open: 2\r\n' "$one"
    printf '%sGET SD_DACL\r\nD:(A;;FA;;;WD)\r\n' "$one"
    printf '%sZdvfsAppend called : bytesToAppend = 5\r\n, readOffset = 0\r\n' "$one"
    printf '%sZdWriteFile Exit! dwError: 0x27(39)\r\n' "$one"
    printf '%sZdWriteFile Exit! dwError: full(39)\r\n' "$one"
} >levels
run log levels --json
ends 0
says_nothing
entries 'len(e) == 11'
entries '[x["level"] for x in e] == [6, 1, 2, 3, 3, None, None, 6, 6, 6, None]'
entries 'all(x["time"] == "2026-11-16T03:29:25" and x["pid"] == 1234 and x["process"] == "host.exe" and x["thread"] == 5678 for x in e)'
entries '[x["summary"] for x in e if "summary" in x] == [{"messages": 2, "times": 31}]'
entries 'e[7]["text"] == "GET SD_DACL\nD:(A;;FA;;;WD)" and e[8]["text"].endswith("= 5\n, readOffset = 0")'
entries 'list(e[0]) == ["time", "pid", "process", "thread", "level", "text"]'
run log levels --json --level 1
entries '[x["level"] for x in e] == [1, None, None, None]'
run log levels --json --level 2 --known-only
entries '[x["level"] for x in e] == [1, 2]'
run log levels --json --known-only
entries '[x["level"] for x in e] == [6, 1, 2, 3, 3, 6, 6, 6]'
run log levels --level 3 --last 7
shows "1  ${one}ZdCreateFile:  FileName:   pool/a  ERROR:  directory already exists
2  ${one}ZdCreateFile:   FileName:   pool/a  ERROR:  ignored file attributes:        dwFileAttributes value = 64 
3  ${one}Closed fragment 3 to open pool/a;F5
3= ${one}The previous 2 messages have repeated 31 times
-  ${one}The previous two messages have repeated
-  ${one}zdvfs: open: 2
-  ${one}ZdWriteFile Exit! dwError: full(39)
"
run log levels
holds 'grep -A 1 "^6  .*GET SD_DACL$" out | tail -n 1 | grep -qx "    D:(A;;FA;;;WD)"'

echo "texts without a line end"
printf '%sCProtocolManager::ZdConnect: Error 5 setting compression value 7%sCProtocolManager::ZdConnect: Encryption is not enabled%sZdConnect Exit\r\n%sno end' \
    "$one" "$one" "$one" "$one" >levels
run log levels --json
entries '[x["level"] for x in e] == [2, 6, 6, None]'
entries 'e[0]["text"] == "CProtocolManager::ZdConnect: Error 5 setting compression value 7" and e[2]["text"] == "ZdConnect Exit"'
entries 'all(x["pid"] == 1234 for x in e) and e[3]["text"] == "no end"'
# An unknown text may lack its end too; a known one that has it is whole, whatever its name looks like.
printf '%sforeign%szdvfs: close\r\n%sZdCloseFile:    FileName= pool/%sx\r\n' "$one" "$one" "$one" "$one" >levels
run log levels --json
entries '[x["text"] for x in e][:2] == ["foreign", "zdvfs: close"]'
entries 'len(e) == 3 and e[2]["level"] == 6 and e[2]["text"].endswith(" - x")'

# A process without ".exe": its name ends before the next entry, on the same line.
printf '%sCProtocolManager::ZdConnect: Compression is enabled%sZdConnect Exit\r\n' \
    '2026/11/16 03:29:25 (4:System, 88) - ' "$one" >levels
run log levels --json
entries '[(x["process"], x["thread"], x["text"]) for x in e] == [("System", 88, "CProtocolManager::ZdConnect: Compression is enabled"), ("host.exe", 5678, "ZdConnect Exit")]'
# A loose line behind a summary.
printf '%sThe previous 2 messages have repeated 31 times\r\nloose\r\n' "$one" >levels
run log levels --json
entries 'len(e) == 1 and e[0]["level"] == 3 and e[0]["summary"] == {"messages": 2, "times": 31}'
run log levels
shows "3= ${one}The previous 2 messages have repeated 31 times\n    loose\n"

echo "names of processes"
for name in 'a, b.exe' 'a (1), c.exe' 'x - y) - z.exe' 'UNKNOWN' 'without' 'a, 12) - b.exe' '日本.exe' ', .exe'; do
    printf '2026/11/16 03:29:25 (1:%s, 2) - text of, 7) - it\r\n' "$name"
done >levels
run log levels --json
entries '[x["process"] for x in e] == ["a, b.exe", "a (1), c.exe", "x - y) - z.exe", "UNKNOWN", "without", "a, 12) - b.exe", "日本.exe", ", .exe"]'
entries 'all(x["text"] == "text of, 7) - it" and x["thread"] == 2 for x in e)'

echo "what is no entry"
printf 'rest of a line\r\n%sZdConnect Exit\r\n\r\nloose\n2026/11/16 03:29 (1:a.exe, 2) - x\n2026/11/16 03:29:25 (x:a.exe, 2) - x\n2026/11/16 03:29:25 (99999999999:a.exe, 2) - x\n%s' "$one" "${one% - }" >levels
run log levels --json
entries 'len(e) == 2 and e[0] == {"time": None, "pid": None, "process": None, "thread": None, "level": None, "text": "rest of a line"}'
entries 'e[1]["level"] == 6 and e[1]["text"].count("\n") == 6 and e[1]["text"].endswith("5678)")'
: >levels
run log levels
ends 0
prints_nothing
printf '\n' >levels
run log levels --json
entries 'len(e) == 1 and e[0]["text"] == ""'
printf '%sesc \x1b[31m bell \x07 tab\t del \x7f zero \0.\r\n%slatin \xe4 \xff\r\n' "$one" "$one" >levels
run log levels
holds 'grep -q "esc <001b>\[31m bell <0007> tab	 del <007f> zero <0000>\.$" out'
holds 'python3 -c "open(\"out\", encoding=\"utf-8\").read()"'
run log levels --json
entries 'e[0]["text"] == "esc \x1b[31m bell \x07 tab\t del \x7f zero \0." and e[1]["text"] == "latin \u00e4 \u00ff"'
# The controls beyond ASCII, in UTF-8 and, where it is not UTF-8, in the code page.
printf '%sC1 \xc2\x80 \xc2\x9b31m \xc2\x9f \xc2\xa0\r\n%slatin \xe4 \x81\r\n' "$one" "$one" >levels
run log levels
holds 'grep -q "C1 <0080> <009b>31m <009f> " out && grep -q "latin ä <0081>$" out'
run log levels --json
entries 'e[0]["text"] == "C1 \u0080 \u009b31m \u009f \u00a0" and e[1]["text"] == "latin \u00e4 \u0081"'
# Foreign bytes: none is lost, and the entries around them are found.
python3 - "$one" <<'END'
import json, random, sys
random.seed(5)
one = sys.argv[1].encode()
noise = bytes(random.randrange(256) for _ in range(3_000_000))
line = bytes(random.choice(b"abc/ :(2026") for _ in range(2_500_000))
open("levels", "wb").write(one + b"ZdConnect Enter\r\n" + noise + b"\n" + one + b"ZdConnect Exit\r\n" + line + b"\r\n" + one + b"ZdTest\r\n")
# As the code page has them, where the five bytes that it does not know stand for themselves.
page = {b: chr(b) if b in (0x81, 0x8D, 0x8F, 0x90, 0x9D) else bytes([b]).decode("cp1252") for b in range(256)}
foreign = noise.replace(b"\r\n", b"\n").decode("latin-1").translate(page)
json.dump(["ZdConnect Enter\n" + foreign, "ZdConnect Exit\n" + line.decode(), "ZdTest"], open("wanted", "w"))
END
run log levels --json
ends 0
entries '[x["text"] for x in e] == json.load(open("wanted")) and [x["level"] for x in e] == [6, 6, None]'
run log levels
ends 0
# An entry of more than 4 MiB comes in parts that hold all of it: many lines, and one.
python3 - "$one" <<'END'
import sys
lines = "".join(f"loose line {n}\n" for n in range(400_000))
open("lines", "w").write(lines)
open("levels", "w").write(sys.argv[1] + "ZdConnect Enter\n" + lines + sys.argv[1] + "ZdTest\n")
open("letters", "w").write("".join(f"{n} " for n in range(1_000_000)))
open("line", "w").write(sys.argv[1] + open("letters").read() + "\n" + sys.argv[1] + "ZdTest\n")
END
run log levels --json
ends 0
entries '"\n".join(x["text"] for x in e[:-1]) + "\n" == "ZdConnect Enter\n" + open("lines").read()'
entries 'len(e) == 3 and all(len(x["text"]) <= 4 << 20 for x in e) and e[0]["level"] == 6 and e[1]["time"] is None'
entries 'e[-1]["text"] == "ZdTest" and e[-1]["pid"] == 1234'
run log line --json
ends 0
entries '"".join(x["text"] for x in e[:-1]) == open("letters").read()'
entries 'len(e) == 3 and all(len(x["text"]) <= 4 << 20 for x in e) and e[0]["pid"] == 1234 and e[1]["time"] is None'
rm lines line letters
# A line that holds nothing but beginnings.
python3 -c 'import sys; open("levels", "w").write((sys.argv[1] + "x") * 60000)' "$one"
run log levels --json
ends 0
entries 'len(e) == 60000 and all(x["text"] == "x" for x in e)'

echo "a long file in little memory"
python3 - "$one" <<'END'
import sys
one = sys.argv[1]
block = "".join(f"{one}ZdReadFile Enter - handle: 0000000000{n:06x}, offset: {n}, len: 4096\r\n" for n in range(10000))
with open("long", "w", newline="") as f:
    while f.tell() < 100 << 20:
        f.write(block)
END
wc -l <long >expected
start=$(date +%s%N)
mkfifo pipe
wc -l <pipe >out &
counter=$!
"$root/tools/wine" "$zdhost" log long <in >pipe 2>err &
reader=$!
peak=0
while [ -n "$(jobs -r)" ]; do
    now=$(awk '/^VmHWM/ { print $2 }' "/proc/$reader/status" 2>/dev/null)
    [ "${now:-0}" -gt "$peak" ] && peak=$now
    sleep 0.1
done
wait "$counter"
echo "    100 MiB in $((($(date +%s%N) - start) / 1000000)) ms, $peak KiB resident at most"
current="zdhost log long" status=0
same expected out
# The program itself is resident too, which counts where it was built for tests.
program=$(($(stat -c %s "$zdhost") / 1024))
holds '[ "$peak" -gt 0 ] && [ "$peak" -lt $((program + 32768)) ]'
rm long

echo "a log of the plug-in's own"
rm -r logs agent
make_pool
printf 'mkdir /d\nput levels /d/x\nsay --level 1 "an error of mine"\nsay x\nls /\nacl get /d/x\n' >in
run script
ends 0
: >in
run log --all --json
ends 0
entries 'len(e) > 40 and {x["process"] for x in e} == {"zdhost.exe"}'
# Only the lines of others are unknown.
entries '{x["text"].split(" ")[0] for x in e if x["level"] is None} <= {"an", "x", "zdvfs:"}'
entries 'sum(x["level"] == 6 for x in e) > 30 and sum("/" in x["text"][:5] for x in e) == 0'
entries 'any(x["text"].startswith("GET SD_DACL\n") for x in e) and any(x["text"].endswith("Compression is enabled") for x in e)'
# The text form shows the file's lines, each with its level in front, and those without an end apart.
run log --all
cat logs/*.LOG | tr -d '\r' | sed -E 's#(enabled|encryption|value [0-9-]+)([0-9]{4}/)#\1\n\2#g' >expected
sed -E 's/^(.  |    )//' out >stripped
same expected stripped
# A file that the plug-in holds open is followed, and neither side keeps the other, or somebody who renames, from its work.
"$root/tools/wine" "$zdhost" log --follow --for 120 --last 0 <in >seen 2>seen-errors &
follower=$!
sleep 3
printf 'say --level 1 "while it is followed"\nsay x\n' >in
run script
ends 0
: >in
for name in logs/*.LOG; do
    current="renaming $name"
    "$root/tools/wine" cmd /c ren "Z:${PWD//\//\\}\\${name//\//\\}" "${name##*/}.old" <in >out 2>err
    status=$?
    ends 0
    holds '[ -e "$name.old" ]'
done
until_shown "while it is followed" seen
current="zdhost log --follow beside the plug-in"
kill -INT "$follower"
wait "$follower"
status=$?
cp seen out
cp seen-errors err
ends 0
says_nothing
prints "while it is followed"
run setup --clear
