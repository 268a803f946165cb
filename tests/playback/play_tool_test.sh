#!/usr/bin/env bash
# The play command of the tool, run as a user runs it: a generated half-second WAV plays to
# "Virtual Output" with progress and exit 0; a missing file, a file that is no audio, an
# unknown device and bad arguments fail with their messages and exit codes.
set -u
tool="$1"
dir="$(mktemp -d)"
trap 'rm -rf "$dir"' EXIT
failures=0

check() {  # check NAME EXPECTED_EXIT PATTERN_IN_OUTPUT -- command...
    local name="$1" want="$2" pattern="$3"
    shift 4
    local out code
    out="$("$@" 2>&1)"
    code=$?
    if [[ $code -ne $want ]]; then
        echo "FAIL $name: exit $code, wanted $want"; echo "$out"; failures=$((failures + 1)); return
    fi
    if ! grep -qF -- "$pattern" <<<"$out"; then
        echo "FAIL $name: output lacks '$pattern'"; echo "$out"; failures=$((failures + 1)); return
    fi
    echo "ok   $name"
}

"$tool" tone "$dir/half.wav" 0.5 || { echo "FAIL cannot make the tone"; exit 1; }
printf 'this is a text file, not sound\n%.0s' {1..100} > "$dir/notes.wav"

check "plays to the virtual output"       0 '"Virtual Output"' -- "$tool" play "$dir/half.wav" --device "Virtual Output"
check "shows progress up to the duration" 0 '0:00.5 / 0:00.5' -- "$tool" play "$dir/half.wav" --device "Virtual Output"
check "plays pulled by the output"        0 'pulled by the output' -- "$tool" play "$dir/half.wav" --device "Virtual Output" --pump --prefill 100
check "plays a generated tone"            0 '0:00.3 / 0:00.3' -- "$tool" play --tone 0.3 --device "Virtual Output"
check "lists the virtual output"          0 'Virtual Output' -- "$tool" devices
check "missing file"                      1 "mediawire: cannot open '$dir/none.wav': No such file or directory" -- "$tool" play "$dir/none.wav" --device "Virtual Output"
check "not audio"                         1 "not an audio file FFmpeg can decode" -- "$tool" play "$dir/notes.wav" --device "Virtual Output"
check "unknown device"                    1 "mediawire: unknown device 'Foo' (see mediawire devices)" -- "$tool" play "$dir/half.wav" --device Foo
check "no file"                           2 "play needs a FILE or --tone SECONDS" -- "$tool" play
check "bad prefill"                       2 "--prefill: Value soon not in range" -- "$tool" play "$dir/half.wav" --prefill soon

exit $((failures > 0))
