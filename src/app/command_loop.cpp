// command_loop: a line is a word and the rest. The word names a command, which runs here or is handed to the daemon;
// the whole line is handed over as it was typed. Nothing is kept between lines.
//
// Lines are bytes from outside: a NUL is no part of any command, and a line that holds one is unknown, as one that is
// too long is.
#include "app/command_loop.hpp"

#include "tq4/debug.h"

namespace {

constexpr const char *blanks = " \t";
constexpr const char *unknown_command = "不识别的命令，请输入h(help) 获取帮助\n";

enum class After { Go_on, Leave, Stop };

// A command that ends reading leaves the console; when it is the service's own, it stops the service.
After after(const Tq4_app_cmd &command) {
    if (!command.m_exit_flag) return After::Go_on;
    return command.m_local_cmd ? After::Leave : After::Stop;
}

After obey(const Tq4_app_dialog &dialog, const std::string &line) {
    const std::size_t start = line.find_first_not_of(blanks);
    if (start == std::string::npos) return After::Go_on;
    dialog.remember(line.c_str() + start);
    const std::size_t end = std::min(line.find_first_of(blanks, start), line.size());
    const bool holds_nul = line.find('\0') != std::string::npos;
    const Tq4_app_cmd *command = holds_nul ? nullptr : dialog.find(line.substr(start, end - start).c_str());
    if (!command) {
        Tq4_debug_api->Printf(0, "%s", unknown_command);
        return After::Go_on;
    }
    if (dialog.forward && !command->m_local_cmd) return dialog.forward(line) ? after(*command) : After::Leave;
    const std::size_t rest = std::min(line.find_first_not_of(blanks, end), line.size());
    command->m_cmd_handle(line.c_str() + rest);
    return after(*command);
}

} // namespace

Tq4_app_farewell Tq4_app_converse(const Tq4_app_dialog &dialog) {
    std::string line;
    for (After then = After::Go_on;;) {
        switch (dialog.read(&line)) {
        case Tq4_app_line::End:
            return Tq4_app_farewell::Left;
        case Tq4_app_line::Text:
            then = obey(dialog, line);
            break;
        case Tq4_app_line::Too_long:
            Tq4_debug_api->Printf(0, "%s", unknown_command);
            break;
        }
        if (then == After::Leave) return Tq4_app_farewell::Left;
        if (then == After::Stop) return Tq4_app_farewell::Stop;
    }
}
