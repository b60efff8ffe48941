# What administrators work with: zdhost config --check and --list-settings, the templates in packaging/admin/, and that
# documents and tables agree with the sources. Read by "run".
# A command of this machine in place of zdhost.
here_runs() {
    current="$*"
    "$@" <in >out 2>err
    status=$?
}
clean

echo "the table of settings"
run config --list-settings --json
ends 0
says_nothing
cp out list.json
here_runs "$root/tests/admin/check" list.json
ends 0
cat out
cp list.json in
here_runs "$root/packaging/admin-files" --check
ends 0
sed 's/"default":51200/"default":51201/' list.json >in
here_runs "$root/packaging/admin-files" --check
ends 1
says "is not current"
sed 's/"when":"pool"/"when":"mount"/' list.json >in
here_runs "$root/packaging/admin-files" --check
ends 1
says "docs/settings.md is not current"
sed 's/"help":"Fragments of one handle/"help":"Fragments of a handle/' list.json >in
here_runs "$root/packaging/admin-files" --check
ends 1
says "is not current"
: >in
# The arguments of the options stand in no table: the document writes them as the program does.
run setup --help
ends 0
sed -nE 's/^\| `(--[^`]+)` \| `(ZDVFS|Agent)\\.*/\1/p' "$root/docs/zdhost.md" | sed 's/\\//' >options
holds '[ "$(wc -l <options)" -gt 20 ]'
while read -r option; do
    holds 'grep -qE -- "^ +${option/|/[|]}( |\$)" <(tr -d "\r" <out)'
done <options
run config --list-settings
ends 0
prints 'ZDVFS\MaxFileSizeMB: REG_DWORD; MiB, 1 to 4294967295; default 51200 (50 GiB); so does 0; object'
holds '[ "$(wc -l <out)" = "$(grep -o "\"name\"" list.json | wc -l)" ]'
run config --list-settings --check
ends 2

echo "the texts of the log"
here_runs "$root/tools/log-texts" --check
ends 0
cat out
mkdir copy
for folder in plugin tools; do cp -r "$root/$folder" copy; done
mkdir -p copy/host/log
cp "$root/host/log/LogTexts.cpp" copy/host/log
here_runs copy/tools/log-texts --check
ends 0
# A text, a level, a new line: each makes the table old, and one that cannot be followed is no line of the table.
for damage in 's/stopping task/stopping the task/' 's/LogText(kLogTrace, "DoAdd/LogText(kLogWarning, "DoAdd/' \
    's/^void DoAdd/void NewLine() { LogText(kLogError, "new\\n"); }\nvoid DoAdd/'; do
    sed "$damage" "$root/plugin/protocol/TaskTime.cpp" >copy/plugin/protocol/TaskTime.cpp
    holds '! cmp -s copy/plugin/protocol/TaskTime.cpp "$root/plugin/protocol/TaskTime.cpp"'
    here_runs copy/tools/log-texts --check
    ends 1
    says "is not current"
done
echo 'namespace zd { void Odd(std::int32_t level) { LogText(level, Made()); } }' >copy/plugin/protocol/TaskTime.cpp
here_runs copy/tools/log-texts --check
ends 1
says "plugin/protocol/TaskTime.cpp:1: neither a literal nor a parameter of the function around it"
rm -r copy

echo "the template for the registry"
cp "$root/packaging/admin/ZdvfsSettings.reg" as-it-is.reg
"$root/tools/wine" regedit /S as-it-is.reg <in >out 2>err
run setup --show
ends 0
# Not even a key, which would hide the former maker's.
printf 'Nothing is set.\n' >expected
same expected out
run config
ends 0
holds '! grep -q "registry " out'
# With every comment mark taken away, it stores every default.
sed -E 's/^;("|\[)/\1/' "$root/packaging/admin/ZdvfsSettings.reg" >all.reg
"$root/tools/wine" regedit /S all.reg <in >out 2>err
run setup --show
ends 0
cp out shown
python3 - >expected <<'END'
import json
example = {"path": "C:\\ProgramData\\Zendra\\", "logpath": "C:\\ProgramData\\Zendra\\log",
           "ConfigFilePath": "C:\\ProgramData\\Zendra\\pool.cfg"}
print("HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvane\\Zendra")
for s in json.load(open("list.json"))["settings"]:
    if s["place"] in ("ZDVFS", "Agent"):
        value = s["default"] if s["default"] is not None else f'"{example[s["name"]]}"'
        print(f'  {s["place"]}\\{s["name"]} = {value}')
print('  ZDVFS\\SpaList\\POOL\\ConfigFilePath = "C:\\ProgramData\\Zendra\\pool.cfg"')
print("  ZDVFS\\SpaList\\POOL\\TopLevelDirectory is not set")
END
same expected shown
run config --json
ends 0
# Stored defaults are the values in force without them.
holds 'python3 -c "
import json
for r in json.load(open(\"out\"))[\"settings\"]:
    assert r[\"name\"] in (\"path\", \"logpath\", \"ConfigFilePath\") or r[\"value\"] == r[\"default\"], r
" 2>err'
clean

echo "the check of the settings"
run config --check
ends 1
says_nothing
printf 'logpath: neither Agent\\logpath nor Agent\\path names a folder: there is no log file\n' >expected
same expected out
run config --check --json
ends 1
holds 'python3 -c "
import json
w = json.load(open(\"out\"))
assert list(w) == [\"warnings\"] and len(w[\"warnings\"]) == 1
assert w[\"warnings\"][0][\"setting\"] == \"logpath\" and \"there is no log file\" in w[\"warnings\"][0][\"text\"]
" 2>err'
mkdir agent
printf '[Main]\nAgentID=7\n' >agent/pool.cfg
run setup --agent-path "Z:$work/agent" --debug-level 2 --log-suppress 1 --log-num-msgs 4
run config --check
ends 0
prints_nothing
says_nothing
run config --check --json
ends 0
printf '{"warnings":[]}\n' >expected
same expected out
run setup --former-tree --debug-level 6
run setup --max-open-fragments 0x80000000 --debug-level 3
run config --check
ends 1
cat >expected <<'END'
MaxOpenFragments: as a signed number it is below 0: a handle keeps one fragment open
LogSuppressRepeatedMessages: DebugLevel is above 2: folding ends at the GetProtocol or refresh after the one that brings this level into force
LogNumMsgs: DebugLevel is above 2: folding ends at the GetProtocol or refresh after the one that brings this level into force
SOFTWARE\Halvern\Zendra has no effect beside SOFTWARE\Orvane\Zendra
END
same expected out
# In a script it is one command of several.
printf 'config --check\ntag\n' >in
run script
ends 1
same expected out
run script -k
ends 1
holds '[ "$(wc -l <out)" = 5 ]'
: >in

echo "folding above level 2 is as it is told"
clean
rm -r agent
make_pool
run setup --debug-level 3 --log-suppress 1
printf 'say A\nsay A\nsay A\nrefresh\nsay B\nsay B\nsay B\n' >in
run script
ends 0
: >in
run log --json
ends 0
holds '[ "$(grep -c "\"text\":\"A\"" out)" = 1 ] && [ "$(grep -c "\"text\":\"B\"" out)" = 3 ]'
clean
