// walk.hpp: everything in a directory tree.
#pragma once

#include <functional>
#include <string>

#include "platform/multi_platform_fs.hpp"

// Called with the path of what was found (the directory as it was given, and the names from there) and what it is, a
// link being itself.
using Tq4_walk_visitor = std::function<void(const std::string &path, const MP_FileInfo &info)>;

// Visits all that is in a directory, and with recursive what is in the directories below, in no order but that a
// directory comes before what is in it. What cannot be read below, or is gone meanwhile, is passed over. False when the
// directory itself cannot be read.
bool Tq4_walk_tree(const std::string &directory, bool recursive, const Tq4_walk_visitor &visit);
