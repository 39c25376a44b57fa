# expect.sh PROGRAM, read by the tests of the examples.
program=$1
failed=0
exec 3>/dev/null

# expect CODE OUTPUT INPUT OPTION...: runs the program on the bytes (printf's notation) and compares what it writes; of
# a failure also its message.
expect() {
    local code=$1 wanted=$2 input=$3 heard=1 said status
    shift 3
    [ "$code" = 0 ] && heard=3
    said=$(printf -- "$input" | "$program" "$@" 2>&$heard | od -An -c; exit "${PIPESTATUS[1]}")
    status=$?
    wanted=$(printf -- "$wanted" | od -An -c)
    [ "$status" = "$code" ] && [ "$said" = "$wanted" ] && return
    printf '%s of "%s"\n  exits %s with\n%s\n  not %s with\n%s\n' "$*" "$input" "$status" "$said" "$code" "$wanted"
    failed=1
}
