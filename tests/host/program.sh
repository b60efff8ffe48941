# zdhost without a plug-in: help, arguments, scripts, the registry. Read by "run".

echo "help on every level"
for level in "" put get cat write cp append truncate ls stat mv attrib touch mkdir rm acl "acl get" "acl set" df \
    label pools ioctl control refresh say log tag setup config script shell; do
    # shellcheck disable=SC2086
    run $level --help
    ends 0
    prints "Usage: zdhost"
    prints "Example"
    says_nothing
done

echo "arguments that make no sense"
run
ends 2
says "a command is missing; see zdhost --help"
prints_nothing
run frobnicate
ends 2
says 'there is no command "frobnicate"; see zdhost --help'
run acl frobnicate
ends 2
says 'there is no command "frobnicate"; see zdhost acl --help'
run put only-one
ends 2
says "REMOTE is required"
run --as nobody put a b
ends 2
says '"nobody" is none of self, restricted, anonymous'
run put a b c
ends 2
says "not expected: c"
run --nonsense put a b
ends 2
says "--nonsense"
for size in 5Q -5 1.5 K "" 8388608T 9223372036854775808 0x; do
    run truncate /x "$size"
    ends 2
    says "is no size"
done
run cat /x --offset many
ends 2
says "--offset: \"many\" is no size"
for value in 4294967296 -1 x ""; do
    run ioctl "$value"
    ends 2
    says "is no number from 0 to 4294967295"
done
run ioctl
ends 2
says "REQUEST or --show is required"
run ioctl 5 --show
ends 2
says "excludes"
run ioctl 5 --json
ends 2
for time in yesterday 2026-13-01 2026-02-30 2026-1-01 2026-01-01T10 2026-01-01T10:00:00X 0x7e-01-01 @ @-1 1600-01-01; do
    run touch /x --write "$time"
    ends 2
    says "is no time"
done
for letters in x D rhq 0x100000000; do
    run attrib /x --set "$letters"
    ends 2
    says "letters of RHSATIN or a number"
done
run attrib /x --value 0
ends 2
says "would leave the attributes as they are"
run attrib /x --value r --set h
ends 2
run put "$zdhost" ""
ends 2
says "an empty remote name"
run --pool "$(printf 'x%.0s' {1..260})" --plugin "$fake" cat /x
ends 2
says "--pool: at most 259 characters"
run --second "$(printf 'x%.0s' {1..256})" --plugin "$fake" cat /x
ends 2
says "--second: at most 255 characters"

echo "local files"
run put missing.bin /x
ends 1
says "opening the local file failed: 2 ("
says "missing.bin"
mkdir folder
run put folder /x
ends 1
says "the local name is a directory, not a file"
run --plugin nowhere.dll put "$here/run" /x
ends 1
says "loading the plug-in failed: 126 ("
says "nowhere.dll"
# A library without the export.
run --plugin 'C:\windows\system32\version.dll' cat /x
ends 1
says "looking up GetProtocol failed: 127 ("

echo "scripts"
printf '\n   \n# a comment\n  # another\n' >in
run script
ends 0
says_nothing
prints_nothing
printf '\n# c\nput only-one\nfrobnicate\n' >in
run script
ends 2
says "line 3: REMOTE is required"
holds '! grep -q "line 4" err'
run - --keep-going
ends 2
says "line 3: REMOTE is required"
says 'line 4: there is no command "frobnicate"'
printf 'put missing.bin /x\nfrobnicate\n' >in
run script -k
ends 1
says "line 1: opening the local file failed: 2 ("
says "line 2: there is no command"
printf 'mkdir "/a b\n' >in
run script
ends 2
says "line 1: a quote is not closed"
printf 'mkdir \xff\n' >in
run script
ends 2
says "line 1: the line is not UTF-8"
printf 'put - /x\n' >in
run script
ends 2
says 'line 1: standard input holds the commands and cannot be "-" too'
printf '\xef\xbb\xbfput missing.bin /x\r\n' >in
run script
ends 1
says "line 1: opening the local file failed: 2 ("
printf 'script\n' >in
run script
ends 2
says 'line 1: there is no command "script"'
: >in

