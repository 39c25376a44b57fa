#!/usr/bin/env bash
# What fsm_graph promises: the graph with the path taken, the machine's own findings, and lines that name what is
# malformed.
#
#   tests/examples/fsm_graph_test.sh PROGRAM
set -uo pipefail
. "$(dirname "$0")/expect.sh"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
# machine LINES: writes the machine that is run next.
machine() { printf "$1" >m; }
begin='digraph machine {\n    rankdir=LR;\n    node [shape=box, style=rounded];\n'

# The initial state, a rule that is taken twice, one for a range, one of all states, and an unconditional move.
machine '# doors\n- open 0x10 -> a\na open 1..3 -> =\n* shut * -> b\nb -> a\n'
expect 0 "$begin"'    "-" [label="", shape=circle, width=0.3];
    "a" [label="a", style="rounded,filled", fillcolor=lightyellow, color=red];
    "b" [label="b"];
    "*" [label="any state", style="rounded,dashed"];
    "-" -> "a" [label="open 0x10\\n1", color=red, fontcolor=red, penwidth=2];
    "a" -> "a" [label="open 1..3\\n2, 3", color=red, fontcolor=red, penwidth=2];
    "*" -> "b" [label="shut", style=dashed];
    "a" -> "b" [label="shut\\n5", style=dashed, color=red, fontcolor=red, penwidth=2];
    "b" -> "a" [label="always\\n5", style=dotted, color=red, fontcolor=red, penwidth=2];
}
' 'open 16\nopen 1\n\n# again\nopen 3\nopen 4\nshut\n' m
machine 'a 1 * -> "x"\na * * -> -\n'
expect 0 "$begin"'    "-" [label="", shape=circle, width=0.3, style="rounded,filled", fillcolor=lightyellow, color=red];
    "a" [label="a"];
    "\\"x\\"" [label="\\"x\\"?", style=dotted];
    "a" -> "\\"x\\"" [label="1"];
    "a" -> "-" [label="*"];
}
' '' m

# On standard error: what the inspection finds, what nothing comes of, and where it ends.
heard=$("$program" m <<<'go 1' 2>&1 >/dev/null)
[ "$heard" = 'fsm_graph: a ----(0x1)--->"x"(该转移状态不存在)
fsm_graph: a定义后未被实际引用，可能是个潜在错误
fsm_graph: -:1: nothing happens in state -
fsm_graph: 1 events, ends in state -' ] || { printf 'heard:\n%s\n' "$heard"; failed=1; }

# malformed WHAT LINES: the last of the lines is named.
malformed() {
    machine "$2"
    expect 1 "fsm_graph: m:$(printf "$2" | wc -l): $1\n" '' m
}
malformed 'neither a state nor a rule' 'a\n\na b\n'
malformed 'a rule without ->' 'a b 1 c d\n'
malformed 'not a state: =' '= b 1 -> c\n'
malformed 'not a value or a range: 1..x' 'a b 1..x -> c\n'
malformed '* for any other event is of one state, and for any value' '# no such rule\n* * * -> c\n'
malformed 'an unconditional move is of one state' '* -> c\n'
machine 'a\n'
for event in 'x y' 'x 1 2'; do
    said=$("$program" m <<<"$event" 2>&1) && failed=1
    [[ $said == *'fsm_graph: -:1: '* ]] || { echo "$said"; failed=1; }
done
expect 2 'fsm_graph: one machine; see fsm_graph --help\n' ''
expect 3 'fsm_graph: /no/such/file: No such file or directory\n' '' /no/such/file

# Drawn where dot is installed, which is noted otherwise.
said=$("$program" -o drawn.svg m <<<'' 2>&1 >/dev/null)
if command -v dot >/dev/null; then
    grep -q '<svg' drawn.svg || { echo "dot drew nothing: $said"; failed=1; }
else
    [[ $said == *'dot is not installed: no drawn.svg' ]] || { echo "$said"; failed=1; }
fi
exit $failed
