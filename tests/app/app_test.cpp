// The console from outside: a service, its daemon and its shells as real processes, on pipes, terminals and raw
// sockets.
//
// Each test has a directory of its own with a copy of the program in it, since the control socket lies beside that. The
// tests adopt daemons, so that each is waited for and none is left behind; what a sanitizer finds in one lies in a
// file.
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <sys/prctl.h>
#include <tuple>

#include "app/process.hpp"
#include "own.hpp"
#include "support/temp_dir.hpp"
#include "tq4/string.h"

namespace {

namespace fs = std::filesystem;

const std::string prompt = "svc> ";
const std::string unknown = "不识别的命令，请输入h(help) 获取帮助\n";
const std::string welcome = "欢迎使用svc服务，请输入命令来控制服务器，输入help(h)获得命令帮助\n";
const std::string goodbye = "服务程序 svc 准备退出....\n服务程序 svc 安全退出完成。\n";
const std::string started = "\n\n请输入指令，如需帮助，请输入h(help)\n";

std::string gb18030(const char *utf8) {
    const auto s = Tq4_make<Tq4_string>(Tq4_string_oitf);
    (*s)->utf8_2_gb18030(s.get(), utf8, TQ4_ALL_ONES);
    return (*s)->c_str(s.get());
}

struct Console : testing::Test {
    Temp_dir dir;
    const std::string program = dir / "svc", trace = dir / "trace", socket_path = dir / "tq4_run_var/svc/__1pipe__";
    pid_t daemon = -1;

    Console() {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        fs::copy_file(TQ4_TEST_SERVICE, program);
    }
    ~Console() override {
        if (daemon > 0) kill(daemon, SIGKILL), wait_for(daemon);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left behind";
        for (const auto &file : fs::directory_iterator(dir.path()))
            if (file.path().filename().string().starts_with("san.")) ADD_FAILURE() << content(file.path());
    }
    Process run(const std::vector<std::string> &arguments, Process::Console console = Process::Pipes,
                const std::vector<std::string> &settings = {}) {
        std::vector<std::string> command{program}, environment{"TRACE=" + trace};
        command.insert(command.end(), arguments.begin(), arguments.end());
        environment.insert(environment.end(), settings.begin(), settings.end());
        for (const char *name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
            const char *options = std::getenv(name);
            environment.push_back(std::string(name) + "=" + (options ? options : "") + ":log_path=" + (dir / "san"));
        }
        return Process(command, environment, console);
    }
    // Runs it to its end, and gives what it said and its exit code.
    std::string say(const std::vector<std::string> &arguments, const std::string &typed = "") {
        Process p = run(arguments);
        p.send(typed);
        p.end_input();
        return p.rest() + "=" + std::to_string(p.wait());
    }
    // What the daemon tells the next shell.
    pid_t ask_pid() const {
        Client client(socket_path);
        EXPECT_EQ(client.expect(prompt), welcome + prompt);
        client.send("pid\n");
        return std::stoi("0" + client.expect("\n"));
    }
    void start_daemon() {
        EXPECT_EQ(say({"-start"}), "=0");
        daemon = ask_pid();
    }
    void expect_service() { EXPECT_EQ(ask_pid(), daemon); }
    int end_of_daemon() { return wait_for(std::exchange(daemon, -1)); }
};

// What the service has said after the greeting.
std::string conversation(const std::string &said) { return said.substr(said.find(started) + started.size()); }

TEST_F(Console, OptionsThatPrintDoNotStartAnything) {
    const std::string help = R"(        参数         [缩写] :  描述
--charset=utf8       [-utf8   ] : console print in utf8 charset
--charset=gb18030    [-gb     ] : console print in gb18030 charset
--service=start      [-start  ] : 以后台服务模式启动程序
--service=stop       [-stop   ] : 停止先前以后台服务方式运行的进程
--help               [-h      ] : 显示帮助
--version            [-v      ] : 显示版本
)";
    const std::string version = "svc    \n版本号:1.2\n编译时间：today\n作者:测试\n";
    for (const char *option : {"-h", "--help"}) EXPECT_EQ(say({option}), help + "=1");
    for (const char *option : {"-v", "--version"}) EXPECT_EQ(say({"-utf8", option}), version + "=1");
    EXPECT_EQ(say({"-gb", "-v"}), gb18030(version.c_str()) + "=1");
    for (const char *option : {"-stop", "--service=stop"}) EXPECT_EQ(say({option}), "svc 服务没有运行\n=1");
    EXPECT_FALSE(fs::exists(trace));
}

