# steps.sh: one line a step. Sourced by ./test, ./demo and .ci/run from the repository's root.
#
# A step's output goes to build/log/<name>.log, which is shown when the step fails; the script then ends. On a terminal
# the line of a step that builds or tests tells how far it is.

# how_far TEXT LOG: shows every second how the log's last line counts itself, "[12/97]" or " 12/97 ".
how_far() {
    while sleep 1 && kill -0 $$ 2>/dev/null; do
        printf '\r%-60s %s' "$1" "$(tail -n 1 "$2" | grep -oE '[0-9]+/[0-9]+' | head -n 1)"
    done
}

# step NAME TEXT COMMAND...: runs the command quietly and says how it went.
step() {
    local log=build/log/$1.log text=$2 started=$SECONDS status=0 watcher='' again=''
    shift 2
    mkdir -p build/log
    printf '%-60s ' "$text"
    if [ -t 1 ]; then
        how_far "$text" "$log" &
        watcher=$! again=$(printf '\r\033[K%-60s ' "$text")
    fi
    "$@" >"$log" 2>&1 </dev/null || status=$?
    [ -z "$watcher" ] || { kill "$watcher"; wait "$watcher" || true; } 2>/dev/null
    if [ $status -eq 0 ]; then
        printf '%sok (%d s)\n' "$again" $((SECONDS - started))
    else
        printf '%sFAILED (exit %d)\n' "$again" $status
        tail -n 200 "$log"
        printf '%s failed; the whole output is in %s\n' "$text" "$log"
        exit 1
    fi
}
