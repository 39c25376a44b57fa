#!/usr/bin/env bash
# What traffic_light promises: nine lights in their order, read back from its log, and its exit codes.
#
#   tests/examples/traffic_light_test.sh PROGRAM
set -uo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

said=$("$1" "$work" 2>&1) || { printf 'exits %s with\n%s\n' $? "$said"; exit 1; }
lights=$(sed -n 's/^   [0-9][0-9:. ]*  \([a-z].*\)/\1/p' <<<"$said" | paste -sd,)
round='red,red and amber,green,amber'
[ "$lights" = "$round,$round,red" ] || { printf 'says\n%s\n' "$said"; exit 1; }
"$1" 2>/dev/null && exit 1
[ $? = 2 ]
