#!/usr/bin/env bash
# The effects of the tool, run as a user runs them: the list with parameters, a tone played
# through the gain effect into a WAV file at the level asked for, and the messages and exit
# codes of unknown effects, parameters and values.
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

check "lists every effect"          0 'Reverb' -- "$tool" effects
check "lists parameters and units"  0 '1 .. 2000 ms' -- "$tool" effects
check "lists enum values"           0 'Triangle | Sine' -- "$tool" effects chorus
check "unknown effect to list"      1 "mediawire: unknown effect 'Wah' (see mediawire effects)" -- "$tool" effects Wah
check "plays through an effect"     0 'through Gain' -- "$tool" play "$dir/half.wav" --effect Gain:Gain=-6 --output "$dir/quiet.wav"
check "unknown effect to play"      1 "unknown effect 'Wah'" -- "$tool" play "$dir/half.wav" --effect Wah --device "Virtual Output"
check "unknown parameter"           1 'Gain has no parameter "Loud"' -- "$tool" play "$dir/half.wav" --effect gain:Loud=3 --device "Virtual Output"
check "bad value"                   1 '"yes" is not a value of PanDelay' -- "$tool" play "$dir/half.wav" --effect Echo:PanDelay=yes --device "Virtual Output"

# The level of what was written: 6 dB below the tone, give or take the 16-bit rounding.
level="$(python3 - "$dir/half.wav" "$dir/quiet.wav" <<'PY'
import array, math, struct, sys
def rms(path):  # 16-bit samples of the data chunk; plain or extensible headers alike
    b = open(path, 'rb').read()
    pos, bits, data = 12, 0, b''
    while pos + 8 <= len(b):
        tag, size = b[pos:pos + 4], struct.unpack('<I', b[pos + 4:pos + 8])[0]
        if tag == b'fmt ': bits = struct.unpack('<H', b[pos + 22:pos + 24])[0]
        if tag == b'data': data = b[pos + 8:pos + 8 + size]
        pos += 8 + size + (size & 1)
    assert bits == 16, bits
    a = array.array('h', data[:len(data) // 2 * 2])
    return math.sqrt(sum(x * x for x in a) / max(1, len(a))), len(a)
(a, na), (b, nb) = rms(sys.argv[1]), rms(sys.argv[2])
print("%.3f %d %d" % (20 * math.log10(b / a), na, nb))
PY
)"
read -r db na nb <<<"$level"
if [[ "$na" != "$nb" ]] || ! awk -v d="$db" 'BEGIN { exit !(d > -6.05 && d < -5.95) }'; then
    echo "FAIL gain in the written file: $level (dB, samples in, samples out)"; failures=$((failures + 1))
else
    echo "ok   gain in the written file: $db dB"
fi

exit $((failures > 0))
