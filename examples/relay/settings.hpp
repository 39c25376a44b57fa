// settings.hpp: the relay's settings: one file, which people edit and `set` writes.
#pragma once

#include <string>

#include <tq4/tq4.h>

#include "../object.hpp"

class Settings {
public:
    explicit Settings(std::string file);

    // Reads the file again. True when something in it has changed.
    bool Reload();
    // A setting by its dotted name ("relay.name"; without a dot it is in [relay]); missing when there is none.
    std::string Get(const std::string &name, const std::string &missing = "");
    long GetNumber(const std::string &name, long missing);
    bool Has(const std::string &name);
    // Changes a setting and writes the file, whose comments stay. False when the value or the file cannot be written.
    bool Set(const std::string &name, const std::string &value);

private:
    std::string m_file;
    Object<Tq4_config> m_config{Tq4_config_oitf};

    // Moves to the section of a name, and gives its key; with make, the missing sections are made. Empty when the
    // section is missing.
    std::string Go(const std::string &name, bool make);
};
