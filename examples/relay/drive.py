#!/usr/bin/env python3
"""drive.py: runs the relay in the background, types into shells attached to it, lets peers come over TCP, and
shows what happens.

  drive.py PROGRAM

It works on a copy of the program and its settings in a directory of its own. Exits 1 when an answer is not as it should
be. No process is left behind.
"""
import codecs
import json
import os
import pty
import re
import select
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

DIRECTORY = tempfile.TemporaryDirectory(prefix='relay')
HERE = Path(DIRECTORY.name).resolve()
RELAY, SETTINGS = HERE / 'relay', HERE / 'relay.ini'
PROMPT, PATIENCE = 'relay> ', 20
failed = False


def holds(what, fact):
    global failed
    failed |= not fact
    print(f'   {what:<66} {"yes" if fact else "NO"}')


def soon(fact):
    """Whether it comes true within our patience."""
    deadline = time.monotonic() + PATIENCE
    while not fact():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.01)
    return True


def running():
    """The processes of this very program."""
    found = []
    for process in Path('/proc').glob('[0-9]*'):
        try:
            if os.readlink(process / 'exe') == str(RELAY):
                found.append(int(process.name))
        except OSError:
            pass
    return found


def plain(shown):
    """What a terminal shows, without its control sequences."""
    return re.sub('\x1b\\[[?0-9;]*[a-zA-Z]', '', shown).replace('\r', '')


class Shell:
    """A shell on a terminal of its own."""

    def __init__(self):
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.execv(RELAY, [str(RELAY)])
        self.said, self.decoder = '', codecs.getincrementaldecoder('utf-8')('replace')
        self.read(lambda: '欢迎使用' in self.said and self.said.endswith(PROMPT))
        self.said = ''

    def read(self, enough):
        """Reads what is shown until it is enough, the shell ends or it takes too long."""
        deadline = time.monotonic() + PATIENCE
        while not enough():
            ready, _, _ = select.select([self.terminal], [], [], max(0, deadline - time.monotonic()))
            try:
                piece = os.read(self.terminal, 65536) if ready else b''
            except OSError:  # how a terminal tells that nobody holds it open any more
                piece = b''
            if not piece:
                break
            self.said += self.decoder.decode(piece)

    def ask(self, command):
        """The lines that answer a command, without what the service's threads say when they begin."""
        os.write(self.terminal, (command + '\n').encode())
        self.read(lambda: self.said.endswith(PROMPT))
        shown, self.said = self.said.replace(PROMPT, ''), ''
        lines = plain(shown).split('\n')
        return [line for line in lines if line and line != command and not line.startswith('thead[')]

    def show(self, command):
        lines = self.ask(command)
        print(f'   {PROMPT}{command}')
        for line in lines:
            print(f'   | {line}')
        return '\n'.join(lines)

    def end(self, command):
        """Types the last command. What is shown from there on, and the exit code."""
        os.write(self.terminal, (command + '\n').encode())
        self.read(lambda: False)
        _, status = os.waitpid(self.pid, 0)
        os.close(self.terminal)
        return plain(self.said), os.waitstatus_to_exitcode(status)


def first_shell():
    shell = Shell()
    holds("the service's counters are JSON", shell.show('status').startswith('{'))
    counted = json.loads(shell.ask('status')[0])['beats']
    holds('and go on', soon(lambda: json.loads(shell.ask('status')[0])['beats'] > counted))
    holds('a setting is read', shell.show('get name') == 'east // 1')
    shell.show('set greeting 你好，世界')
    holds('and changed', shell.show('get greeting') == '你好，世界')
    holds('an unknown word is told', '不识别的命令' in shell.show('nonsense'))
    holds('the service knows that they have changed', 'settings_changed' in shell.show('status'))
    _, code = shell.end('q')
    holds('q leaves the shell, and the service goes on', code == 0 and len(running()) == 1)