TEST_F(Console, StandaloneIsServiceAndCommandLineInOne) {
    const std::string said = say({"--charset=utf8"}, "q\n");
    const std::string listed = R"(svc服务运行于独立模式（服务+命令行交互一体）
        指令         [缩写] :  描述
help                 [h    ] : 显示帮助
version              [v    ] : 显示版本
quit                 [q    ] : 退出交互，对于独立运行程序，意味着完整退出，对于后台服务，意味着服务还继续
stop                 [     ] : 停止后台服务和前台交互
utf8                 [utf  ] : console print in utf8 charset
gb18030              [gb   ] : console print in gb18030 charset
echo                 [e    ] : print the rest
)";
    EXPECT_EQ(said.substr(0, listed.size()), listed);
    EXPECT_TRUE(said.ends_with("found                [     ] : look an object up\n\n" + started + prompt + "=1"))
        << said;
    EXPECT_EQ(content(trace), "start 2\nstop\ndelete second\ndelete first\n");
}

TEST_F(Console, LinesAreAWordAndTheRest) {
    const std::tuple<std::string, std::string> cases[] = {
        {"e a  b \n", "a  b \n" + prompt},
        {" \t e\t \tx\r\n", "x\n" + prompt},
        {"e\n", "\n" + prompt},
        {"\n \t\n\r\n", prompt + prompt + prompt},
        {"echo x\n", "the shortcut\n" + prompt},
        {"stdio x\ne y\n", "x" + prompt + "y\n" + prompt},
        {"found second\nfound third\n", "second\n" + prompt + "nothing\n" + prompt},
        {"nonsense\n", unknown + prompt},
        {"E x\n", unknown + prompt},
        {std::string("q\0\ne\0 x\n", 8), unknown + prompt + unknown + prompt},
        {"e " + std::string(100000, 'y') + "\ne z\n", unknown + prompt + "z\n" + prompt},
        {"gb\nv\nutf\ne 中\n",
         prompt + gb18030("svc    \n版本号:1.2\n编译时间：today\n作者:测试\n") + prompt + prompt + "中\n" + prompt},
        {"e half", "half\n" + prompt},
        {"stop\ne x\n", ""},
    };
    for (const auto &[typed, answer] : cases) EXPECT_EQ(conversation(say({}, typed)), prompt + answer + "=1") << typed;
    EXPECT_EQ(conversation(say({"x", "--y=1", "-z", "1", "-", "-utf8"}, "a\nq\n")),
              prompt + " = x;--y=1;-z = 1 = -;-utf8;\n" + prompt + "=1");
}

// A datagram socket that a supervisor listens on, by a path or, with '@', by a name in the abstract space.
struct Supervisor {
    const int listening = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);

    explicit Supervisor(std::string name) {
        if (name[0] == '@') name[0] = '\0';
        const sockaddr_un address = local_address(name);
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(bind(listening, reinterpret_cast<const sockaddr *>(&address), size), 0);
    }
    ~Supervisor() { close(listening); }
    std::string told() const {
        char text[100];
        return {text, await_input(listening) ? static_cast<std::size_t>(recv(listening, text, sizeof text, 0)) : 0};
    }
};

TEST_F(Console, SignalsEndItInOrderAndASupervisorIsTold) {
    const std::string at_path = dir / "notify", abstract = "@" + at_path;
    const std::tuple<Process::Console, std::string, std::string, int> cases[] = {
        {Process::No_input, at_path, "", SIGINT}, // unattended
        {Process::Pipes, abstract, "", SIGTERM},  // unattended: at its end from the start
        {Process::Pipes, at_path + "2", "half a line", SIGTERM},
        {Process::Terminal, abstract + "2", "half a line", SIGINT},
    };
    for (const auto &[console, notified, typed, ending] : cases) {
        const Supervisor supervisor(notified);
        fs::remove(trace);
        Process p = run({"--stdio"}, console, {"NOTIFY_SOCKET=" + notified});
        EXPECT_EQ(supervisor.told(), "READY=1");
        if (typed.empty())
            p.end_input();
        else
            p.send(typed);
        p.expect(prompt);
        kill(p.pid(), SIGHUP);
        kill(p.pid(), ending);
        EXPECT_EQ(supervisor.told(), "STOPPING=1");
        EXPECT_EQ(p.wait(), 1);
        EXPECT_EQ(content(trace), "start 2\nstop\ndelete second\ndelete first\n");
    }
}

