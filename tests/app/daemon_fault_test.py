#!/usr/bin/env python3
"""daemon_fault_test.py SERVICE: the life of a daemon under every fault of the system it can meet.

Each call of a kind fails in turn, until a whole life (-start, a shell, "stop") makes no more of them. -start either
succeeds, and then the daemon answers and can be stopped, or fails with a reason that can be read, and then neither a
process nor a socket is left. A signal, or bytes that move in two parts, are no failure at all. No process ends by
a signal, and a sanitizer finds nothing.

A life runs in a process of its own, which adopts the daemon, so that everything it left behind is seen.
"""
import ctypes
import errno
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from multiprocessing import Pool
from pathlib import Path

SERVICE = sys.argv[1]
PATIENCE, PR_SET_CHILD_SUBREAPER = 60, 36
NO_ANSWER = 0.3  # seconds after which a shell that was not served tries again, or a signal takes its place
GOODBYE = '安全退出完成。\n'.encode()
ONCE, FROM_THEN_ON, CUT, CUT_THEN_FAIL = range(4)
BASE = Path(tempfile.mkdtemp())


def reap(deadline, endings):
    """Waits until no child is left. False when one is still there at the deadline."""
    while True:
        try:
            pid, status = os.waitpid(-1, os.WNOHANG)
        except ChildProcessError:
            return True
        if pid:
            endings.append(os.waitstatus_to_exitcode(status))
        elif time.monotonic() > deadline:
            return False
        else:
            time.sleep(0.002)


def kill_children():
    for pid in Path(f'/proc/self/task/{os.getpid()}/children').read_text().split():
        os.kill(int(pid), signal.SIGKILL)


def tell_to_stop(path, patience):
    """Lets a shell type "stop". What it was told, until the daemon ended the connection or for so long."""
    with socket.socket(socket.AF_UNIX) as shell:
        shell.settimeout(patience)
        shell.connect(path)
        told = b''
        try:
            shell.sendall(b'stop\n')
            shell.shutdown(socket.SHUT_WR)
            while piece := shell.recv(65536):
                told += piece
        except OSError:  # the connection was cut: that is the daemon's right, if it goes on
            pass
        return told


def stop(control, lasting, endings):
    """Stops the daemon by shells, or where no shell can get through for good, by a signal."""
    for attempt in range(1 if lasting else 3):
        try:
            told = tell_to_stop(control, NO_ANSWER if lasting else PATIENCE)
        except OSError as error:
            if not os.path.exists(control) and reap(time.monotonic() + PATIENCE, endings):
                if attempt == 0:
                    yield '-start gives 0, and nothing runs'
                return
            if not lasting:
                yield f'no shell gets through: {error}'
            break
        if reap(time.monotonic() + (PATIENCE if told.endswith(GOODBYE) else NO_ANSWER), endings):
            return
    if not lasting:
        yield 'it does not stop when it is told to'
    for pid in Path(f'/proc/self/task/{os.getpid()}/children').read_text().split():
        os.kill(int(pid), signal.SIGTERM)
    if not reap(time.monotonic() + PATIENCE, endings):
        yield 'it does not end when it is asked to'
        kill_children()
        reap(time.monotonic() + PATIENCE, [])
    # The signal may meet one that has obeyed the shell after all, and has given its handlers back at its very end.
    if lasting and -signal.SIGTERM in endings:
        endings.remove(-signal.SIGTERM)


def judge(here, call, nth, error, manner):
    control, hit = str(here / 'tq4_run_var/svc/__1pipe__'), here / 'hit'
    sanitizers = {name: f'{os.environ.get(name, "")}:log_path={here}/san'
                  for name in ('ASAN_OPTIONS', 'UBSAN_OPTIONS', 'TSAN_OPTIONS')}
    with open(here / 'said', 'wb') as said:
        result = subprocess.run([here / 'svc', '-start'], stdin=subprocess.DEVNULL, stdout=said, stderr=said,
                                env={**os.environ, **sanitizers, 'TQ4_FAULT': f'{call} {nth} {error} {manner} {hit}'},
                                timeout=PATIENCE).returncode
    endings = []
    if result == 0:
        if call == 'eventfd' and hit.exists():
            yield '-start gives 0 for a daemon that hears no signal'
        yield from stop(control, manner in (FROM_THEN_ON, CUT_THEN_FAIL), endings)
    else:
        if not reap(time.monotonic() + PATIENCE, endings):
            yield 'a process is left of a start that failed'
            kill_children()
            reap(time.monotonic() + PATIENCE, [])
        told = (here / 'said').read_bytes()
        if not told or call in ('eventfd', 'readlink') and not told.startswith(call.encode()):
            yield f'-start gives {result} and no reason'
        if manner == CUT or error == errno.EINTR and hit.exists():
            yield f'-start gives {result} for what is no failure'
    if any(ending < 0 for ending in [result, *endings]):
        yield f'a process was ended by a signal: {[result, *endings]}'
    # A daemon that cannot look whether the socket there is its own may leave it.
    if os.path.exists(control) and call not in ('unlink', 'fstatat'):
        yield 'the control socket is left'
    for report in here.glob('san.*'):
        yield report.read_text()


def live(life):
    """What is wrong with one life, and whether it met its fault."""
    here = Path(tempfile.mkdtemp(dir=BASE))
    os.link(BASE / 'svc', here / 'svc')
    wrong = list(judge(here, *life))
    happened = (here / 'hit').exists()
    shutil.rmtree(here)
    return happened, [f'{" ".join(map(str, life))}: {text}' for text in wrong]


def sweep(faults):
    """All lives under the faults of one call: how many met theirs, and what was wrong."""
    met, wrong = 0, []
    for call, error, manner in faults:
        for nth in range(1, 1000):
            happened, complaints = live((call, nth, error, manner))
            wrong += complaints
            if not happened:
                break
            met += 1
        if not met:
            break  # the call is never made
    return faults[0][0], met, wrong


def adopt():
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def main():
    shutil.copy(SERVICE, BASE / 'svc')
    by_call = {}
    listed = subprocess.run([SERVICE], env={**os.environ, 'TQ4_FAULT': 'list'}, check=True, capture_output=True)
    for line in listed.stdout.decode().splitlines():
        call, error, manner = line.split()
        by_call.setdefault(call, []).append((call, int(error), int(manner)))
    with Pool(os.cpu_count(), adopt) as pool:
        results = list(pool.imap_unordered(sweep, by_call.values()))
    shutil.rmtree(BASE)
    met = {call: lives for call, lives, _ in results if lives}
    complaints = [text for *_, wrong in results for text in wrong]
    complaints += [f'no {call} has failed' for call in ('fork', 'eventfd', 'bind', 'dup2', 'open', 'readlink') if call not in met]
    print(f'{sum(met.values())} lives met a fault: {met}', *complaints, sep='\n')
    sys.exit(bool(complaints))


main()
