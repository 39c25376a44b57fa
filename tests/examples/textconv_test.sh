#!/usr/bin/env bash
# What textconv promises: round trips, positions of what is malformed, and its exit codes.
#
#   tests/examples/textconv_test.sh PROGRAM
set -uo pipefail
. "$(dirname "$0")/expect.sh"

malformed() { printf "textconv: byte $1: malformed $2"; [ -z "${3:-}" ] || printf ', or a character without counterpart in %s' "$3"; }

expect 0 'a\xd6\xd0\x94\x39\xfc\x36\n' 'a中😀\n' --to gb18030
expect 0 'a中\n' 'a\xd6\xd0\n' --from gb18030
expect 0 '-N' '中' --to units
expect 0 '中' '-N' --from units
expect 0 '5Lit5paH' '中文' --encode
expect 0 '中文' '5Lit\r\n5paH\n' -d
expect 0 '1 lines, 4 characters, 5 columns, 8 bytes\n' 'a中文\n' --count
expect 0 '1 lines, 4 characters, 5 columns, 8 bytes\n' 'a\xd6\xd0\xce\xc4\n' --count --from gb18030

expect 1 "ab$(malformed 2 utf8 gb18030)\n" 'ab\xff\xff' --to gb18030
expect 1 "中$(malformed 2 gb18030 utf8)\n" '\xd6\xd0\xd6' --from gb18030
expect 1 "$(malformed 0 utf8 units)\n" '😀' --to units
expect 1 "中$(malformed 2 units utf8)\n" '-N-' --from units
expect 1 "中文$(malformed 9 Base64)\n" '5Lit\n5paH-' --decode
expect 1 "$(malformed 1 utf8)\n" 'a\xc0\x80' --count
expect 2 'textconv: no such conversion; see textconv --help\n' '' --to latin1
expect 3 'textconv: /no/such/file: No such file or directory\n' '' --to gb18030 /no/such/file

# Longer than a piece, with a character across every boundary.
for start in a ab abc; do
    text=$start$(printf '中%.0s' {1..50000})
    cmp <("$program" -t gb18030 <<<"$text") <(iconv -f UTF-8 -t GB18030 <<<"$text") || failed=1
    cmp <("$program" -t gb18030 <<<"$text" | "$program" -e | "$program" -d | "$program" -f gb18030) <(echo "$text") ||
        failed=1
done
for length in 0 7 8 9 1000; do
    same=$(head -c $length "$program" | "$program" -s key | "$program" -u key | cmp - <(head -c $length "$program") && echo yes)
    [ "$same" = yes ] || { echo "scrambling $length bytes and back changes them"; failed=1; }
done
exit $failed
