# zdhost config: what the plug-in would read, and a warning for whatever does not do what it says. Read by "run".
# NAME VALUE SOURCE: one row of the table.
row() {
    checks=$((checks + 1))
    grep -qE "^  $1 +$2 +$3\$" out || fail "a row should be: $1 $2 $3"
}
# The value of a row, and the warnings below it, one a line.
warns() { # NAME WARNING...
    local name=$1
    shift
    checks=$((checks + 1))
    awk -v name="$name" '/^  [^ ]/ { here = (index($0, "  " name " ") == 1) } here && /^      warning: /' out |
        sed 's/^      warning: //; s/\r$//' >warnings
    if [ $# = 0 ]; then : >expected-warnings; else printf '%s\n' "$@" >expected-warnings; fi
    cmp -s expected-warnings warnings || fail "the warnings of $name should be: $*; and are: $(tr '\n' ';' <warnings)"
}
# KEY VALUE TYPE DATA: stores what "zdhost setup" would not.
store() { "$root/tools/wine" reg add "$product\\$1" /v "$2" /t "$3" /d "$4" /f >out 2>err </dev/null; }
clean

echo "the settings in force"
run config
ends 0
says_nothing
prints 'HKEY_LOCAL_MACHINE\SOFTWARE\Orvane\Zendra'
holds '[ "$(grep -c " default$" out)" = "$(grep -cE "^  [A-Za-z]" out)" ]'
row MaxFileSizeMB 51200 default
row ENCRYPTION 0 default
row RESTORE_DECRYPT_LOCAL 1 default
row logpath none default
prints 'neither Agent\logpath nor Agent\path names a folder: there is no log file'
mkdir agent
cat >agent/zd.conf <<'END'
IFS_COMPRESSION=5
ENCRYPTION=yes
PREFERRED_EXT_SEGKSIZE=vhd:64,edb:4194304,x:;more
END
: >agent/pool.cfg
run setup --agent-path "Z:$work/agent" --agent-type 1 --agent-key-type 2 --config-file "Z:$work/agent/pool.cfg" \
    --max-file-size-mb 0 --task-time-add 0 --task-close-wait 7 --debug-level 3 --log-suppress 1 --log-num-msgs 4 \
    --highest-valid-name-char 0x1007f --pool-config "zwei=Z:$work/agent/pool.cfg"
ends 0
store ZDVFS MaxOpenFragments REG_SZ 7
run --pool zwei config
ends 0
row path '".*agent."' 'registry Agent.path'
row logpath '".*agent.log"' 'registry Agent.path'
row AgentType 1 'registry ZDVFS.AgentType'
prints 'warning: Agent\AgentType has no effect beside ZDVFS\AgentType'
row ConfigFilePath '".*pool.cfg"' 'registry ZDVFS.SpaList.zwei.ConfigFilePath'
prints 'warning: Agent\ConfigFilePath has no effect with agent type 1'
row MaxFileSizeMB 51200 default
prints 'warning: 0 is stored, which counts as the default'
row MaxOpenFragments 100 default
prints 'warning: ZDVFS\MaxOpenFragments is REG_SZ, not REG_DWORD: it has no effect'
row TaskTimeAdd 0 'registry ZDVFS.TaskTimeAdd'
prints 'warning: the renewal of the storage task is off'
prints 'warning: it has no effect: TaskTimeAdd turns the renewal off'
row HighestValidNameChar 127 'registry ZDVFS.HighestValidNameChar'
prints 'only the low 16 bits of 65663 count'
holds '[ "$(grep -c "DebugLevel is above 2: folding ends at the GetProtocol or refresh after the one that brings this level into force" out)" = 2 ]'
row IFS_COMPRESSION 5 'zd.conf .*agent.zd.conf'
row ENCRYPTION 0 default
prints 'warning: "yes" is no number: it has no effect'
prints 'warning: the size of "edb" does not fit'
prints 'warning: the size of "x" is no number and counts as 0'
prints 'warning: the list ends before ";more"'
run config --json
ends 0
holds 'python3 -c "
import json
c = json.load(open(\"out\"))
rows = {r[\"name\"]: r for r in c[\"settings\"]}
assert rows[\"HighestValidNameChar\"][\"value\"] == 127
assert rows[\"HighestValidNameChar\"][\"source\"] == \"registry\"
assert rows[\"MaxOpenFragments\"][\"default\"] == 100 and rows[\"MaxOpenFragments\"][\"place\"] is None
assert len(rows[\"MaxOpenFragments\"][\"warnings\"]) == 1
assert rows[\"ConfigFilePath\"][\"value\"] is None
" 2>err'
# The reader of zd.conf stands beside the plug-in.
run --plugin nowhere.dll config
ends 0
prints 'warning: zd.conf cannot be told: there is no hul.dll'
run setup --former-tree --debug-level 2
run config
prints 'warning: SOFTWARE\Halvern\Zendra has no effect beside SOFTWARE\Orvane\Zendra'
clean

echo "the agent type"
for type in 1 2 3; do
    run setup --agent-type "$type"
    run config
    warns AgentType
done
run setup --agent-type 4
run config
row AgentType 4 'registry ZDVFS.AgentType'
warns AgentType '4 is no agent type with a meaning of its own (0 to 3): it only hands over the file of Agent\ConfigFilePath'
warns ConfigFilePath 'agent type 4 needs Agent\ConfigFilePath'
clean
run setup --agent-key-type 0xffffffff --config-file "Z:$work/agent/pool.cfg"
run config
row AgentType 4294967295 'registry Agent.AgentType'
warns AgentType
row ConfigFilePath '".*pool.cfg"' 'registry Agent.ConfigFilePath'
warns ConfigFilePath
clean

echo "types"
for setting in ZDVFS/MaxFileSizeMB ZDVFS/LocalCacheOff "ZDVFS/EDB DIRECT IO" ZDVFS/HighestValidNameChar \
    ZDVFS/SyncFileCount ZDVFS/TaskCloseWait ZDVFS/TaskTimeAdd ZDVFS/DebugLevel ZDVFS/LogSuppressRepeatedMessages \
    ZDVFS/LogTimeLimit ZDVFS/AgentType Agent/AgentType; do
    store "${setting%%/*}" "${setting#*/}" REG_QWORD 3
done
store Agent path REG_BINARY 5a00
store Agent logpath REG_MULTI_SZ 'C:\logs'
run config
ends 0
for name in MaxFileSizeMB LocalCacheOff "EDB DIRECT IO" HighestValidNameChar SyncFileCount TaskCloseWait TaskTimeAdd \
    DebugLevel LogSuppressRepeatedMessages LogTimeLimit; do
    warns "$name" "ZDVFS\\$name is REG_QWORD, not REG_DWORD: it has no effect"
done
warns AgentType 'ZDVFS\AgentType is REG_QWORD, not REG_DWORD: it has no effect' \
    'Agent\AgentType is REG_QWORD, not REG_DWORD: it has no effect'
warns path 'Agent\path is REG_BINARY, not REG_SZ: it has no effect'
holds 'grep -q "Agent.logpath is REG_MULTI_SZ, not REG_SZ: it has no effect" out'
holds '[ "$(grep -c " default$" out)" = "$(grep -cE "^  [A-Za-z]" out)" ]'
clean
# The file's name is taken as plain text only, and an empty one is none.
run setup --agent-type 1
for pool in eins zwei; do mkdir -p "agent"; printf '[Main]\nAgentID=1\n' >"agent/$pool.cfg"; done
store 'ZDVFS\SpaList\eins' ConfigFilePath REG_EXPAND_SZ "Z:$work/agent/eins.cfg"
store 'ZDVFS\SpaList\zwei' ConfigFilePath REG_SZ ''
store Agent path REG_SZ ''
store Agent logpath REG_SZ ''
run --pool eins config
row ConfigFilePath none default
prints 'warning: ZDVFS\SpaList\eins\ConfigFilePath is REG_EXPAND_SZ, not REG_SZ: it has no effect'
run --pool zwei config
row ConfigFilePath none default
prints 'warning: ZDVFS\SpaList\zwei\ConfigFilePath is empty: it has no effect'
warns path 'Agent\path is empty: it has no effect'
holds 'grep -q "warning: Agent.logpath is empty: it has no effect" out'
clean

echo "keys in places where they are not read"
cat >agent/zd.conf <<'END'
ENCRYPTION=1
encryption=0
[Main]
IFS_COMPRESSION=1
PREFERRED_EXT_SEGKSIZE=vhd:64
; RESTORE_DECRYPT_LOCAL=0
[ Other ]
IFS_COMPRESSION = 2
UNRELATED=1
[__dummy__section__]
RESTORE_DECRYPT_LOCAL=0
END
run setup --agent-path "Z:$work/agent"
run config
row IFS_COMPRESSION 0 default
warns IFS_COMPRESSION 'zd.conf holds it in the section [Main], where it is not read' \
    'zd.conf holds it in the section [Other], where it is not read'
row ENCRYPTION 1 'zd.conf .*agent.zd.conf'
warns ENCRYPTION 'zd.conf holds it 2 times: one of them counts'
# This section is the reader's own name for what stands outside all sections.
row RESTORE_DECRYPT_LOCAL 0 'zd.conf .*agent.zd.conf'
warns RESTORE_DECRYPT_LOCAL
row PREFERRED_EXT_SEGKSIZE '""' default
warns PREFERRED_EXT_SEGKSIZE 'zd.conf holds it in the section [Main], where it is not read'
printf 'IFS_COMPRESSION=1\nENCRYPTION=1\nRESTORE_DECRYPT_LOCAL=0\nPREFERRED_EXT_SEGKSIZE=vhd:64\n[Main]\nAgentID=1\n' >agent/zd.conf
run config
for name in IFS_COMPRESSION ENCRYPTION RESTORE_DECRYPT_LOCAL PREFERRED_EXT_SEGKSIZE; do warns "$name"; done
holds '! grep -q "warning" out'
mkdir 'agent 日本'
cp agent/zd.conf 'agent 日本'
run setup --agent-path "Z:$work/agent 日本"
run config
# Only where the system's code page has the name is the file found.
if grep -q 'outside the code page' out; then row ENCRYPTION 0 default; else row ENCRYPTION 1 'zd.conf .*zd.conf'; fi
run setup --agent-path "Z:$work/agent"
store Agent MaxFileSizeMB REG_DWORD 1
store Agent SomethingElse REG_DWORD 1
store ZDVFS logpath REG_SZ 'C:\logs'
store 'ZDVFS\SpaList' ConfigFilePath REG_SZ 'C:\x.cfg'
"$root/tools/wine" reg add "$product" /v DebugLevel /t REG_DWORD /d 6 /f >out 2>err </dev/null
run config
prints 'warning: Agent\MaxFileSizeMB is not read by the plug-in; in the key ZDVFS it is'
prints 'warning: ZDVFS\logpath is not read by the plug-in; in the key Agent it is'
prints 'warning: ZDVFS\SpaList\ConfigFilePath is not read by the plug-in; in the key Agent it is'
prints 'warning: DebugLevel is not read by the plug-in; in the key ZDVFS it is'
holds '[ "$(grep -c "^warning: " out)" = 4 ]'
clean

echo "a pool's file"
run setup --agent-path "Z:$work/agent" --agent-type 2
run --pool eins config
holds 'grep -q "warning: connecting registers the pool with .*agent.eins.cfg$" out'
for text in '[Main]\nAgentID=-1\n' '[Main]\nAgentID=one\n' '[Other]\nAgentID=1\n' ''; do
    # shellcheck disable=SC2059
    printf "$text" >agent/eins.cfg
    run --pool eins config
    holds 'grep -qE "agent.eins.cfg holds no AgentID in .Main., so that connecting does not register the pool$" out'
done
printf 'AgentID=1\n[Main]\n' >agent/eins.cfg
run --pool eins config
holds 'grep -qE "does not register the pool; the one outside the section is not read$" out'
run --pool missing config
holds 'grep -q "agent.missing.cfg holds no AgentID" out'
clean

echo "combinations"
run setup --edb-direct-io 0 --local-cache-off 1 --highest-valid-name-char 91 --max-open-fragments 0x80000000 \
    --debug-level 5 --log-suppress 1
run config
warns 'EDB DIRECT IO' 'LocalCacheOff opens written .edb files past the cache all the same'
warns HighestValidNameChar '"\" is a higher character: every name that holds one is refused'
warns MaxOpenFragments 'as a signed number it is below 0: a handle keeps one fragment open'
warns DebugLevel "the plug-in's own lines have the levels 1, 2, 3 and 6: 5 shows the same as 3"
warns LogSuppressRepeatedMessages 'DebugLevel is above 2: folding ends at the GetProtocol or refresh after the one that brings this level into force'
run setup --edb-direct-io 0 --local-cache-off 0 --highest-valid-name-char 92 --max-open-fragments 0x7fffffff \
    --debug-level 2 --log-num-msgs 3
run config
holds '! grep -q "warning" <(grep -v "there is no log file" out)'
for level in 1 3 6; do
    run setup --debug-level "$level"
    run config
    warns DebugLevel
done
run setup --debug-level 9
run config
warns DebugLevel "the plug-in's own lines have the levels 1, 2, 3 and 6: 9 shows the same as 6"
run setup --debug-level 0xffffffff
run config
warns DebugLevel 'as a signed number it is below 1 and counts as 1'
warns LogSuppressRepeatedMessages
warns LogNumMsgs
clean

echo "the list of sizes"
run setup --agent-path "Z:$work/agent"
sizes() { # LIST WARNING...
    printf 'PREFERRED_EXT_SEGKSIZE=%s\n' "$1" >agent/zd.conf
    run config
    shift
    warns PREFERRED_EXT_SEGKSIZE "$@"
}
sizes 'edb:1024, vhd:0x40,bak:010,log:0'
sizes 'vhd:2097151'
sizes 'vhd:2097152' 'the size of "vhd" does not fit: KiB from 0 to 2097151'
sizes 'vhd:-1' 'the size of "vhd" does not fit: KiB from 0 to 2097151'
sizes 'edb:1;vhd:2' 'the list ends before ";vhd:2"'
sizes 'edb:1 ,vhd:2' 'the list ends before " ,vhd:2"'
sizes 'b:1,mdb:2,mdf:3' 'names that end with "mdb" take the size of the earlier item "b": this one has no effect'
sizes 'edb:1,EDB:2' 'names that end with "EDB" take the size of the earlier item "edb": this one counts in directories "vdb_..." only'
sizes 'mdb:1,b:2'
sizes 'vhd :1' 'the blank belongs to the extension "vhd "'
sizes ':1,vhd' 'an extension is missing before ":"' 'there is no size in "vhd"'
sizes "vhd:64,$(printf 'x%.0s' {1..260})" 'only the first 255 bytes count' \
    "there is no size in \"$(printf 'x%.0s' {1..248})\""
clean
