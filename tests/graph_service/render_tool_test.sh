#!/usr/bin/env bash
# The filters and render commands of the tool, run as a user runs them: the catalogue lists its
# categories and devices; a generated WAV renders to the null renderer and to "Virtual Output"
# to its end, prints its graph and writes it for Graphviz; bad files and arguments fail with
# their messages and exit codes.
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

check "lists the categories"            0 '{E0F158E1-CB04-11D0-BD4E-00A0C911CE86}  Audio Renderers' -- "$tool" filters
check "lists the renderer devices"      0 '@device:cm:{E0F158E1-CB04-11D0-BD4E-00A0C911CE86}\Virtual Output' -- "$tool" filters "Audio Renderers"
check "shows merits"                    0 'Null Renderer  merit 0x00200000' -- "$tool" filters
check "unknown category"                1 'no category "Nothing"' -- "$tool" filters Nothing
check "renders to the null renderer"    0 '0.5 / 0.5 s' -- "$tool" render "$dir/half.wav" --null
check "prints the graph"                0 '[Output] -> Null Renderer [In]: audio PCM' -- "$tool" render "$dir/half.wav" --null --graph
check "plays to the virtual output"     0 '0.5 / 0.5 s' -- "$tool" render "$dir/half.wav" --device "Virtual Output"
check "writes the graph for Graphviz"   0 '' -- "$tool" render "$dir/half.wav" --null --dot "$dir/g.dot"
if grep -qF -- '-> "Null Renderer"' "$dir/g.dot"; then echo "ok   dot file has the edge"; else echo "FAIL dot file"; failures=$((failures + 1)); fi
check "missing file"                    1 "can't render $dir/none.wav" -- "$tool" render "$dir/none.wav" --null
check "not a media file"                1 "can't render $dir/notes.wav" -- "$tool" render "$dir/notes.wav" --null
check "unknown device"                  1 'no audio renderer "Nowhere"' -- "$tool" render "$dir/half.wav" --device Nowhere
check "null and device together"        2 'exclude each other' -- "$tool" render "$dir/half.wav" --null --device "Virtual Output"

exit $((failures > 0))
