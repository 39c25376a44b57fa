// walk.hpp: everything in a directory tree of any depth.
#pragma once

#include <functional>
#include <string>

#include "platform/multi_platform_fs.hpp"

// Something in the tree. All is borrowed for the call.
struct Tq4_walk_entry {
    const std::string &path; // the directory as it was given, and the names from there; may be too long for the system
    const char *name;        // the last of them
    int directory;           // the open directory that holds the name
    MP_FileInfo info;        // of a link itself
};
using Tq4_walk_visitor = std::function<void(const Tq4_walk_entry &entry)>;

struct Tq4_walk_options {
    bool recursive = false;   // also into the directories below, but through no link
    bool refuse_link = false; // the directory itself is no link either
};

// Calls found with all that is in a directory, in no order but that a directory comes before what is in it. Calls left,
// if there is one, with each directory below when all in it was visited, or could not be. What cannot be read below, or
// is gone meanwhile, is passed over. False when the directory itself cannot be read, or when the way back up is lost:
// somebody has moved a directory out of the tree.
bool Tq4_walk_tree(const std::string &directory, Tq4_walk_options options, const Tq4_walk_visitor &found,
                   const Tq4_walk_visitor &left = nullptr);
