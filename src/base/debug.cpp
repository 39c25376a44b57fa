// debug: where the library prints and logs.
//
// One global record of two sinks that a host may exchange, and what it wants kept beside them. There is no lock: what
// may change while threads print is atomic, and the rest is set at start-up by one thread. The built-in sinks keep
// nothing between calls: each formats into a string of its own, with the string's engine, so that a format means the
// same to every sink.
#include "base/debug.hpp"

#include <atomic>

#include "own.hpp"
#include "platform/multi_platform_console.hpp"
#include "platform/multi_platform_output.hpp"
#include "platform/multi_platform_system.hpp"
#include "tq4/debug.h"
#include "tq4/string.h"

namespace {

constexpr long longest_wait_ms = 1000; // for the reader of standard error
constexpr int highest_logged_level = 0;
// Facility "user", severity 0: the same for every message, deliberately; who filters the system log relies on it.
constexpr int system_log_priority = 8;

void write_to_standard_output(const char *bytes, std::size_t size) { MP_WriteAll(MP_standard_output, bytes, size); }

void print_built_in(int level, const char *format, va_list args);
void log_built_in(int level, const char *format, va_list args);

struct Tq4_debug_GlobalData {
    std::atomic<Tq4_debug_sink> __Print_funcV;
    std::atomic<Tq4_debug_sink> __Log_funcV;
    const void *__hEventSource; // not null once Init has run, and for good
    std::atomic<int> gb18030;   // non-zero: the built-in print sink converts from UTF-8; any thread changes it
    void *printf_obj;           // borrowed, the host's
    void *log_obj;              // borrowed, the host's
};
constinit Tq4_debug_GlobalData _Tq4_debug_GlobalData = {print_built_in, log_built_in, nullptr, 0, nullptr, nullptr};

// The formatted text in the console's charset.
Tq4_own<Tq4_string> console_text(const char *format, va_list args) {
    auto text = Tq4_make<Tq4_string>(Tq4_string_oitf);
    (*text)->vSprintf(text.get(), format, args);
    if (_Tq4_debug_GlobalData.gb18030) {
        auto converted = Tq4_make<Tq4_string>(Tq4_string_oitf);
        (*converted)
            ->utf8_2_gb18030(converted.get(), (*text)->c_str(text.get()),
                             static_cast<unsigned long>((*text)->length(text.get())));
        text = std::move(converted);
    }
    return text;
}

void print_built_in(int, const char *format, va_list args) {
    const auto text = console_text(format, args);
    Tq4_debug_write((*text)->c_str(text.get()), static_cast<std::size_t>((*text)->length(text.get())));
}

void log_built_in(int level, const char *format, va_list args) {
    if (level > highest_logged_level) return;
    auto text = Tq4_make<Tq4_string>(Tq4_string_oitf);
    (*text)->vSprintf(text.get(), format, args);
    MP_WriteSystemLog(system_log_priority, (*text)->c_str(text.get()));
}

void Init() {
    if (_Tq4_debug_GlobalData.__hEventSource) return;
    MP_OpenSystemLog("Tq4_Base");
    _Tq4_debug_GlobalData.__hEventSource = &_Tq4_debug_GlobalData;
}

void UnInit() {
    // Deliberate: the mark stays, so that a later Init does not open the log again.
    if (_Tq4_debug_GlobalData.__hEventSource) MP_CloseSystemLog();
}

// The sink, or the built-in one for null.
template <auto Sink, auto BuiltIn> void set_sink(Tq4_debug_sink sink) {
    _Tq4_debug_GlobalData.*Sink = sink ? sink : BuiltIn;
}

template <auto Sink> void forward_list(int level, const char *format, va_list args) {
    (_Tq4_debug_GlobalData.*Sink).load()(level, format, args);
}

template <auto Sink> void forward(int level, const char *format, ...) {
    va_list args;
    va_start(args, format);
    forward_list<Sink>(level, format, args);
    va_end(args);
}

using Data = Tq4_debug_GlobalData;

constexpr Tq4_debug_ api_Tq4_debug = {
    .Init = Init,
    .UnInit = UnInit,
    .Charset = [](int gb18030) { _Tq4_debug_GlobalData.gb18030 = gb18030; },
    .Printf = forward<&Data::__Print_funcV>,
    .vPrintf = forward_list<&Data::__Print_funcV>,
    .log = forward<&Data::__Log_funcV>,
    .vlog = forward_list<&Data::__Log_funcV>,
    .SetPrint = set_sink<&Data::__Print_funcV, print_built_in>,
    .SetLog = set_sink<&Data::__Log_funcV, log_built_in>,
    .SetPrintObj = [](void *object) { _Tq4_debug_GlobalData.printf_obj = object; },
    .SetLogObj = [](void *object) { _Tq4_debug_GlobalData.log_obj = object; },
    .GetPrintObj = [] { return _Tq4_debug_GlobalData.printf_obj; },
    .GetLogObj = [] { return _Tq4_debug_GlobalData.log_obj; },
};

} // namespace

void (*Tq4_debug_write)(const char *, std::size_t) = write_to_standard_output;

void Tq4_debug_restore_log(Tq4_debug_sink own) {
    _Tq4_debug_GlobalData.__Log_funcV.compare_exchange_strong(own, log_built_in);
}

void Tq4_debug_tell_error(const char *format, ...) {
    va_list args;
    va_start(args, format);
    const auto text = console_text(format, args);
    va_end(args);
    MP_Output_Tell(MP_standard_error, (*text)->c_str(text.get()), static_cast<std::size_t>((*text)->length(text.get())),
                   longest_wait_ms);
}

extern "C" constinit const Tq4_debug_ *const Tq4_debug_api = &api_Tq4_debug;
