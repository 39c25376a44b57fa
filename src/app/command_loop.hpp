// command_loop.hpp: the conversation with whoever types commands, without input and output of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "own.hpp"
#include "tq4/app.h"
#include "tq4/string.h"

// A console command.
struct Tq4_app_cmd {
    Tq4_hooked<Tq4_string> m_cmd_name;
    Tq4_hooked<Tq4_string> m_cmd_shortcut;
    Tq4_hooked<Tq4_string> m_comment;
    Tq4_app_cmd_handle m_cmd_handle;
    int16_t m_local_cmd; // 1: runs in this process in a shell too; 0: a shell hands the line to the daemon
    int16_t m_exit_flag; // 1: reading commands ends after it
};

enum class Tq4_app_line { Text, Too_long, End };

// The other side of the conversation.
struct Tq4_app_dialog {
    // Asks for the next line and stores it without its end. A line that is too long has been read over.
    std::function<Tq4_app_line(std::string *line)> read;
    // The command of a word; null when there is none.
    std::function<const Tq4_app_cmd *(const char *word)> find;
    // Keeps a line for the line editor.
    std::function<void(const char *line)> remember;
    // Hands a line to the daemon; false when that is gone. Empty: there is no daemon, every command runs here.
    std::function<bool(const std::string &line)> forward;
};

// How a conversation ended.
enum class Tq4_app_farewell {
    Left = 0, // whoever typed has gone: a daemon keeps running
    Stop = 1  // the service is to stop
};

// Reads and runs commands until one of them, the end of the input or the loss of the daemon ends it.
Tq4_app_farewell Tq4_app_converse(const Tq4_app_dialog &dialog);
