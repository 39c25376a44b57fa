#!/usr/bin/env python3
"""from_python.py LIBRARY: another language reads the headers as they are and calls the library by what it has read.

The reader is cffi, whose parser knows C and no attribute of GCC. Exits 1 when an answer is not as expected, and 77 when
this Python has no cffi.
"""
import re
import subprocess
import sys
from pathlib import Path

try:
    import cffi
except ImportError:
    sys.exit(77)

INCLUDE = Path(__file__).resolve().parents[2] / 'include'
# What the headers take from those of the system, as far as a caller needs to know it.
SYSTEM = 'typedef void *va_list; typedef long time_t; struct tm; struct sockaddr; struct addrinfo;'


def declarations():
    """The preprocessed text of the library's own headers, with its numeric constants.

    An exported pointer counts as a variable: cffi looks for constants in the headers alone, not in a shared object.
    """
    text = subprocess.run(['cc', '-E', '-dD', '-DTQ4_API=', '-I', INCLUDE, INCLUDE / 'tq4/tq4.h'],
                          check=True, capture_output=True, text=True).stdout
    ours = False
    for line in text.splitlines():
        if marker := re.match(r'# \d+ "([^"]*)"', line):
            ours = Path(marker[1]).is_relative_to(INCLUDE)
        elif ours and (line[:1] != '#' or re.match(r'#define \w+ [0-9]', line)):
            yield line.replace('*const ', '*')


ffi = cffi.FFI()
ffi.cdef(SYSTEM + '\n'.join(declarations()))
lib = ffi.dlopen(sys.argv[1])

s = ffi.cast('Tq4_string', lib.Tq4_string_oitf.Create(b'from '))
s[0].Strncat(s, b'Python and more', ffi.cast('unsigned long', 6))
s[0].Sprintf_append(s, b' %d.%lu', ffi.cast('int', lib.Tq4_value_Table), ffi.cast('unsigned long', lib.TQ4_ALL_ONES))
text = ffi.string(s[0].c_str(s)).decode()
lib.Tq4_string_oitf.Delete(s)

expected = f'from Python {lib.Tq4_value_Table}.{2 ** 64 - 1}'
if text != expected or lib.TQ4_VERSION_NUMBER < 10000:
    sys.exit(f'"{text}" is not "{expected}"')
