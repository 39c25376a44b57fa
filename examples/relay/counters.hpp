// counters.hpp: what the relay counts, by name; kept in a file, so that it survives the service.
//
// Threads: any.
#pragma once

#include <mutex>
#include <string>

#include <tq4/tq4.h>

#include "../object.hpp"

class Counters {
public:
    // Goes on from what is in the file.
    explicit Counters(std::string file);

    void Add(const char *name, long n = 1);
    // All of them as JSON.
    std::string Json();
    // Writes the file, so that whoever reads it finds it whole. False when it cannot be written.
    bool Save();

private:
    std::string m_file;
    std::mutex m_mutex;
    Object<Tq4_value> m_value{Tq4_value_oitf}; // the table, as a value: that is what becomes JSON
    Tq4_value_table m_table;                   // borrowed from it
};
