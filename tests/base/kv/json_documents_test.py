#!/usr/bin/env python3
"""json_documents_test.py TABLECAT: random documents through FromJson and ToJson, beside Python's json.

What Python writes is read and written again: the texts are the same but for floating numbers, whose values are. Damaged
documents are refused exactly where Python refuses them, but for what only one of the two takes (see differs).
"""
import json
import math
import random
import subprocess
import sys

TABLECAT = sys.argv[1]
random.seed(int(sys.argv[2]) if len(sys.argv) > 2 else 13)
ALPHABETS = ['ab', 'abc"\\/\b\f\n\r\t\x00\x1f\x7f', 'aé中\U0001f600￿\ud7ff', ''.join(map(chr, range(0x20, 0x7f)))]


def text():
    return ''.join(random.choices(random.choice(ALPHABETS), k=random.choice([0, 1, 5, 15, 16, 17, 22, 23, 40, 200])))


def number():
    return random.choice([
        lambda: random.randint(-9, 9), lambda: random.randint(-2**31 - 2, 2**31 + 2),
        lambda: random.randint(-2**63, 2**63), lambda: random.randint(2**63, 2**64 - 1),
        lambda: random.uniform(-1, 1), lambda: random.uniform(-1, 1) * 10**random.randint(-300, 300),
        lambda: float(random.randint(-10**17, 10**17)), lambda: random.choice([5e-324, 1.7976931348623157e308, -0.0]),
    ])()


def value(depth):
    kind = random.randrange(8 if depth else 5)
    if kind < 5:
        return [number, text, text, lambda: random.choice([True, False, None]), number][kind]()
    if kind == 5:
        return {text(): value(depth - 1) for _ in range(random.choice([0, 1, 3, 8, 30]))}
    one = random.choice([number, text, lambda: random.randint(-2**33, 2**33), lambda: random.randint(-9, 9),
                         random.random, lambda: []])
    many = random.choice([0, 1, 2, 5, 20])
    return [one() if kind == 6 else value(depth - 1) for _ in range(many)]


def tablecat(data, *options):
    done = subprocess.run([TABLECAT, *options], input=data, capture_output=True)
    return done.stdout if done.returncode == 0 else None


def shape(document):
    """The document with what Python's == does not tell apart: kinds of numbers, the order of members, -0.0. Integers
    beyond 64 bits are read as doubles."""
    if isinstance(document, dict):
        return [(key, shape(member)) for key, member in document.items()]
    if isinstance(document, list):
        return ['list'] + [shape(element) for element in document]
    if isinstance(document, float):
        return ('float', document, math.copysign(1, document))
    if isinstance(document, int) and not -2**63 <= document < 2**64:
        return shape(float(document))
    return (type(document).__name__, document)


def compare(document):
    for options in [(), ('--pretty',)]:
        source = json.dumps(document, ensure_ascii=random.random() < 0.5, indent=random.choice([None, 1])).encode()
        written = tablecat(source, *options)
        assert written is not None, source
        again = written.decode()
        assert shape(json.loads(again)) == shape(document), (source, written)
        separators = (',', ': ' if options else ':')
        whole = json.dumps(json.loads(again), ensure_ascii=False, indent=2 if options else None, separators=separators)
        if '.' not in whole and 'e' not in whole:
            assert whole + '\n' == again, (whole, again)
    return source


def constant(name):
    raise ValueError(name)


def differs(data, taken_by_python):
    """Lone surrogates, numbers beyond a double and depths beyond 512 are refused; Python takes them."""
    return b'\\u' in data or taken_by_python and 'inf' in repr(taken_by_python[0])


def damage(source):
    data = bytearray(source)
    for _ in range(random.choice([1, 1, 2])):
        at = random.randrange(len(data))
        data[at:at + random.choice([0, 1, 1, 2])] = random.choice(
            [b'', b'"', b'\\', b',', b'[', b'}', b'1', b'-', b'e', b'.', b'\xff', b'\xe4', b'\x00', b' ', b'null'])
        if not data:
            return
    data = bytes(data)
    try:
        expected = [json.loads(data.decode(), parse_constant=constant)]
    except ValueError:
        expected = []
    written = tablecat(data)
    if not differs(data, expected):
        assert (written is not None) == bool(expected), data
    if expected and written is not None:
        assert shape(json.loads(written)) == shape(expected[0]), data


for round_ in range(60):
    source = compare([value(4) for _ in range(6)])
    for _ in range(3):
        damage(source[:2000])
        damage(json.dumps(value(2)).encode())
