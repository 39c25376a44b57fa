#!/usr/bin/env python3
"""tree.py: checks of the tree that no compiler makes. Each prints what is wrong and exits 1, or prints nothing.

tree.py exports LIBRARY   the shared object, src/exports.map and the headers that tq4.h includes name the same symbols;
                          the shared object has the name that programs were linked with;
                          a header is included when the library exports all that it declares, and not before
tree.py built DATABASE    a target builds every source file (DATABASE: compile_commands.json)
tree.py floors            a file includes only from its own floor or from below (src/floors.txt)
tree.py faults OBJECTS    tests can make every system call of the platform fail (OBJECTS: the library's object files)
tree.py compatibility     docs/compatibility.md names every file that calls behaviour deliberate
tree.py version VERSION   the headers, CMake (VERSION) and the first heading of CHANGELOG.md name the same version
tree.py slots             the slots of every operation table that tq4.h offers stand where tests/checks/slots.txt records them
"""
import fnmatch
import json
import re
import subprocess
import sys
import zlib
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
HEADERS = sorted((ROOT / 'include').rglob('*.h'))
WHOLE = ROOT / 'include/tq4/tq4.h'
OFFERED = [ROOT / 'include' / name for name in re.findall(r'#include "([^"]+)"', WHOLE.read_text())]


def code(path):
    """A file's text without comments and preprocessor lines."""
    return re.sub(r'/\*.*?\*/|//[^\n]*|^#(\\\n|[^\n])*', '', path.read_text(), flags=re.S | re.M)


def declared(header):
    """The symbols that a header offers to programs."""
    return set(re.findall(r'TQ4_API\s[^;(]*?(\w+)\s*[;(]', code(header)))


def check_exports(library):
    listed = re.search(r'global:(.*)local:', re.sub('#.*', '', (ROOT / 'src/exports.map').read_text()), re.S)
    exported = {line.split()[-1] for line in subprocess.run(
        ['nm', '-D', '--defined-only', library], check=True, capture_output=True, text=True).stdout.splitlines()}
    names = {
        'src/exports.map': set(re.findall(r'\w+', listed[1])),
        'what tq4.h includes': set().union(*map(declared, OFFERED)),
        'the shared object': exported,
    }
    for symbol in sorted(set.union(*names.values())):
        absent = [where for where, symbols in names.items() if symbol not in symbols]
        if absent:
            yield f'{symbol} is not in {" nor in ".join(absent)}'
    dynamic = subprocess.run(['readelf', '-d', library], check=True, capture_output=True, text=True).stdout
    if '[libTq4_c_objectD-1.0.so]' not in dynamic:
        yield 'programs that were linked look for libTq4_c_objectD-1.0.so, which is not the name in the shared object'
    for header in HEADERS:
        if header not in OFFERED and header != WHOLE and declared(header) <= exported:
            yield f'tq4.h does not include {header.name}, and the library exports all of it'


def check_built(database):
    built = {(Path(unit['directory']) / unit['file']).resolve() for unit in json.loads(Path(database).read_text())}
    apart = ROOT / 'tests/install'  # a project of its own, built by its test
    for source in sorted(ROOT.glob('src/**/*.c*')) + sorted(ROOT.glob('tests/**/*.c*')):
        if source.suffix in ('.c', '.cc', '.cpp', '.cxx') and apart not in source.parents and source not in built:
            yield f'{source.relative_to(ROOT)}: no target builds it'


STANDARD = re.compile(r'[a-z_]+|(assert|ctype|errno|limits|locale|math|signal|std\w+|string|time|w?char)\.h|\w+intrin\.h')


def check_floors():
    floors = [line.split() for line in (ROOT / 'src/floors.txt').read_text().splitlines() if line and line[0] != '#']

    def floor_of(path):
        found = [level for level, (_, *patterns) in enumerate(floors)
                 if any(fnmatch.fnmatch(path, pattern) for pattern in patterns)]
        return found[0] if len(found) == 1 else None

    files = {str(path.relative_to(ROOT / 'src')): path for path in (ROOT / 'src').rglob('*.[ch]*')}
    files |= {str(path.relative_to(ROOT / 'include')): path for path in HEADERS}
    for name, path in sorted(files.items()):
        own = floor_of(name)
        if own is None:
            yield f'{name}: is not on exactly one floor of src/floors.txt'
            continue
        for opening, other in re.findall(r'^\s*#\s*include\s*([<"])([^>"]+)', path.read_text(), re.M):
            if opening == '<':
                at_home = STANDARD.fullmatch(other) or name.startswith('platform/') or \
                    (other == 'zlib.h' and name.startswith('base/zip'))
                if not at_home:
                    yield f'{name}: includes <{other}>, which only platform/ may'
            elif other not in files:
                yield f'{name}: includes "{other}", which is not a path from src or include'
            elif (floor := floor_of(other)) is not None and floor > own:
                yield f'{name} ({floors[own][0]}): includes "{other}" from the higher floor {floors[floor][0]}'


