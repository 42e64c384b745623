# Timing helpers of the bench scripts, sourced by them. A command timed or measured writes its
# standard error to run.err in the current folder; a command that fails stops the bench there.

# Elapsed seconds of a command, to the millisecond, timed around the command itself so that no
# wrapper's start is counted.
elapsed() {
    local start end
    start=$EPOCHREALTIME
    "$@" >/dev/null 2>run.err || {
        echo "failed: $*" >&2
        cat run.err >&2
        exit 1
    }
    end=$EPOCHREALTIME
    awk "BEGIN{printf \"%.3f\", $end - $start}"
}

# The smaller of the best time so far (empty at first) and a new time.
least() {
    if [ -z "$1" ] || awk "BEGIN{exit !($2 < $1)}"; then echo "$2"; else echo "$1"; fi
}

best_of() { # count prepare command...: the smallest elapsed time of count runs of both
    local runs=$1 prepare=$2 best=""
    shift 2
    for _ in $(seq "$runs"); do
        $prepare
        best=$(least "$best" "$(elapsed "$@")")
    done
    echo "$best"
}

# Peak resident kilobytes of a command, the most of three runs of "prepare; command": how many
# worker threads take a share of a small table, and so how many buffers are touched, varies
# from run to run.
peak_kb() { # prepare command...
    local prepare=$1 most=0 kb
    shift
    for _ in 1 2 3; do
        $prepare
        /usr/bin/time -f "%M" -o time.out "$@" >/dev/null 2>run.err || {
            echo "failed: $*" >&2
            cat run.err >&2
            exit 1
        }
        kb=$(cat time.out)
        if [ "$kb" -gt "$most" ]; then most=$kb; fi
    done
    echo "$most"
}

ratio() { awk "BEGIN{printf \"%.2f\", $1 / $2}"; }
