#!/usr/bin/env bash
# Times whole processes, Quillon beside keepassxc-cli, on the same files: makes 1,000 / 10,000 / 50,000-entry
# databases with our own writer (light Argon2id, so the codec is what is measured), re-saves each with
# `keepassxc-cli db-edit` so that both programs read a file KeePassXC wrote, then times opening and
# opening+saving with hyperfine and measures peak RSS with /usr/bin/time -v. Also runs, in process on the
# largest file, the floor under opening (inflate + pugixml parse) beside the codec's open, and the two halves
# of a save: encoding (what a window's thread waits for) and the check that commit runs off that thread.
#   bench/compare-peers.sh [SIZES...]        default: 1000 10000 50000
# Needs a build with benchmarks (scripts/build; this script builds nothing, so a build directory configured
# for CI keeps its flags), hyperfine, keepassxc-cli and GNU time.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUILLON_BUILD_DIR:-$root/build}
work=${QUILLON_BENCH_DIR:-$build/bench-peers}
runs=${QUILLON_BENCH_RUNS:-10}
sizes=("$@")
[ ${#sizes[@]} -eq 0 ] && sizes=(1000 10000 50000)
password=bench
export QT_QPA_PLATFORM=offscreen

maker=$build/bench/tools/make_bench_kdbx
for program in "$maker" "$build/bench/bench_open_floor" "$build/app/quillon-cli"; do
    [ -x "$program" ] || { echo "missing $program: build it first (scripts/build)" >&2; exit 2; }
done
# quillon-cli backs a file up before its first save, into the data folder: keep those backups in here.
export XDG_DATA_HOME=$work/data
open_cmd() { echo "'$build/app/quillon-cli' stats --password-stdin '$1' < '$work/pw'"; }
# Both programs re-save by setting the same password again; each run starts from a fresh copy.
save_cmd() { echo "'$build/app/quillon-cli' db-edit --password-stdin --set-password '$1' < '$work/pw2'"; }
kx_info() { echo "keepassxc-cli db-info -q '$1' < '$work/pw'"; }
kx_edit() { echo "keepassxc-cli db-edit -q -p '$1' < '$work/pw3'"; }

mkdir -p "$work"
printf '%s\n' "$password" >"$work/pw"
printf '%s\n%s\n' "$password" "$password" >"$work/pw2"
printf '%s\n%s\n%s\n' "$password" "$password" "$password" >"$work/pw3"

peak_rss() { # prints the peak RSS in MiB of one run of the command
    /usr/bin/time -v bash -c "$1" 2>&1 >/dev/null | awk '/Maximum resident set size/ {printf "%.1f", $6 / 1024}'
}

median_ms() { # hyperfine's JSON → median in ms
    python3 -c 'import json,sys; print("%.1f" % (json.load(open(sys.argv[1]))["results"][0]["median"] * 1000))' "$1"
}

printf '\n| entries | file | open: quillon | open: keepassxc-cli db-info | ratio | open+save: quillon | open+save: keepassxc-cli db-edit | ratio | peak RSS open: quillon | peak RSS open: keepassxc-cli | ratio | peak RSS open+save: quillon | peak RSS open+save: keepassxc-cli | ratio |\n'
printf '|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n'
for n in "${sizes[@]}"; do
    db=$work/db-$n.kdbx
    "$maker" "$n" "$db" "$password" >/dev/null
    # KeePassXC writes the file both programs read (same password, same light KDF).
    eval "$(kx_edit "$db")" >/dev/null
    cp "$db" "$work/edit-$n.kdbx"
    size=$(du -h "$db" | cut -f1)

    hyperfine --style none --warmup 1 --runs "$runs" --export-json "$work/open-q-$n.json" "$(open_cmd "$db")" >/dev/null
    hyperfine --style none --warmup 1 --runs "$runs" --export-json "$work/open-k-$n.json" "$(kx_info "$db")" >/dev/null
    hyperfine --style none --warmup 1 --runs "$runs" --export-json "$work/save-q-$n.json" \
        --prepare "cp '$db' '$work/edit-$n.kdbx'" "$(save_cmd "$work/edit-$n.kdbx")" >/dev/null
    hyperfine --style none --warmup 1 --runs "$runs" --export-json "$work/save-k-$n.json" \
        --prepare "cp '$db' '$work/edit-$n.kdbx'" "$(kx_edit "$work/edit-$n.kdbx")" >/dev/null
    oq=$(median_ms "$work/open-q-$n.json"); ok=$(median_ms "$work/open-k-$n.json")
    sq=$(median_ms "$work/save-q-$n.json"); sk=$(median_ms "$work/save-k-$n.json")
    rq=$(peak_rss "$(open_cmd "$db")"); rk=$(peak_rss "$(kx_info "$db")")
    cp "$db" "$work/edit-$n.kdbx"; rsq=$(peak_rss "$(save_cmd "$work/edit-$n.kdbx")")
    cp "$db" "$work/edit-$n.kdbx"; rsk=$(peak_rss "$(kx_edit "$work/edit-$n.kdbx")")
    ratio() { python3 -c "print('%.2f' % ($1 / $2))"; }
    printf '| %s | %s | %s ms | %s ms | %s | %s ms | %s ms | %s | %s MiB | %s MiB | %s | %s MiB | %s MiB | %s |\n' \
        "$n" "$size" "$oq" "$ok" "$(ratio "$oq" "$ok")" "$sq" "$sk" "$(ratio "$sq" "$sk")" \
        "$rq" "$rk" "$(ratio "$rq" "$rk")" "$rsq" "$rsk" "$(ratio "$rsq" "$rsk")"
done

last=${sizes[${#sizes[@]}-1]}
printf '\nIn-process, %s entries (median of repetitions):\n' "$last"
QUILLON_BENCH_FILE=$work/db-$last.kdbx QUILLON_BENCH_PASSWORD=$password "$build/bench/bench_open_floor" \
    --benchmark_repetitions=5 --benchmark_report_aggregates_only=true 2>/dev/null | grep -E 'median|Benchmark'
