// save.hpp: a configuration's text on its way to a file.
#pragma once

#include <string>

// Makes the text the content of the file, which is made where it is missing, with its directories. A regular file is
// replaced in one step, where a link leads; where its directory lets nothing be made or replaced, it is written in
// place. False, with the old content there, when anything fails; in place the device must take it back.
bool Tq4_config_save(const std::string &file, const std::string &text);
