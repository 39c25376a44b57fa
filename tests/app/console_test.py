#!/usr/bin/env python3
"""console_test.py PROGRAM: the console from outside: a service, its daemon and its shells as real processes, on pipes,
terminals and raw sockets.

Each test has a directory of its own with a copy of the program in it, since the control socket lies beside that. The
tests adopt daemons, so that each is waited for and none is left behind; what a sanitizer finds in one lies in a file.
Nothing waits without end: what does not come in time fails the test.
"""
import ctypes
import fcntl
import os
import pty
import re
import resource
import select
import shutil
import signal
import socket
import struct
import sys
import tempfile
import termios
import time
import unittest
from pathlib import Path

PROGRAM, PATIENCE, PR_SET_CHILD_SUBREAPER = sys.argv.pop(1), 60, 36
SANITIZED = any(mark in Path(PROGRAM).read_bytes() for mark in (b'__asan_', b'__tsan_'))
# The thread sanitizer runs no handler while the C library waits in a call of its own.
DEFERS_SIGNALS = b'__tsan_' in Path(PROGRAM).read_bytes()
PIPES, NO_INPUT, TERMINAL = 'pipes', 'no input', 'terminal'
STANDALONE, DAEMON, SHELL = 'standalone', 'daemon', 'shell'
NOBODY = 65534
PROMPT = 'svc> '
UNKNOWN = '不识别的命令，请输入h(help) 获取帮助\n'
WELCOME = '欢迎使用svc服务，请输入命令来控制服务器，输入help(h)获得命令帮助\n'
GOODBYE = '服务程序 svc 准备退出....\n服务程序 svc 安全退出完成。\n'
UNREACHABLE = '连接svc服务程序失败，请检查服务程序是否正常运行\n'
STARTED = '\n\n请输入指令，如需帮助，请输入h(help)\n'
VERSION = 'svc    \n版本号:1.2\n编译时间：today\n作者:测试\n'
HELP = '''        参数         [缩写] :  描述
--charset=utf8       [-utf8   ] : console print in utf8 charset
--charset=gb18030    [-gb     ] : console print in gb18030 charset
--service=start      [-start  ] : 以后台服务模式启动程序
--service=stop       [-stop   ] : 停止先前以后台服务方式运行的进程
--help               [-h      ] : 显示帮助
--version            [-v      ] : 显示版本
'''
COMMANDS = '''svc服务运行于独立模式（服务+命令行交互一体）
        指令         [缩写] :  描述
help                 [h    ] : 显示帮助
version              [v    ] : 显示版本
quit                 [q    ] : 退出交互，对于独立运行程序，意味着完整退出，对于后台服务，意味着服务还继续
stop                 [     ] : 停止后台服务和前台交互
utf8                 [utf  ] : console print in utf8 charset
gb18030              [gb   ] : console print in gb18030 charset
echo                 [e    ] : print the rest
'''
SERVICE_COMMANDS = '''        服务指令     [缩写] :  描述（在服务进程中执行）
where                [w    ] : the service's process

'''


def text(coded):
    return coded.decode('utf-8', 'surrogateescape')


def gb18030(said):
    return text(said.encode('gb18030'))


def conversation(said):
    """What the service has said after the greeting."""
    return said.partition(STARTED)[2]


def children():
    return [int(pid) for pid in Path(f'/proc/self/task/{os.getpid()}/children').read_text().split()]


def wait_until(fact):
    deadline = time.monotonic() + PATIENCE
    while not fact():
        assert time.monotonic() < deadline
        time.sleep(0.01)


def wait_for(pid):
    """The exit code of a child, or of a process that became one; minus the signal that ended it."""
    if not select.select([os.pidfd_open(pid)], [], [], PATIENCE)[0]:
        os.kill(pid, signal.SIGKILL)
    return os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])