# What reports nothing, or fails for a wrong argument alone. (The C++ library waits by syscall, and stops when it fails.)
CANNOT_FAIL = re.compile(r'_\w*|Tq4_\w+|free|(mem|str)\w+|\w*printf|std(in|out|err)|in6addr_any|inet_ntop|clearerr\w*|'
                         r'umask|sysconf|f(try|un)?lockfile|(secure_)?getenv|syscall|'
                         r'get(timeofday|pid|tid)|localtime(_r)?|mktime|clock_\w+|dl\w+|(open|close|sys)log|aligned_alloc|'
                         r'(sem|sig(add|empty)|pthread_(mutex|cond|attr|mutexattr|set|get|self|exit|kill|cancel|sigmask|'
                         r'atfork))\w*|eventfd_(read|write)')


def check_faults(*objects):
    called = subprocess.run(['nm', '-u', *[name for name in objects if '/platform/' in name]], check=True,
                            capture_output=True, text=True).stdout
    seam = (ROOT / 'tests/support/faults.cpp').read_text()
    failing = set(re.findall(r'^    (?:PLAIN|MOVE|DONE|CODE)\([^,]*, (\w+)', seam, re.M))
    for call in sorted(set(re.findall(r'U (\w+)', called)) - failing):
        if not CANNOT_FAIL.fullmatch(call):
            yield f'src/platform calls {call}, which tests/support/faults.cpp does not list'


# A static of a function that is made at run time takes a lock, which a forked child may find taken by nobody it has. The
# console frame's one record is made by the program's main thread.
def check_statics(*objects):
    symbols = subprocess.run(['nm', '-C', *objects], check=True, capture_output=True, text=True).stdout
    for static in sorted(set(re.findall(r'guard variable for (.*)', symbols)) - {'Tq4_app_obj::The()::the'}):
        yield f'{static}: is made under a lock; Tq4_computed_once has none'


def check_compatibility():
    named = set(re.findall(r'`([\w/]+\.[ch]p*)`', (ROOT / 'docs/compatibility.md').read_text()))
    for base in (ROOT / 'include/tq4', ROOT / 'src'):
        for path in sorted(base.rglob('*.[ch]*')):
            name = str(path.relative_to(base))
            if re.search('deliberate', path.read_text(), re.I) and name not in named:
                yield f'{name} calls something deliberate, and docs/compatibility.md does not say for whom'


def check_version(project):
    macro = dict(re.findall(r'#define (TQ4_VERSION\w*) "?([\d.]+)', (ROOT / 'include/tq4/api.h').read_text()))
    major, minor, patch = map(int, project.split('.'))
    named = {
        'TQ4_VERSION': macro['TQ4_VERSION'] == project,
        'TQ4_VERSION_NUMBER': int(macro['TQ4_VERSION_NUMBER']) == 10000 * major + 100 * minor + patch,
        'CHANGELOG.md': re.search(r'^## (\S+)', (ROOT / 'CHANGELOG.md').read_text(), re.M)[1] == project,
    }
    yield from (f'{where} does not tell the version {project}' for where, same in named.items() if not same)


def check_slots():
    whole = subprocess.run(['cc', '-E', '-P', '-I', ROOT / 'include', WHOLE], check=True, capture_output=True, text=True)
    tables = {table: [slot or hook for slot, hook in re.findall(r'(?:\(\*(\w+)\)[^;]*|(\w+)\s*);', body)]
              for table, body in re.findall(r'struct (\w+_(?:itf)?) \{([^}]*\(\*[^}]*)\}', whole.stdout)}
    marks = {table: [f'{zlib.crc32(" ".join(slots[:n]).encode()):08x}' for n in range(len(slots) + 1)]
             for table, slots in tables.items()}
    recorded = [line.split() for line in (ROOT / 'tests/checks/slots.txt').read_text().splitlines() if line[0] != '#']
    for table, count, mark in recorded:
        if mark not in marks.get(table, [])[int(count):int(count) + 1]:
            yield f'{table}: one of its first {count} slots has moved, has another name or is gone'
    for table in marks:
        line = [table, str(len(tables[table])), marks[table][-1]]
        if line not in recorded:
            yield f'tests/checks/slots.txt does not record all slots of {table}; its line: {" ".join(line)}'


complaints = list(globals()[f'check_{sys.argv[1]}'](*sys.argv[2:]))
print(*complaints, sep='\n', end='\n' if complaints else '')
sys.exit(bool(complaints))
