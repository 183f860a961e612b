#!/usr/bin/env bash
# Scans one tree with brenvo-cli and with peer disk-usage tools, side by side:
# median wall time, user+sys CPU time and peak RSS over RUNS runs each.
#
#   bench/peers.sh [--cold] TREE [BRENVO_CLI]
#
#   TREE        folder to scan (e.g. one written by make-tree)
#   BRENVO_CLI  brenvo-cli binary (default: build/release/src/app/brenvo-cli
#               under the source tree)
#   --cold      drop the page cache before every timed run (root only);
#               without it one untimed `du -s` warms the cache first
#   RUNS=N      runs per tool (default 3)
set -euo pipefail

usage() {
    sed -n '2,13p' "$0" | sed 's/^# \{0,1\}//' >&2
    exit 2
}

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cold=0
positional=()
for arg in "$@"; do
    case $arg in
    --cold) cold=1 ;;
    -h | --help) usage ;;
    -*) echo "peers.sh: unknown option $arg" >&2; usage ;;
    *) positional+=("$arg") ;;
    esac
done
[[ ${#positional[@]} -ge 1 && ${#positional[@]} -le 2 ]] || usage
tree=${positional[0]}
cli=${positional[1]:-$(dirname "$here")/build/release/src/app/brenvo-cli}
runs=${RUNS:-3}
[[ $runs =~ ^[1-9][0-9]*$ ]] || { echo "peers.sh: RUNS must be a positive integer" >&2; exit 2; }
[[ -d $tree ]] || { echo "peers.sh: $tree is not a folder" >&2; exit 2; }

timer=/usr/bin/time
if [[ ! -x $timer ]]; then
    if [[ $(id -u) -eq 0 ]] && command -v apt-get >/dev/null; then
        echo "peers.sh: installing GNU time ..." >&2
        apt-get install -y -qq time >/dev/null || { apt-get update -qq >/dev/null && apt-get install -y -qq time >/dev/null; }
    fi
    [[ -x $timer ]] || { echo "peers.sh: $timer is missing: install the Debian package 'time' (apt-get install time)" >&2; exit 1; }
fi

drop_caches() {
    sync
    echo 3 >/proc/sys/vm/drop_caches 2>/dev/null
}
if ((cold)); then
    if [[ $(id -u) -ne 0 ]] || ! drop_caches; then
        echo "peers.sh: cannot drop the page cache (needs root and a writable /proc/sys); measuring with a warm cache instead" >&2
        cold=0
    fi
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# name | command. Each command must walk and size the whole tree:
#  - du -s sums every entry and prints only the total.
#  - gdu -n (non-interactive) still builds its complete in-memory tree before
#    printing the top-level listing; -p hides progress, -c colours. Exporting
#    with -o would add JSON encoding on top, so -n is the fairer twin of a scan.
#  - ncdu 1.x -o streams its export while walking, so it never holds the tree
#    in memory: its peak RSS is not comparable to an in-memory scanner's.
#    -0 turns off the scan progress UI.
names=(brenvo-cli du gdu ncdu)
cmds=(
    "$cli scan $tree"
    "du -s $tree"
    "gdu -n -p -c $tree"
    "ncdu -0 -o /dev/null $tree"
)
argv_of() {
    case $1 in
    brenvo-cli) argv=("$cli" scan "$tree") ;;
    du) argv=(du -s "$tree") ;;
    gdu) argv=(gdu -n -p -c "$tree") ;;
    ncdu) argv=(ncdu -0 -o /dev/null "$tree") ;;
    esac
}

median() { sort -g | awk '{v[NR] = $1} END {if (NR == 0) exit; print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

if ((!cold)); then
    du -s "$tree" >/dev/null 2>&1 || true
fi

echo "tree: $tree   runs: $runs   cache: $( ((cold)) && echo cold || echo warm)"
declare -A wall cpu peak status
for i in "${!names[@]}"; do
    name=${names[$i]}
    argv_of "$name"
    if [[ $name == brenvo-cli ]]; then
        if [[ ! -x $cli ]]; then status[$name]="not built"; continue; fi
    elif ! command -v "$name" >/dev/null; then
        status[$name]="not installed"
        continue
    fi
    : >"$work/$name.runs"
    note=""
    for ((r = 1; r <= runs; r++)); do
        if ((cold)); then drop_caches || true; fi
        rc=0
        "$timer" -f '%e %U %S %M' -o "$work/time" "${argv[@]}" >/dev/null 2>"$work/stderr" || rc=$?
        # GNU time prefixes its record with a note when the command fails.
        record=$(grep -E '^[0-9.]+ [0-9.]+ [0-9.]+ [0-9]+$' "$work/time" | tail -n 1 || true)
        if [[ -z $record ]]; then
            note="no timing: $(head -n 1 "$work/time" "$work/stderr" 2>/dev/null | grep -v '^==>' | head -n 1 | cut -c1-60)"
            echo "  $name run $r: $note"
            continue
        fi
        echo "$record" >>"$work/$name.runs"
        if ((rc)); then note="exit $rc: $(head -n 1 "$work/stderr" | cut -c1-60)"; fi
        awk -v n="$name" -v r="$r" -v rc="$rc" '{
            printf "  %-10s run %d: wall %6.2f s  cpu %6.2f s  peak %7.1f MiB%s\n",
                   n, r, $1, $2 + $3, $4 / 1024, rc ? "  (exit " rc ")" : ""
        }' <<<"$record"
    done
    if [[ ! -s $work/$name.runs ]]; then status[$name]=$note; continue; fi
    wall[$name]=$(awk '{print $1}' "$work/$name.runs" | median)
    cpu[$name]=$(awk '{print $2 + $3}' "$work/$name.runs" | median)
    peak[$name]=$(awk '{print $4 / 1024}' "$work/$name.runs" | median)
    status[$name]=$note
done

ratio() {  # ratio VALUE BASE
    if [[ -n ${1:-} && -n ${2:-} ]] && awk -v b="$2" 'BEGIN {exit !(b > 0)}'; then
        awk -v a="$1" -v b="$2" 'BEGIN {printf(a / b < 0.1 ? "%.3f" : "%.2f", a / b)}'
    else
        echo "n/a"
    fi
}

echo
printf '%-11s %8s %8s %10s %9s %9s  %s\n' tool "wall s" "cpu s" "peak MiB" wall/gdu peak/gdu note
for i in "${!names[@]}"; do
    name=${names[$i]}
    if [[ -z ${wall[$name]:-} ]]; then
        printf '%-11s %8s %8s %10s %9s %9s  %s\n' "$name" - - - - - "${status[$name]}"
        continue
    fi
    printf '%-11s %8.2f %8.2f %10.1f %9s %9s  %s\n' "$name" "${wall[$name]}" "${cpu[$name]}" "${peak[$name]}" \
        "$(ratio "${wall[$name]}" "${wall[gdu]:-}")" "$(ratio "${peak[$name]}" "${peak[gdu]:-}")" "${status[$name]}"
done
echo
echo "commands (medians of $runs runs; cpu = user + sys; peak = max RSS):"
for i in "${!names[@]}"; do printf '  %-10s %s\n' "${names[$i]}" "${cmds[$i]}"; done
