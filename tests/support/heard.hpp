// heard.hpp: what the library prints and logs while a test lives, from any thread.
#pragma once

#include <mutex>

#include "support/test.hpp"

struct Heard {
    static inline std::mutex lock;
    static inline Texts printed, logged; // "level text"

    Heard() {
        printed.clear();
        logged.clear();
        Tq4_debug_api->SetPrint(hear<printed>);
        Tq4_debug_api->SetLog(hear<logged>);
    }
    ~Heard() {
        Tq4_debug_api->SetPrint(nullptr);
        Tq4_debug_api->SetLog(nullptr);
    }
    template <Texts &texts> static void hear(int level, const char *format, va_list args) {
        note(texts, std::to_string(level) + " " + formatted(format, args));
    }
    static void note(Texts &texts, const std::string &line) {
        const std::lock_guard guard(lock);
        texts.push_back(line);
    }
};
