#!/usr/bin/env bash
# Runs the benchmark programs, several rounds of each, and makes docs/performance.md of the figures.
# usage: run.sh BUILD_DIRECTORY [ROUNDS]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=$(realpath "$1")
readonly build rounds=${2:-5}
readonly programs=$build/programs results=$build/results

rm -rf "$results"
mkdir -p "$results"
# java_list_bench RESULTS: the library for Java beside Jackson.
java_list_bench() {
    java -cp "$build/bindings/java/kestrin-profile.jar:/usr/share/java/jackson-databind.jar:/usr/share/java/jackson-core.jar:/usr/share/java/jackson-annotations.jar" \
        -Dkestrin.profile.library="$build/bindings/java/libkestrin_profile_jni.so" \
        bench/java/ListBench.java examples/config.json "$1"
}

# turns PROGRAM: peers run by turns, because a clock swings by more than they differ, and the median counts. A
# journal costs less still, so there are more turns.
turns() {
    local repetitions
    case $1 in
        cpprest_bench | dates_bench | decode_bench | http_bench | request_*bench | text_bench) repetitions=7 ;;
        server_bench) repetitions=15 ;;
        *) return 0 ;;
    esac
    echo --benchmark_repetitions=$repetitions --benchmark_enable_random_interleaving=true \
        --benchmark_report_aggregates_only=true
}

# A round runs every program once, so that peers in different programs meet the same minute.
for round in $(seq "$rounds"); do
    for program in "$programs"/*_bench; do
        name=$(basename "$program")
        echo "round $round of $rounds: $name"
        # shellcheck disable=SC2046
        "$program" --benchmark_min_time=0.1 $(turns "$name") --benchmark_out_format=json \
            --benchmark_out="$results/$name.$round.json" >/dev/null 2>"$results/$name.log" ||
            { cat "$results/$name.log" >&2; exit 1; }
    done
    java_list_bench "$results/java_list_bench.$round.json"
done

"$programs/decode_damage" >"$results/damage.json"
# instructions PROGRAM ARGUMENT…: what callgrind counts while the program wants it.
instructions() {
    valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file=/dev/null "$programs/$1" "${@:2}" 2>&1 |
        sed -n 's/.*Collected : //p'
}
for layer in KestrinProfile KestrinHousehold KestrinC; do
    count=$(instructions session_instructions "$layer")
    printf '%s\t%s\n' "$layer" "$count"
done >"$results/session_instructions.tsv"
for decoder in KestrinProfile nlohmann-json "Boost.JSON DOM, monotonic" "RapidJSON DOM" \
    "copying the record"; do
    # simdjson chooses instructions that valgrind does not know.
    count=$(instructions decode_instructions "$decoder" 1000)
    printf '%s\t%s\n' "$decoder" "$count"
done >"$results/instructions.tsv"

python3 bench/report/report.py "$results" docs
