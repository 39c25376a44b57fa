# steps.sh: one line a step. Sourced by ./test, ./demo and .ci/run from the repository's root.
#
# A step's output goes to build/log/<name>.log, which is shown when the step fails; the script then ends.

# step NAME TEXT COMMAND...: runs the command quietly and says how it went.
step() {
    local log=build/log/$1.log text=$2 started=$SECONDS
    shift 2
    mkdir -p build/log
    printf '%-60s ' "$text"
    if "$@" >"$log" 2>&1 </dev/null; then
        printf 'ok (%d s)\n' $((SECONDS - started))
    else
        local status=$?
        printf 'FAILED (exit %d)\n' $status
        tail -n 200 "$log"
        printf '%s failed; the whole output is in %s\n' "$text" "$log"
        exit 1
    fi
}