echo "the registry"
run setup
ends 2
says "nothing to do"
run setup --debug-level 4294967296
ends 2
says "is no number from 0 to 4294967295"
run setup --debug-level six
ends 2
says "is no number"
run setup --pool-config pool
ends 2
says "is not of the form POOL=FILE"
run setup --pool-config 'a\b=file'
ends 2
run setup --clear --show
ends 0
run setup --clear --former-tree --show
ends 0
prints "Nothing is set."
run setup --agent-path 'C:\agent' --log-path 'C:\logs' --config-file 'C:\agent\x.cfg' --agent-key-type 3 \
    --agent-type 1 --max-file-size-mb 1 --max-open-fragments 7 --local-cache-off 1 --edb-direct-io 0 \
    --highest-valid-name-char 0x7f --sync-file-count 11 --task-close-wait 12 --task-time-add 13 --debug-level 6 \
    --log-suppress 1 --log-num-msgs 14 --log-occur-limit 15 --log-time-limit 16 --log-chars-for-match 17 \
    --log-update-interval 18 --pool-config 'pool=C:\agent\pool.cfg' --pool-config 'zwei=C:\agent\ü b.cfg'
ends 0
says_nothing
prints_nothing
run setup --show
ends 0
cat >expected <<'END'
HKEY_LOCAL_MACHINE\SOFTWARE\Orvane\Zendra
  Agent\path = "C:\agent\"
  Agent\logpath = "C:\logs"
  Agent\ConfigFilePath = "C:\agent\x.cfg"
  Agent\AgentType = 3
  ZDVFS\AgentType = 1
  ZDVFS\MaxFileSizeMB = 1
  ZDVFS\MaxOpenFragments = 7
  ZDVFS\LocalCacheOff = 1
  ZDVFS\EDB DIRECT IO = 0
  ZDVFS\HighestValidNameChar = 127
  ZDVFS\SyncFileCount = 11
  ZDVFS\TaskCloseWait = 12
  ZDVFS\TaskTimeAdd = 13
  ZDVFS\DebugLevel = 6
  ZDVFS\LogSuppressRepeatedMessages = 1
  ZDVFS\LogNumMsgs = 14
  ZDVFS\LogOccurLimit = 15
  ZDVFS\LogTimeLimit = 16
  ZDVFS\LogNumCharsForMatch = 17
  ZDVFS\LogSuppressorUpdateInterval = 18
  ZDVFS\SpaList\pool\ConfigFilePath = "C:\agent\pool.cfg"
  ZDVFS\SpaList\pool\TopLevelDirectory is not set
  ZDVFS\SpaList\zwei\ConfigFilePath = "C:\agent\ü b.cfg"
  ZDVFS\SpaList\zwei\TopLevelDirectory is not set
END
same expected out
# What the system's own tool reads of them: names and types are what the plug-in asks for.
"$root/tools/wine" reg query 'HKLM\SOFTWARE\Orvane\Zendra' /s >out 2>err </dev/null
holds 'grep -qE "EDB DIRECT IO +REG_DWORD +0x0" out'
holds 'grep -qE "HighestValidNameChar +REG_DWORD +0x7f" out'
holds 'grep -qE "logpath +REG_SZ +C:.logs" out'
"$root/tools/wine" reg add 'HKLM\SOFTWARE\Orvane\Zendra\ZDVFS' /v Foreign /d kept /f >out 2>err </dev/null
run config
ends 0
prints 'warning: ZDVFS\Foreign is not read by the plug-in'
run setup --former-tree --debug-level 3 --show
ends 0
prints 'HKEY_LOCAL_MACHINE\SOFTWARE\Halvern\Zendra (not in use)'
run setup --clear --show
ends 0
# The value that zdhost does not know keeps its key, and with it the tree in use.
"$root/tools/wine" reg query 'HKLM\SOFTWARE\Orvane\Zendra\ZDVFS' /v Foreign >out 2>err </dev/null
prints kept
holds '! "$root/tools/wine" reg query "HKLM\\SOFTWARE\\Orvane\\Zendra\\Agent" >out 2>err </dev/null'
"$root/tools/wine" reg delete 'HKLM\SOFTWARE\Orvane\Zendra\ZDVFS' /v Foreign /f >out 2>err </dev/null
run setup --clear --show
ends 0
cat >expected <<'END'
HKEY_LOCAL_MACHINE\SOFTWARE\Halvern\Zendra
  ZDVFS\DebugLevel = 3
END
same expected out
run setup --clear --former-tree --show
ends 0
prints "Nothing is set."
