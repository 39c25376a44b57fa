// console: what is typed, as lines: by the readline library on a terminal, where it is installed, and otherwise by a
// reader of its own over the console's stream.
//
// Both wait for input in Await and read only what is there, so that a signal ends the wait and not the process.
// readline is loaded when a terminal first asks for a line: daemons and pipes do without its start-up time. It is told
// to read through ReadlineCharacter and to leave signals alone.
#include "app/app.hpp"

#include <algorithm>
#include <cstdlib>

#include "platform/multi_platform_console.hpp"
#include "platform/multi_platform_fs.hpp"
#include "platform/multi_platform_output.hpp"
#include "tq4/debug.h"
#include "tq4/system.h"

namespace {

constexpr std::size_t Longest_line = 65536; // bytes that are kept of one; an interactive line is far below
constexpr long Daemon_wait = 5000;          // milliseconds: for a daemon to read what was typed, and to answer
constexpr const char *prompt = "%s> ";

// Sets a variable of the library, if it has one of that name.
template <class Value> void set_variable(void *library, const char *name, Value value) {
    if (void *variable = Tq4_system_api->Function(library, name)) *static_cast<Value *>(variable) = value;
}

template <class Function> void find_function(void *library, const char *name, Function *function) {
    if (void *found = Tq4_system_api->Function(library, name)) *function = reinterpret_cast<Function>(found);
}

} // namespace

// Reads and obeys lines from descriptor 0; those for the service go to the connection, unless it is -1.
Tq4_app_farewell Tq4_app_obj::Converse(int connection) {
    const bool edit = m_run_type != Tq4_app_run_type_daemon && MP_IsTerminal(MP_standard_input) &&
                      MP_IsTerminal(MP_standard_output) && LoadReadline();
    (*m_stream)->Attach(m_stream.get(), MP_standard_input);
    m_lines = 0;
    Tq4_app_dialog dialog;
    dialog.read = [=, this](std::string *line) { return ReadLine(line, edit); };
    dialog.find = [this](const char *word) { return FindCmd(word); };
    dialog.remember = [this](const char *line) { add_history(line); };
    if (connection >= 0)
        dialog.forward = [=, this](const std::string &line) {
            const std::string with_end = line + "\n";
            ExpectPrompt();
            return MP_Output_Write(connection, with_end.data(), with_end.size(), Daemon_wait) != 0;
        };
    const auto said = Tq4_app_converse(dialog);
    (*m_stream)->Detach(m_stream.get()); // what else was typed is forgotten
    return said;
}

// Whether there is a line editor.
bool Tq4_app_obj::LoadReadline() {
    if (!readline_dll && (readline_dll = Tq4_system_api->LoadDll("libreadline.so"))) {
        find_function(readline_dll, "readline", &readline);
        find_function(readline_dll, "add_history", &add_history);
        set_variable(readline_dll, "rl_getc_function", ReadlineCharacter);
        set_variable(readline_dll, "rl_catch_signals", 0);
    }
    return readline != nullptr;
}

// Shows what the C library holds.
void Tq4_app_obj::Flush() const {
    if (!MP_FlushStandardOutput() && m_run_type == Tq4_app_run_type_daemon && !MP_Events_Ending())
        MP_SOCK_Shutdown(MP_standard_output, MP_Direction_both); // the shell does not read
}

Tq4_app_line Tq4_app_obj::ReadLine(std::string *line, bool edit) {
    Flush();
    if (!AwaitPrompt(Daemon_wait)) m_prompts_due = 0; // it may have been overlooked
    line->clear();
    Await(-1, 0); // a signal counts for more than the lines that are there already
    const Tq4_app_line found = m_ending ? Tq4_app_line::End : edit ? ReadEdited(line) : ReadPlain(line);
    if (found != Tq4_app_line::End) ++m_lines;
    return m_ending ? Tq4_app_line::End : found;
}

Tq4_app_line Tq4_app_obj::ReadPlain(std::string *line) {
    Tq4_debug_api->Printf(0, prompt, m_name);
    Flush(); // the program may have given Printf a sink that prints by the C library
    const Tq4_stream s = m_stream.get();
    for (bool too_long = false;;) {
        if ((*s)->Buffered(s) == 0 && !Await(MP_standard_input, -1)) return Tq4_app_line::End;
        const int byte = (*s)->ReadChar(s);
        // What a shell has not finished is no command; the last line of a file may lack its end.
        if (byte < 0 && (line->empty() || m_run_type == Tq4_app_run_type_daemon)) return Tq4_app_line::End;
        if (byte < 0 || byte == '\n') {
            if (line->ends_with('\r')) line->pop_back();
            return too_long ? Tq4_app_line::Too_long : Tq4_app_line::Text;
        }
        if (line->size() < Longest_line)
            line->push_back(static_cast<char>(byte));
        else
            too_long = true;
    }
}

Tq4_app_line Tq4_app_obj::ReadEdited(std::string *line) {
    char *typed = readline((m_name + std::string("> ")).c_str());
    if (!typed) return Tq4_app_line::End;
    *line = typed;
    std::free(typed);
    return Tq4_app_line::Text;
}

int Tq4_app_obj::ReadlineCharacter(std::FILE *) {
    unsigned char byte;
    const bool has_input = The().Await(MP_standard_input, -1);
    return has_input && MP_FileRead(MP_standard_input, &byte, 1) == 1 ? byte : EOF;
}
