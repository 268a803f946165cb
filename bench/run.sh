#!/usr/bin/env bash
# Runs every benchmark and prints each figure next to the reference it is judged against, with
# their ratio. Wall-clock figures on a shared machine swing by a factor of two; a figure and
# its reference measured in the same run swing together, so the ratio is what to compare
# between runs and machines.
#
#   bench/run.sh [--no-build] [--no-peers] [FILTER]
#
# Builds the benchmarks first (preset "default") unless --no-build. FILTER (a substring) runs
# only the benchmarks whose program name holds it. The peer programs a reference comes from
# (ffmpeg, gst-launch-1.0) are installed with apt-get when missing and run as commands, never
# linked; --no-peers leaves them out and judges against the built-in references only.
#
# How a benchmark adds itself: build it as a bench_* program in bench/CMakeLists.txt and have
# it print one line per figure:
#   figure: NAME | VALUE UNIT | REFERENCE | REFVALUE UNIT | higher
# ("higher" when more is better, else "lower"). Nothing here needs to change. The adapt_*
# functions below read the benchmarks that print for people only; a peer_* function measures
# a reference that comes from another program.
set -uo pipefail
cd "$(dirname "$0")/.."

build=1
peers=1
filter=""
for a in "$@"; do
    case "$a" in
        --no-build) build=0 ;;
        --no-peers) peers=0 ;;
        -h | --help) sed -n '2,21p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
        -*) echo "run.sh: unknown option $a" >&2; exit 2 ;;
        *) filter="$a" ;;
    esac
done

bin=build/default/bench
if [ $build -eq 1 ]; then
    export CCACHE_DIR="${CCACHE_DIR:-$HOME/.cache/ccache}"
    [ -f build/default/build.ninja ] || cmake --preset default >/dev/null || exit 1
    targets=$(cmake --build build/default --target help 2>/dev/null | sed -n 's/^\(bench_[A-Za-z0-9_]*\):.*/\1/p')
    # shellcheck disable=SC2086
    nice -n 10 cmake --build build/default -j "$(nproc)" --target $targets >/dev/null ||
        { echo "run.sh: the build failed" >&2; exit 1; }
fi

# ---- peers

have() { command -v "$1" >/dev/null 2>&1; }

install_peers() {
    local missing=()
    have ffmpeg || missing+=(ffmpeg)
    have gst-launch-1.0 || missing+=(gstreamer1.0-tools)
    [ ${#missing[@]} -eq 0 ] && return
    local sudo=""
    if [ "$(id -u)" -ne 0 ]; then
        have sudo || { echo "run.sh: not root; without ${missing[*]}" >&2; return; }
        sudo="sudo"
    fi
    echo "run.sh: installing ${missing[*]}" >&2
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends \
        "${missing[@]}" >/dev/null 2>&1 ||
        { $sudo apt-get update -qq >/dev/null 2>&1 &&
          DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends \
              "${missing[@]}" >/dev/null 2>&1; } ||
        echo "run.sh: could not install ${missing[*]}" >&2
}

now_ns() { date +%s%N; }

# Nanoseconds per element for a 4 KiB buffer pushed through one GStreamer identity element:
# a chain of 10 against none, so that the source, the sink and the start-up cancel out.
peer_gst_identity_ns() {
    have gst-launch-1.0 || return 1
    local n=200000 t0 t1 t2 chain=""
    for _ in $(seq 10); do chain="$chain ! identity"; done
    run_chain() {
        # shellcheck disable=SC2086
        gst-launch-1.0 -q fakesrc num-buffers=$n sizetype=fixed sizemax=4096 filltype=zero \
            $1 ! fakesink sync=false >/dev/null 2>&1
    }
    t0=$(now_ns); run_chain "" || return 1; t1=$(now_ns)
    run_chain "$chain" || return 1; t2=$(now_ns)
    awk -v a=$((t1 - t0)) -v b=$((t2 - t1)) -v n=$n 'BEGIN { printf "%.1f", (b - a) / (n * 10) }'
}

# Times real time of ffmpeg moving 48 kHz stereo 16-bit PCM to its null output: the job of
# the unpaced audio output.
peer_ffmpeg_pcm_speed() {
    have ffmpeg || return 1
    local seconds=600 t0 t1
    t0=$(now_ns)
    ffmpeg -nostdin -hide_banner -loglevel error -f lavfi \
        -i "sine=frequency=440:sample_rate=48000:duration=$seconds" -ac 2 -c:a pcm_s16le \
        -f null - || return 1
    t1=$(now_ns)
    awk -v s=$seconds -v ns=$((t1 - t0)) 'BEGIN { printf "%.1f", s / (ns / 1e9) }'
}

gst_ns=""
ffmpeg_speed=""
if [ $peers -eq 1 ]; then
    install_peers
    gst_ns=$(peer_gst_identity_ns) || gst_ns=""
    ffmpeg_speed=$(peer_ffmpeg_pcm_speed) || ffmpeg_speed=""
fi

# ---- adapters: the output of a benchmark that prints for people, turned into figure lines

adapt_bench_media_base_senddata() {
    awk '$1 ~ /KiB$/ || $2 == "KiB" {
        printf "figure: SendData, %s %s samples | %s MB/s | memcpy of the same size | %s MB/s | higher\n",
            $1, $2, $3, $4 }'
}

adapt_bench_audio_out_cpu() {
    awk '$1 ~ /^[0-9]+$/ && NF >= 4 {
        printf "figure: CPU of paced playback, %s ms buffers | %s ms/s | one core in real time | 1000 ms/s | lower\n",
            $1, $4 }'
}

