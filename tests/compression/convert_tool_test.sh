#!/usr/bin/env bash
# mediawire convert and formats, end to end: a WAV file written with Python's wave module is
# converted into each format; the result decodes back through mediawire, and where ffmpeg and
# sox are installed they read the file to the same samples as ours. Usage errors and failures
# give their exit codes.
set -euo pipefail
tool="$1"
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

python3 - "$dir/in.wav" <<'PY'
import math, struct, sys, wave
w = wave.open(sys.argv[1], "wb")
w.setnchannels(2); w.setsampwidth(2); w.setframerate(22050)
frames = b"".join(struct.pack("<hh", int(12000 * math.sin(i * 0.0627)),
                              int(9000 * math.sin(i * 0.031))) for i in range(22050 * 2))
w.writeframes(frames); w.close()
PY

fail() { echo "FAIL: $*" >&2; exit 1; }
have_ffmpeg=0; command -v ffmpeg >/dev/null && have_ffmpeg=1
have_sox=0; command -v sox >/dev/null && have_sox=1

"$tool" formats > "$dir/formats.txt"
grep -q "^ima-adpcm *0x0011 *IMA ADPCM" "$dir/formats.txt" || fail "formats lists no IMA ADPCM"
grep -q "^gsm *0x0031 *GSM 6.10" "$dir/formats.txt" || fail "formats lists no GSM 6.10"

# Raw 16-bit samples of a WAV file's data chunk.
pcm_data() {
    python3 - "$1" "$2" <<'PY'
import sys, wave
w = wave.open(sys.argv[1], "rb")
open(sys.argv[2], "wb").write(w.readframes(w.getnframes()))
PY
}

for fmt in ima-adpcm ms-adpcm alaw mulaw gsm mp3 pcm16; do
    args=()
    [ "$fmt" = gsm ] && args=(--rate 8000 --channels 1)
    "$tool" convert "$dir/in.wav" "$dir/$fmt.wav" --format "$fmt" "${args[@]}" < /dev/null \
        > "$dir/$fmt.log" 2>&1 || { cat "$dir/$fmt.log"; fail "convert to $fmt"; }
    grep -q "Wrote" "$dir/$fmt.log" || fail "no summary line for $fmt"
    # Back to 16-bit PCM through mediawire itself.
    "$tool" convert "$dir/$fmt.wav" "$dir/$fmt.back.wav" --format pcm16 < /dev/null \
        > /dev/null 2>&1 || fail "decode of $fmt"
    pcm_data "$dir/$fmt.back.wav" "$dir/$fmt.ours.raw"
    [ -s "$dir/$fmt.ours.raw" ] || fail "nothing decoded from $fmt"
    if [ $have_ffmpeg = 1 ] && [ "$fmt" != mp3 ]; then
        ffmpeg -v error -y -i "$dir/$fmt.wav" -f s16le -acodec pcm_s16le "$dir/$fmt.ffmpeg.raw" \
            || fail "ffmpeg can't read $fmt"
        cmp -s "$dir/$fmt.ffmpeg.raw" "$dir/$fmt.ours.raw" || fail "ffmpeg decodes $fmt otherwise"
    elif [ $have_ffmpeg = 1 ]; then
        ffmpeg -v error -i "$dir/$fmt.wav" -f null - || fail "ffmpeg can't read $fmt"
    fi
    if [ $have_sox = 1 ] && { [ "$fmt" = alaw ] || [ "$fmt" = mulaw ] || [ "$fmt" = pcm16 ] || [ "$fmt" = gsm ]; }; then
        sox -q "$dir/$fmt.wav" -t raw -e signed -b 16 "$dir/$fmt.sox.raw" || fail "sox can't read $fmt"
        cmp -s "$dir/$fmt.sox.raw" "$dir/$fmt.ours.raw" || fail "sox decodes $fmt otherwise"
    fi
done

# Usage errors exit with 2, failures with 1.
set +e
"$tool" convert "$dir/in.wav" "$dir/x.wav" --format nosuch > /dev/null 2>&1; [ $? = 2 ] || fail "unknown format"
"$tool" convert "$dir/missing.wav" "$dir/x.wav" --format alaw > /dev/null 2>&1; [ $? = 1 ] || fail "missing input"
"$tool" convert "$dir/in.wav" "$dir/x.wav" --format gsm > /dev/null 2>&1; [ $? = 1 ] || fail "gsm at 22050 Hz stereo"
"$tool" convert "$dir/in.wav" /nonexistent-dir/x.wav --format alaw > /dev/null 2>&1; [ $? = 1 ] || fail "unwritable output"
echo "convert tool: ok (ffmpeg $have_ffmpeg, sox $have_sox)"