class Channel:
    """A side of a conversation, over two descriptors that may be one."""

    def __init__(self, source, sink):
        self.source, self.sink, self.said = source, sink, ''

    def send(self, typed):
        os.write(self.sink, typed.encode('utf-8', 'surrogateescape'))

    def read(self):
        try:
            piece = os.read(self.source, 65536) if select.select([self.source], [], [], PATIENCE)[0] else b''
        except OSError:  # how a terminal tells that nobody holds it open any more
            piece = b''
        self.said = text(self.said.encode('utf-8', 'surrogateescape') + piece)
        return piece

    def expect(self, wanted):
        """Reads until this has come; everything up to its end."""
        while wanted not in self.said and self.read():
            pass
        assert wanted in self.said, f'{wanted!r} did not come, but {self.said[-1000:]!r}'
        end = self.said.index(wanted) + len(wanted)
        said, self.said = self.said[:end], self.said[end:]
        return said

    def rest(self):
        while self.read():
            pass
        return self.said

    def await_full(self):
        """Until as much is unread as there is room for: who writes waits."""
        before = -1
        while (unread := struct.unpack('i', fcntl.ioctl(self.source, termios.FIONREAD, b'\0' * 4))[0]) != before or \
                not unread:
            before = unread
            time.sleep(0.2)

    def end_input(self):
        os.close(self.sink)

    def hang_up(self):
        for descriptor in {self.source, self.sink}:
            os.close(descriptor)


class Client(Channel):
    def __init__(self, path):
        connection = socket.socket(socket.AF_UNIX)
        connection.connect(path)
        descriptor = connection.detach()
        super().__init__(descriptor, descriptor)

    def end_input(self):
        with socket.socket(fileno=os.dup(self.sink)) as same:
            same.shutdown(socket.SHUT_WR)


class Process(Channel):
    """A program with its descriptors 0 to 2 on pipes, the same with 0 closed, or on a terminal of its own."""

    def __init__(self, command, environment, console, limits, user):
        (stdin, sink), (source, stdout) = os.pipe(), os.pipe()
        self.pid, terminal = pty.fork() if console == TERMINAL else (os.fork(), None)
        if self.pid == 0:
            if console != TERMINAL:
                os.dup2(stdin, 0), os.dup2(stdout, 1), os.dup2(stdout, 2)
            if console == NO_INPUT:
                os.close(0)
            signal.signal(signal.SIGPIPE, signal.SIG_DFL)
            for what, limit in limits.items():
                resource.setrlimit(what, (limit, resource.getrlimit(what)[1]))
            if user:
                os.setgroups([]), os.setgid(user), os.setuid(user)
            os.execve(command[0], command, environment)
        os.close(stdin), os.close(stdout)
        super().__init__(source, sink)
        if console == TERMINAL:
            self.hang_up()
            self.source = self.sink = terminal

    def wait(self):
        return wait_for(self.pid)