adapt_bench_audio_out_throughput() {
    awk -v peer="$ffmpeg_speed" '$1 ~ /^[0-9]+$/ && NF >= 4 {
        if (peer != "")
            printf "figure: unpaced output, %s ms buffers | %s x real time | ffmpeg PCM to its null output | %s x real time | higher\n", $1, $4, peer
        else
            printf "figure: unpaced output, %s ms buffers | %s x real time | real time | 1 x real time | higher\n", $1, $4 }'
}

adapt_bench_wire_dispatch() {
    awk -v peer="$gst_ns" -F: '/ns per hop/ {
        name = $1; sub(/^ +/, "", name); split($2, v, " ")
        if (peer != "")
            printf "figure: wire dispatch, %s | %s ns/hop | GStreamer identity, 4 KiB buffers | %s ns/hop | lower\n", name, v[1], peer
        else
            printf "figure: wire dispatch, %s | %s ns/hop | (GStreamer not installed) | - | lower\n", name, v[1] }'
}

adapt_bench_wave_done_lateness() {
    # "NAME buffers N  median X us  p99 Y us  max Z us", judged against the 10 ms buffer.
    awk '/median/ {
        for (i = 1; i <= NF; ++i) {
            if ($i == "buffers") { name = ""; for (j = 1; j < i; ++j) name = name (j > 1 ? " " : "") $j }
            if ($i == "median") med = $(i + 1)
            if ($i == "p99") p99 = $(i + 1)
        }
        printf "figure: WOM_DONE lateness median, %s | %s us | one 10 ms buffer | 10000 us | lower\n", name, med
        printf "figure: WOM_DONE lateness p99, %s | %s us | one 10 ms buffer | 10000 us | lower\n", name, p99 }'
}

# Google Benchmark programs: their times, without a reference of their own.
adapt_google_benchmark() {
    awk -F, 'NR > 1 && $1 != "" && $1 !~ /^name/ {
        gsub(/"/, "", $1)
        printf "figure: %s | %s %s | - | - | lower\n", $1, $3, $5 }'
}

# ---- run

figures=$(mktemp)
trap 'rm -f "$figures"' EXIT
ran=0
for prog in "$bin"/bench_*; do
    [ -x "$prog" ] || continue
    name=$(basename "$prog")
    [ -n "$filter" ] && [[ "$name" != *"$filter"* ]] && continue
    ran=$((ran + 1))
    echo "run.sh: $name" >&2
    if "$prog" --help 2>&1 | grep -q -- "--benchmark_filter"; then
        adapter=adapt_google_benchmark
        out=$("$prog" --benchmark_format=csv --benchmark_min_time=0.2 2>/dev/null)
    else
        adapter="adapt_$name"
        out=$("$prog" 2>&1)
    fi
    status=$?
    if [ $status -ne 0 ]; then
        echo "figure: $name failed (exit $status) | - | - | - | -" >>"$figures"
        continue
    fi
    lines=$(grep '^figure:' <<<"$out")
    if [ -z "$lines" ] && declare -F "$adapter" >/dev/null; then
        lines=$("$adapter" <<<"$out")
    fi
    if [ -z "$lines" ]; then
        echo "figure: $name printed no figure | - | - | - | -" >>"$figures"
    else
        echo "$lines" >>"$figures"
    fi
done
[ $ran -eq 0 ] && { echo "run.sh: no benchmark programs in $bin (build them, or drop --no-build)" >&2; exit 1; }

# One table: the ratio is the figure over its reference; "better" says which way is good.
sed 's/^figure: *//' "$figures" | awk -F'|' '
    function trim(s) { sub(/^ +/, "", s); sub(/ +$/, "", s); return s }
    {
        name = trim($1); value = trim($2); ref = trim($3); refValue = trim($4); better = trim($5)
        split(value, v, " "); split(refValue, r, " ")
        ratio = "-"
        if (v[1] ~ /^[0-9.eE+-]+$/ && r[1] ~ /^[0-9.eE+-]+$/ && r[1] + 0 != 0)
            ratio = sprintf("%.3f", v[1] / r[1])
        printf "%-58s %18s  %-40s %18s  %8s  %s\n", name, value, ref, refValue, ratio,
            better == "higher" ? "(higher is better)" : better == "lower" ? "(lower is better)" : ""
    }' | {
    printf "%-58s %18s  %-40s %18s  %8s\n" "figure" "value" "judged against" "reference" "ratio"
    cat
}