TEST_F(Console, ShellsComeAndGoAndStopEndsBoth) {
    start_daemon();
    {
        Process shell = run({}, Process::Terminal);
        shell.expect("svc服务程序已经运行，现在进入命令交互模式\r\n"
                     "svc服务运行于命令交互模式（实际服务在后台进程）\r\n");
        shell.expect("欢迎使用svc服务");
        shell.send("nonsense\n");
        shell.expect("不识别的命令");
        shell.send("pid\n"); // a program's command runs where it is typed
        shell.expect(std::to_string(shell.pid()) + "\r\n");
        shell.send("q\n");
        EXPECT_EQ(shell.wait(), 1);
    }
    expect_service();
    Process unread = run({});
    unread.hang_up();
    EXPECT_EQ(unread.wait(), 1) << "what it says reaches nobody";
    Process shell = run({"-start"}, Process::Terminal);
    shell.expect("欢迎使用svc服务");
    shell.send("stop\n");
    shell.expect("服务程序 svc 准备退出....\r\n服务程序 svc 安全退出完成。\r\n");
    EXPECT_EQ(shell.wait(), 1);
    EXPECT_EQ(end_of_daemon(), 1);
    EXPECT_FALSE(fs::exists(socket_path));
}

TEST_F(Console, TheDaemonIsDetachedAndForOwnerAndGroupAlone) {
    EXPECT_EQ(run({"-start"}, Process::No_input).wait(), 0);
    daemon = ask_pid();
    expect_service(); // the shell that told the pid has gone
    for (const char *path : {"tq4_run_var", "tq4_run_var/svc", "tq4_run_var/svc/__1pipe__"})
        EXPECT_EQ(fs::status(dir / path).permissions(), fs::perms{0770}) << path;
    EXPECT_NE(getsid(daemon), getsid(0));
    EXPECT_NE(getsid(daemon), daemon);
    Client silent(socket_path);
    silent.expect(welcome + prompt);
    kill(daemon, SIGHUP);
    kill(daemon, SIGTERM); // also while a shell is attached
    EXPECT_EQ(silent.rest(), goodbye);
    EXPECT_EQ(end_of_daemon(), 1);
    std::string log;
    for (const auto &file : fs::recursive_directory_iterator(dir / "log_files"))
        if (file.is_regular_file()) log += content(file.path());
    for (const char *line : {"made\n", "svc 运行于后台模式\n", "服务程序 svc 安全退出完成。\n"})
        EXPECT_NE(log.find(line), std::string::npos) << log;
    EXPECT_EQ(content(trace), "start 2\nstop\ndelete second\ndelete first\n");
}

TEST_F(Console, ARefusedStartLeavesNothing) {
    EXPECT_EQ(say({"--refuse"}), "=1");
    EXPECT_EQ(say({"-start", "--refuse"}), "=0");
    int status = 0;
    ASSERT_GT(waitpid(-1, &status, 0), 0) << "the daemon was adopted";
    EXPECT_EQ(static_cast<signed char>(WEXITSTATUS(status)), -3);
    EXPECT_FALSE(fs::exists(socket_path));
    const std::string once = "\nstop\ndelete second\ndelete first\n";
    EXPECT_EQ(content(trace), "start 2" + once + "start 3" + once);
}