def line_of(peer, said):
    """A peer's answer."""
    peer.sendall(said.encode() + b'\r\n')
    answer = b''
    while not answer.endswith(b'\n') and (piece := peer.recv(65536)):
        answer += piece
    return answer.decode().rstrip('\n')


def peers():
    """Comes over TCP, once and many times."""
    port = int(re.search(r'listens on 127\.0\.0\.1:(\d+)', the_log())[1])
    before = len(os.listdir(f'/proc/{running()[0]}/fd'))  # with that of the first shell, while it is still leaving

    def come():
        peer = socket.create_connection(('127.0.0.1', port), PATIENCE)
        peer.settimeout(PATIENCE)
        return peer

    print('Peers on TCP')
    with come() as peer:
        said = ['SET river 长江，六千公里', 'GET river', 'GET lake', 'nonsense', 'STATUS']
        answers = [line_of(peer, each) for each in said]
        print(*(f'   > {ask}\n   < {answer}' for ask, answer in zip(said, answers)), sep='\n')
        holds('what is set is got', answers[:3] == ['OK', 'OK 长江，六千公里', 'NONE'])
        holds('nonsense is an error', answers[3].startswith('ERROR'))
        counted = json.loads(answers[4].removeprefix('OK '))
    many = 300
    crowd, answers = [], []
    for n in range(many):
        crowd.append(come())
        answers += [line_of(crowd[n], f'SET {n} {n * n}'), line_of(crowd[n // 2], f'GET {n}')]
    holds(f'{many} peers at once, each one is answered', answers == [a for n in range(many) for a in ['OK', f'OK {n * n}']])
    for n, peer in enumerate(crowd):
        if n % 2:  # in the middle of an answer, by a reset
            peer.sendall(b'STATUS\n' * 100)
            peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack('ii', 1, 0))
        peer.close()
    holds('they are gone without a trace', soon(lambda: len(os.listdir(f'/proc/{running()[0]}/fd')) <= before))
    with come() as peer:
        peer.sendall(b'x' * 200000)
        holds('who sends a line without end is sent away', gone(peer))
    with come() as peer:
        status = json.loads(line_of(peer, 'STATUS').removeprefix('OK '))
        holds('connections, bytes and errors are counted', status['connections'] == counted['connections'] + many + 2
              and status['bytes'] > counted['bytes'] + 65536 and status['errors'] == counted['errors'] + 1)


def gone(peer):
    """Whether the other side ends the connection."""
    try:
        while peer.recv(65536):
            pass
        return True
    except ConnectionError:
        return True
    except TimeoutError:
        return False


def the_log():
    return next((HERE / 'log_files').rglob('relay_*.log')).read_text()


def drive(program):
    shutil.copy(program, RELAY)
    shutil.copy(Path(__file__).with_name('relay.ini'), SETTINGS)
    before = SETTINGS.read_text().splitlines()
    start = subprocess.run([RELAY, '-start'], check=False)
    holds('relay -start returns, and the service runs', start.returncode == 0 and len(running()) == 1)
    print('A shell on a terminal')
    first_shell()
    peers()

    after = SETTINGS.read_text().splitlines()
    changed = [line for line in after if line not in before]
    print('   relay.ini has changed in', *changed, sep='\n   | ')
    holds('its comments and everything else are as before', len(changed) == 1 and len(before) == len(after))

    print('Another shell stops the service')
    shown, code = Shell().end('stop')
    print(*(f'   | {line}' for line in shown.splitlines() if '服务程序' in line), sep='\n')
    ended = soon(lambda: not running())  # its last word comes before its process is gone
    holds('both have ended', code == 0 and '安全退出完成' in shown and ended)
    holds('and left no control socket', not (HERE / 'tq4_run_var/relay/__1pipe__').exists())
    print('   Its log:', *the_log().splitlines(), sep='\n   | ')


try:
    drive(sys.argv[1])
finally:
    for pid in running():
        os.kill(pid, signal.SIGKILL)
        failed = True
sys.exit(failed)
