#!/usr/bin/env bash
# What tablecat promises: every form into every other and back, valid JSON, positions of what is malformed, exit codes.
#
#   tests/examples/tablecat_test.sh PROGRAM
set -uo pipefail
. "$(dirname "$0")/expect.sh"

expect 0 '{"a":1,"b":[1,2],"c":{"d":"x"}}\n' ' {"a": 1, "b": [1,2], "c": {"d": "x"}}'
expect 0 '{\n  "a": 1,\n  "b": [\n    1,\n    2\n  ]\n}\n' '{"a":1,"b":[1,2]}' --pretty
expect 0 '{"q":"a\\"b\\\\\\n","\\"":1}\n' '{"q":"a\\"b\\\\\\u000a","\\"":1}'
expect 0 '[{},[1],[],null,true]\n' '[{},[1],[],null,true]' -t json
expect 0 '\x20\0\0\0\0\1\x64\0\1k\5\0\0\0\3' '{"k":3}' -t dump
expect 0 '[65,null,["ff","1"],18446744073709551615]\n' \
    '\x20\0\0\0\0\4\0\1A\0\x0e\x7f\xc0\0\0\0\x1f\0\2\0\2ff\0\1\x31\0\x0d\377\377\377\377\377\377\377\377' -f dump
expect 0 'a.b = 1\na."c.d" = [1,2]\nt = plain text\nn = "12"\nq = "\\"x"\ne = ""\n' \
    '{"a":{"b":1,"c.d":[1,2]},"t":"plain text","n":"12","q":"\\"x","e":""}' -t pairs
expect 0 '{"a":{"b":"x = y"},"k":{"=.":2}}\n' '# comment\n\n a . b =  x = y \r\nk."=." = 2' -f pairs
expect 0 '= [1]\n' '= [1]\n' -f pairs -t pairs

expect 1 'tablecat: malformed json: byte 7: no JSON from here on\n' '{"a":1,}'
expect 1 'tablecat: malformed json: byte 3: the text ends early\n' '[1,'
expect 1 'tablecat: malformed json: byte 512: no JSON from here on\n' "$(printf '[%.0s' {1..600})"
expect 1 'tablecat: malformed dump: damaged or cut off\n' '\x20\0\0\0\0\1\x64\0\1k\5\0\0\0' -f dump
expect 1 'tablecat: malformed dump: byte 1: more bytes behind the value\n' '\x1e\0' -f dump
expect 1 'tablecat: malformed dump: a pointer, which has no text\n' '\x09\4\0\0\0\1' -f dump
expect 1 'tablecat: malformed pairs: byte 6: a line without =\n' 'a = 1\nb\n' -f pairs
expect 1 'tablecat: malformed pairs: byte 0: a key that is quoted wrongly\n' '"a\\x" = 1\n' -f pairs
expect 1 'tablecat: malformed pairs: byte 0: a key that is quoted wrongly\n' '"a"b = 1\n' -f pairs
expect 1 'tablecat: malformed pairs: byte 6: nested too deep\n' "a = 1\\n$(printf 'a.%.0s' {1..512})a = 1" -f pairs
expect 2 'tablecat: no such option or form; see tablecat --help\n' '' --to xml
expect 3 'tablecat: /no/such/file: No such file or directory\n' '' /no/such/file

# Through all forms and back nothing changes; the summary tells what was there.
json='{"a":1,"b":-2.5,"text":"two words","quoted":"a \"quoted\" one","empty":"","list":["x","y"],"rows":[{"k":1},{"k":"v"}],"deep":{"er":{"est":{}}}}'
for form in json dump pairs; do
    same=$("$program" -t $form 2>/dev/null <<<"$json" | "$program" -f $form -t pairs 2>/dev/null | "$program" -f pairs 2>&1)
    [ "$same" = "$json
tablecat: 14 entries, depth 4, $((${#json} + 1)) bytes of json from $("$program" -t pairs <<<"$json" 2>/dev/null | wc -c) bytes of pairs" ] || {
        printf 'through %s: %s\n' $form "$same"
        failed=1
    }
done
exit $failed