TEST_F(Console, ADeadDaemonIsToldFromALivingOne) {
    start_daemon();
    kill(daemon, SIGKILL);
    EXPECT_EQ(end_of_daemon(), -SIGKILL);
    EXPECT_EQ(say({"-stop"}), "连接svc服务程序失败，请检查服务程序是否正常运行\n=" + std::to_string(-100 & 255));
    EXPECT_EQ(conversation(say({}, "q\n")), prompt + "=1") << "standalone";
    for (int round = 0; round < 3; ++round) { // a new daemon can be started as soon as the old one has said goodbye
        start_daemon();
        EXPECT_EQ(say({"-stop"}), welcome + prompt + goodbye + "=1");
        EXPECT_FALSE(fs::exists(socket_path));
        EXPECT_EQ(end_of_daemon(), 1);
    }
}

TEST_F(Console, AControlSocketThatCannotBeMadeIsTold) {
    for (const char *in_the_way : {"tq4_run_var", "tq4_run_var/svc/__1pipe__"}) {
        fs::create_directories(fs::path(dir / in_the_way).parent_path());
        std::ofstream(dir / in_the_way) << "x";
        EXPECT_EQ(say({"-start"}), "创建管道" + socket_path + "失败\n=255");
        EXPECT_EQ(content(dir / in_the_way), "x");
        fs::remove(dir / in_the_way);
    }
    EXPECT_FALSE(fs::exists(trace));
}

TEST_F(Console, ShellsThatMisbehaveDoNotDisturbTheNext) {
    start_daemon();
    std::string noise;
    for (int i = 0; i < 10000; ++i) noise += static_cast<char>(i * 7919 >> 3);
    const std::tuple<const char *, std::string, std::string> cases[] = {
        {"leaves at once", "", ""},
        {"leaves in the middle of a word", "e one\nsto", "one\n"},
        {"is half typed and complete together", "e one\npid", "one\n"},
        {"sends binary data", noise + "\n", unknown},
        {"never ends its line", std::string(200000, 'x'), welcome},
        {"chooses another charset", "gb\ne one\n", "one\n"},
        {"lets the service fork", "worker\n", "worked\n"},
        {"leaves while it is told much", "flood 1000\n", "xxx"},
    };
    for (const auto &[what, typed, answer] : cases) {
        SCOPED_TRACE(what);
        Client client(socket_path);
        client.send(typed);
        client.expect(answer);
        client.hang_up();
        expect_service();
    }
    Client deaf(socket_path); // never reads: after a while it is cut off
    deaf.send("flood 100000\n");
    expect_service();
    EXPECT_EQ(say({"-stop"}), welcome + prompt + goodbye + "=1");
    EXPECT_EQ(end_of_daemon(), 1);
}

TEST_F(Console, AShellOnPipesShowsEverythingThatWasAnswered) {
    start_daemon();
    const std::string said = say({"-gb"}, "e 中\nq\n");
    EXPECT_NE(said.find(gb18030("中\n")), std::string::npos);
    EXPECT_NE(said.find(gb18030(welcome.c_str())), std::string::npos) << "the daemon's words in the shell's charset";
    Process shell = run({});
    shell.expect(welcome);
    kill(daemon, SIGTERM); // the shell leaves with the daemon
    EXPECT_NE(shell.rest().find(goodbye), std::string::npos);
    EXPECT_EQ(shell.wait(), 1);
    EXPECT_EQ(end_of_daemon(), 1);
}

TEST_F(Console, LinesAreEditedWhereReadlineIsInstalled) {
    const std::string again = "\x1b[A\n"; // the cursor key, and enter
    std::ofstream(dir / "libreadline.so") << "no library";
    for (const bool plain : {true, false}) {
        Process p = run({}, Process::Terminal, {"TERM=vt100", "LD_LIBRARY_PATH=" + (plain ? dir.path() : "")});
        p.expect(prompt);
        p.send("pid\n");
        p.expect(std::to_string(p.pid()) + "\r\n");
        p.expect(prompt);
        p.send(again);
        const std::string answer = p.expect("\r\n") + p.expect("\r\n");
        p.send("q\n");
        const bool kept = answer.find(std::to_string(p.pid())) != std::string::npos;
        EXPECT_NE(kept, answer.find("不识别的命令") != std::string::npos) << answer;
        if (plain)
            EXPECT_FALSE(kept);
        else if (!kept)
            GTEST_SKIP() << "libreadline.so is not installed here";
    }
}

} // namespace