class Console(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.here = Path(self.directory.name)
        self.trace, self.socket = self.here / 'trace', str(self.here / 'tq4_run_var/svc/__1pipe__')
        shutil.copy(PROGRAM, self.here / 'svc')

    def tearDown(self):
        left_behind = children()
        for pid in left_behind:
            os.kill(pid, signal.SIGKILL), os.waitpid(pid, 0)
        self.assertEqual(left_behind, [])
        reports = [line for report in self.here.glob('san.*') for line in report.read_text().splitlines()]
        # A process that the service forks has not its threads, which the leak sanitizer remarks on.
        self.assertEqual([line for line in reports if 'was not suspended. False leaks are possible' not in line], [])
        self.directory.cleanup()

    def run_it(self, *arguments, console=PIPES, limits={}, user=None, **settings):
        sanitizers = {name: f'{os.environ.get(name, "")}:log_path={self.here}/san'
                      for name in ('ASAN_OPTIONS', 'UBSAN_OPTIONS', 'TSAN_OPTIONS')}
        return Process([str(self.here / 'svc'), *arguments],
                       {**os.environ, 'TRACE': str(self.trace), **sanitizers, **settings}, console, limits, user)

    def say(self, *arguments, typed='', **how):
        """Runs it to its end: what it said, and its exit code."""
        process = self.run_it(*arguments, **how)
        process.send(typed)
        process.end_input()
        said = process.rest()
        os.close(process.source)
        return f'{said}={process.wait()}'

    def log(self, directory=None):
        """The messages of the application log, but for those of the commands that every run is refused."""
        files = sorted((directory or self.here).glob('log_files/**/Tq4_app_*.log'))
        lines = [line.partition('] ')[2] for path in files for line in path.read_text().splitlines()]
        return [line for line in lines if not line.startswith('Tq4_app_AddCmd failed')]

    def ask_pid(self):
        """What the daemon tells the next shell."""
        client = Client(self.socket)
        self.assertEqual(client.expect(PROMPT), WELCOME + PROMPT)
        client.send('pid\n')
        pid = int(client.expect('\n'))
        client.hang_up()
        return pid

    def start_daemon(self, *options, **how):
        self.assertEqual(self.say('-start', *options, **how), '=0')
        self.daemon = self.ask_pid()

    def end_daemon(self):
        os.kill(self.daemon, signal.SIGTERM)
        self.assertEqual(wait_for(self.daemon), 0)

    def stop_daemon(self):
        self.assertEqual(self.say('-stop'), WELCOME + PROMPT + GOODBYE + '=0')
        self.assertEqual(wait_for(self.daemon), 0)

    def expect_service(self):
        self.assertEqual(self.ask_pid(), self.daemon)

    def test_options_that_print_do_not_start_anything(self):
        for option in '-h', '--help':
            self.assertEqual(self.say(option), HELP + '=0')
        for option in '-v', '--version':
            self.assertEqual(self.say('-utf8', option), VERSION + '=0')
        self.assertEqual(self.say('-gb', '-v'), gb18030(VERSION) + '=0')
        for option in '-stop', '--service=stop':
            self.assertEqual(self.say(option), 'svc 服务没有运行\n=0')
        self.assertFalse(self.trace.exists())

    def test_standalone_is_service_and_command_line_in_one(self):
        said = self.say('--charset=utf8', typed='q\n')
        self.assertEqual(said[:len(COMMANDS)], COMMANDS)
        last = f'found                [     ] : look an object up\n\n{SERVICE_COMMANDS}{STARTED}{PROMPT}=0'
        self.assertEqual(said[-len(last):], last)
        self.assertEqual(self.trace.read_text(), 'start 2\nstop\ndelete second\ndelete first\n')

    def test_lines_are_a_word_and_the_rest(self):
        for typed, answer in (
                ('e a  b \n', 'a  b \n' + PROMPT),
                (' \t e\t \tx\r\n', 'x\n' + PROMPT),
                ('e\n', '\n' + PROMPT),
                ('\n \t\n\r\n', PROMPT * 3),
                ('echo x\n', 'the shortcut\n' + PROMPT),
                ('stdio x\ne y\n', f'x{PROMPT}y\n{PROMPT}'),
                ('found second\nfound third\n', f'second\n{PROMPT}nothing\n{PROMPT}'),
                ('nonsense\n', UNKNOWN + PROMPT),
                ('E x\n', UNKNOWN + PROMPT),
                ('q\0\ne\0 x\n', (UNKNOWN + PROMPT) * 2),
                (f'e {"y" * 100000}\ne z\n', f'{UNKNOWN}{PROMPT}z\n{PROMPT}'),
                ('gb\nv\nutf\ne 中\n', f'{PROMPT}{gb18030(VERSION)}{PROMPT}{PROMPT}中\n{PROMPT}'),
                ('e half', 'half\n' + PROMPT),
                ('old\nnew\n', f'{UNKNOWN}{PROMPT}new\n{PROMPT}'),
                ('st\nhalt\n', (UNKNOWN + PROMPT) * 2),
                ('stop\ne x\n', '')):
            self.assertEqual(conversation(self.say(typed=typed)), f'{PROMPT}{answer}=0', typed[:100])
        self.assertEqual(conversation(self.say('x', '--y=1', '-z', '1', '-', '-utf8', typed='a\nq\n')),
                         f'{PROMPT} = x;--y=1;-z = 1 = -;-utf8;\n{PROMPT}=0')

    def test_signals_end_it_in_order_and_a_supervisor_is_told(self):
        for console, notified, typed, ending in (
                (NO_INPUT, f'{self.here}/notify', '', signal.SIGINT),  # unattended
                (PIPES, f'@{self.here}/notify', '', signal.SIGTERM),  # unattended: at its end from the start
                (PIPES, f'{self.here}/notify2', 'half a line', signal.SIGTERM),
                (TERMINAL, f'@{self.here}/notify2', 'half a line', signal.SIGINT)):
            with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as supervisor:
                supervisor.settimeout(PATIENCE)
                supervisor.bind(notified.replace('@', '\0'))
                self.trace.unlink(missing_ok=True)
                process = self.run_it('--stdio', console=console, NOTIFY_SOCKET=notified)
                self.assertEqual(supervisor.recv(100), b'READY=1')
                process.send(typed) if typed else process.end_input()
                process.expect(PROMPT)
                os.kill(process.pid, ending)
                self.assertEqual(supervisor.recv(100), b'STOPPING=1')
                self.assertEqual(process.wait(), 0)
                self.assertEqual(self.trace.read_text(), 'start 2\nstop\ndelete second\ndelete first\n')

    def test_shells_come_and_go_and_stop_ends_both(self):
        self.start_daemon()
        shell = self.run_it(console=TERMINAL)
        shell.expect('svc服务程序已经运行，现在进入命令交互模式\r\nsvc服务运行于命令交互模式（实际服务在后台进程）\r\n')
        shell.expect('欢迎使用svc服务')
        shell.send('nonsense\n')
        shell.expect('不识别的命令')
        shell.send('pid\n')  # a program's command runs where it is typed
        shell.expect(f'{shell.pid}\r\n')
        shell.send('w in the service\n')  # and a command of the service there
        shell.expect(f'{self.daemon}:in the service\r\n')
        shell.send('q\n')
        self.assertEqual(shell.wait(), 0)
        self.expect_service()
        unread = self.run_it()
        unread.hang_up()
        self.assertEqual(unread.wait(), 0, 'what it says reaches nobody')
        shell = self.run_it('-start', console=TERMINAL)
        shell.expect('欢迎使用svc服务')
        shell.send('stop\n')
        shell.expect(GOODBYE.replace('\n', '\r\n'))
        self.assertEqual((shell.wait(), wait_for(self.daemon)), (0, 0))
        self.assertFalse(os.path.exists(self.socket))

    def test_the_daemon_is_detached_and_for_owner_and_group_alone(self):
        self.assertEqual(self.run_it('-start', console=NO_INPUT).wait(), 0)
        self.daemon = self.ask_pid()
        self.expect_service()  # the shell that told the pid has gone
        for path in 'tq4_run_var', 'tq4_run_var/svc', 'tq4_run_var/svc/__1pipe__':
            self.assertEqual((self.here / path).stat().st_mode & 0o7777, 0o770, path)
        self.assertNotIn(os.getsid(self.daemon), (os.getsid(0), self.daemon))
        silent = Client(self.socket)
        silent.expect(WELCOME + PROMPT)
        os.kill(self.daemon, signal.SIGTERM)  # also while a shell is attached
        self.assertEqual(silent.rest(), GOODBYE)
        self.assertEqual(wait_for(self.daemon), 0)
        visit = ['命令交互模式连接到服务程序 svc', '命令交互模式离开服务程序 svc']
        self.assertEqual(self.log(), [
            'made', '服务程序 svc 准备进入后台模式', 'svc 运行于后台模式', *visit * 3, '服务程序 svc 准备退出....', '服务程序 svc 安全退出完成。'])
        self.assertEqual(self.trace.read_text(), 'start 2\nstop\ndelete second\ndelete first\n')

    def test_the_log_tells_of_each_standalone_run(self):
        self.say(typed='w\n')
        self.say('--refuse')
        begin = ['made', 'svc服务运行于独立模式（服务+命令行交互一体）']
        self.assertEqual(self.log(), [*begin, '服务程序 svc 准备退出....', '服务程序 svc 安全退出完成。',
                                      *begin, '服务程序 svc 启动失败'])

    def test_directories_of_the_environment_take_the_place_of_the_programs(self):
        run, logs, in_the_way = self.here / 'run', self.here / 'logs', self.here / 'file'
        self.socket = str(run / 'tq4_run_var/svc/__1pipe__')
        self.addCleanup(lambda: [os.environ.pop(name) for name in ('TQ4_RUN_DIR', 'TQ4_LOG_DIR')])
        os.environ.update(TQ4_RUN_DIR=str(run), TQ4_LOG_DIR=str(logs))
        self.start_daemon()
        self.assertEqual(self.say('-stop'), WELCOME + PROMPT + GOODBYE + '=0')
        self.assertEqual((wait_for(self.daemon), self.log(logs)[-1]), (0, '服务程序 svc 安全退出完成。'))
        self.assertEqual((self.log(), list(self.here.glob('tq4*'))), ([], []))
        in_the_way.write_text('x')
        os.environ.update(TQ4_RUN_DIR='', TQ4_LOG_DIR=str(in_the_way))
        told = f'^日志文件{in_the_way}/log_files/[^\n]*无法写入：Not a directory\n'
        self.assertRegex(self.say(typed='q\n'), f'{told}svc服务运行于独立模式')
        self.assertRegex(self.say('-start'), f'{told}=0$')
        self.socket = str(self.here / 'tq4_run_var/svc/__1pipe__')
        self.daemon = self.ask_pid()
        self.end_daemon()

    def test_words_that_options_do_not_have_are_refused(self):
        for option in '--service=restart', '--service=', '--charset=latin1':
            refused = f'不识别的参数{option}，请用-h(--help)获取帮助\n=4'
            self.assertEqual(self.say('-start', option), refused)
            self.assertEqual(self.say(option, '-h'), refused)
        self.assertFalse(self.trace.exists())

    def test_a_hangup_lets_the_log_follow_its_file_and_the_service_reload(self):
        self.start_daemon()
        path = next(self.here.glob('log_files/**/Tq4_app_*.log'))
        path.rename(self.here / 'moved')
        os.kill(self.daemon, signal.SIGHUP)
        shell = Client(self.socket)
        shell.expect(PROMPT)
        self.assertTrue(self.trace.read_text().endswith('reload\n'))
        self.assertTrue(path.exists())
        attached = self.run_it(console=TERMINAL)
        attached.expect(STARTED.replace('\n', '\r\n'))
        os.kill(attached.pid, signal.SIGHUP)  # the service is not in it
        os.kill(attached.pid, signal.SIGTERM)
        attached.wait()
        self.end_daemon()
        self.assertEqual(self.trace.read_text(), 'start 2\nreload\nstop\ndelete second\ndelete first\n')

    def test_a_refused_start_leaves_nothing(self):
        self.assertEqual(self.say('--refuse'), '=0')
        self.assertEqual(self.say('-start', '--refuse'), '=0')
        adopted, status = os.waitpid(-1, 0)
        self.assertEqual(os.waitstatus_to_exitcode(status), 3, adopted)
        self.assertFalse(os.path.exists(self.socket))
        once = '\nstop\ndelete second\ndelete first\n'
        self.assertEqual(self.trace.read_text(), f'start 2{once}start 3{once}')

    def test_a_dead_daemon_is_told_from_a_living_one(self):
        self.start_daemon()
        os.kill(self.daemon, signal.SIGKILL)
        self.assertEqual(wait_for(self.daemon), -signal.SIGKILL)
        self.assertEqual(self.say('-stop'), 'svc 服务没有运行\n=0')
        self.assertEqual(conversation(self.say(typed='q\n')), PROMPT + '=0', 'standalone')
        for _ in range(3):  # a new daemon can be started as soon as the old one has said goodbye
            self.start_daemon()
            self.assertEqual(self.say('-stop'), WELCOME + PROMPT + GOODBYE + '=0')
            self.assertFalse(os.path.exists(self.socket))
            self.assertEqual(wait_for(self.daemon), 0)

    def test_what_keeps_a_daemon_from_its_socket_is_told(self):
        in_the_way = Path(self.socket)
        in_the_way.parent.mkdir(parents=True)
        in_the_way.write_text('x')
        self.assertEqual(self.say('-start'), f'创建管道{self.socket}失败\nAddress already in use\n=1')
        self.assertEqual(in_the_way.read_text(), 'x')
        self.assertFalse(self.trace.exists())

    def test_only_where_nobody_listens_there_is_no_daemon(self):
        Path(self.here / 'tq4_run_var').write_text('x')
        for options in ('-start',), ('-stop',), ():
            self.assertEqual(self.say(*options), f'{UNREACHABLE}Not a directory\n=100')
        Path(self.here / 'tq4_run_var').unlink()
        if os.getuid() == 0:
            self.here.chmod(0o755)
            self.start_daemon()
            for options in ('-start',), ('-stop',), ():
                said = re.sub('日志文件.*\n', '', self.say(*options, user=NOBODY))  # nor may that user write the log
                self.assertEqual(said, f'{UNREACHABLE}Permission denied\n=100')
            self.stop_daemon()
            shutil.rmtree(self.here / 'tq4_run_var')
            said = re.sub('日志文件.*\n', '', self.say('-start', user=NOBODY))
            self.assertEqual(said, f'创建管道{self.socket}失败\nPermission denied\n=1')
            self.assertEqual(self.trace.read_text().count('start'), 1)

    def test_a_start_waits_for_the_end_of_the_daemon_before(self):
        hold = self.here / 'hold'
        hold.write_text('')
        self.start_daemon(HOLD=str(hold))
        old, stopping = self.daemon, self.run_it('-stop')
        stopping.expect('准备退出')
        wait_until(lambda: 'stop' in self.trace.read_text())
        starting = self.run_it('-start')
        also_stopping = self.run_it('-stop')
        self.assertEqual(select.select([starting.source, also_stopping.source], [], [], 0.5)[0], [])
        hold.unlink()
        self.assertIn('安全退出完成', stopping.rest())
        self.assertEqual([process.wait() for process in (stopping, starting)] + [wait_for(old)], [0, 0, 0])
        self.assertEqual((also_stopping.rest(), also_stopping.wait()), ('svc 服务没有运行\n', 0))
        self.daemon = self.ask_pid()
        once = 'start 2\nstop\ndelete second\ndelete first\n'
        self.assertEqual(self.trace.read_text(), once + 'start 2\n')
        os.unlink(self.socket)  # a daemon removes its own socket alone
        with socket.socket(socket.AF_UNIX) as another:
            another.bind(self.socket)
            self.end_daemon()
            self.assertTrue(os.path.exists(self.socket))

    def test_signals_are_caught_before_a_start_returns(self):
        for _ in range(10):
            starting = self.run_it('-start', console=NO_INPUT)
            self.assertEqual(starting.wait(), 0)
            daemon, = children()
            os.kill(daemon, signal.SIGHUP)
            os.kill(daemon, signal.SIGTERM)
            self.assertEqual(wait_for(daemon), 0)

    @unittest.skipIf(SANITIZED, 'sanitizers need threads of their own')
    def test_a_shell_without_a_thread_shows_what_the_daemon_says(self):
        no_threads = {resource.RLIMIT_STACK: 1 << 46}  # there is no room for another stack of that size
        self.start_daemon()
        shell = self.run_it(limits=no_threads)
        shell.expect(WELCOME)
        self.assertEqual(len(os.listdir(f'/proc/{shell.pid}/task')), 1)
        shell.send('e one\nstop\n')
        said = shell.rest()
        self.assertIn('one\n', said)
        self.assertIn(GOODBYE, said)
        self.assertEqual((shell.wait(), wait_for(self.daemon)), (0, 0))

    def test_shells_come_and_go_where_no_descriptor_is_free(self):
        self.start_daemon('--use', limits={resource.RLIMIT_NOFILE: 64})
        os.kill(self.daemon, signal.SIGHUP)  # from then on there is none
        wait_until(lambda: 'used up' in self.trace.read_text())
        for _ in range(2):
            client = Client(self.socket)
            client.send('e one\n')
            client.expect('one\n' + PROMPT)
            client.end_input()
            self.assertEqual(client.rest(), '')
            wait_until(lambda: {os.readlink(f'/proc/{self.daemon}/fd/{fd}') for fd in range(3)} == {'/dev/null'})
        self.stop_daemon()

    def test_a_process_that_has_the_connection_holds_nobody(self):
        self.start_daemon('--heir')
        client = Client(self.socket)
        client.send('heir\n')
        client.expect(PROMPT + PROMPT)
        client.end_input()
        self.assertEqual(client.rest(), '')
        self.stop_daemon()
        for line in self.trace.read_text().splitlines():
            if line.startswith('heir '):
                os.kill(int(line[5:]), signal.SIGTERM)
                wait_for(int(line[5:]))

    def test_a_print_ends_the_connection_it_was_made_on_alone(self):
        self.start_daemon()
        last = Client(self.socket)  # never reads
        last.send('aside 2000000\n')
        last.await_full()
        last.end_input()
        client = Client(self.socket)
        client.expect(WELCOME + PROMPT)
        wait_until(lambda: 'printed' in self.trace.read_text())
        client.send('e one\n')
        self.assertEqual(client.expect('one\n'), 'one\n')
        client.hang_up()
        self.stop_daemon()

    def test_a_deaf_shell_is_cut_off_whatever_prints_and_interrupts(self):
        self.start_daemon('--alarm')
        for command in 'flood 10000', 'printf 100000':
            deaf = Client(self.socket)
            deaf.send(command + '\n')
            self.expect_service()
            deaf.hang_up()
        self.end_daemon()

    def test_nothing_waits_for_a_reader_at_the_end(self):
        everywhere = ((STANDALONE, PIPES), (STANDALONE, TERMINAL), (DAEMON, None), (SHELL, PIPES), (SHELL, TERMINAL))
        for command, places in (('flood 20000', everywhere), ('printf 20000', () if DEFERS_SIGNALS else everywhere),
                                ('aside 2000000', everywhere), ('raw', ((STANDALONE, PIPES), (DAEMON, None)))):
            for mode, console in places:
                with self.subTest(f'{command}, {mode} on {console}'):
                    if mode != STANDALONE:
                        self.start_daemon()
                    unread = Client(self.socket) if mode == DAEMON else self.run_it(console=console)
                    unread.expect(PROMPT)
                    unread.send(command + '\n')
                    unread.await_full()
                    stuck = self.daemon if mode == DAEMON else unread.pid
                    os.kill(stuck, signal.SIGTERM)
                    self.assertEqual(wait_for(stuck), 0)
                    unread.hang_up()
                    if mode == SHELL:
                        self.end_daemon()

    def test_each_shell_begins_in_the_charset_of_the_daemon(self):
        self.start_daemon()
        self.assertEqual(self.say('-stop', '-gb'), gb18030(WELCOME + PROMPT + GOODBYE) + '=0')
        self.assertEqual(wait_for(self.daemon), 0)
        self.assertEqual(self.say('-start', '-gb'), '=0')
        for typed in '', 'utf8\n':
            client = Client(self.socket)
            client.send(typed)
            client.end_input()
            self.assertTrue(client.rest().startswith(gb18030(WELCOME) + PROMPT))
            client.hang_up()
        for option, charset in ((), gb18030), (('-gb',), gb18030), (('-utf8',), str):
            shell = self.run_it(*option)
            shell.expect(charset(WELCOME))
            shell.send('nonsense\nq\n')
            self.assertIn(charset(UNKNOWN), shell.rest())
            self.assertEqual(shell.wait(), 0)
        daemon, = children()
        self.assertEqual(self.say('-stop', '-utf8'), WELCOME + PROMPT + GOODBYE + '=0')
        self.assertEqual(wait_for(daemon), 0)

    def test_shells_that_misbehave_do_not_disturb_the_next(self):
        self.start_daemon()
        noise = text(bytes(i * 7919 >> 3 & 255 for i in range(10000)))
        for what, typed, answer in (
                ('leaves at once', '', ''),
                ('leaves in the middle of a word', 'e one\nsto', 'one\n'),
                ('is half typed and complete together', 'e one\npid', 'one\n'),
                ('sends binary data', noise + '\n', UNKNOWN),
                ('never ends its line', 'x' * 200000, WELCOME),
                ('chooses another charset', 'gb\ne one\n', 'one\n'),
                ('lets the service fork', 'worker\n', 'worked\n'),
                ('leaves while it is told much', 'flood 1000\n', 'xxx')):
            with self.subTest(what):
                client = Client(self.socket)
                client.send(typed)
                client.expect(answer)
                client.hang_up()
                self.expect_service()
        self.stop_daemon()

    def test_a_shell_on_pipes_shows_everything_that_was_answered(self):
        self.start_daemon()
        said = self.say('-gb', typed='e 中\nq\n')
        self.assertIn(gb18030('中\n'), said)
        self.assertIn(gb18030(WELCOME), said, "the daemon's words in the shell's charset")
        said = self.say(typed='w one\nw two\n')  # each answer comes before the next line is asked for
        self.assertIn(f'{WELCOME}{PROMPT}{self.daemon}:one\n{PROMPT}{self.daemon}:two\n{PROMPT}', said)
        self.assertLessEqual(said.count(PROMPT), 4, 'the first may come before the welcome')
        shell = self.run_it()
        shell.expect(WELCOME)
        os.kill(self.daemon, signal.SIGTERM)  # the shell leaves with the daemon
        self.assertIn(GOODBYE, shell.rest().replace(PROMPT, ''), 'its first prompt may come in between')
        self.assertEqual((shell.wait(), wait_for(self.daemon)), (0, 0))


ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
unittest.main()
