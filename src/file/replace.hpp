// replace.hpp: a file's content replaced in one step. It is written beside the file and renamed over it, so that what
// stands at the path is always either the old content or the whole new one.
#pragma once

#include <cerrno>
#include <string>

#include "platform/multi_platform_fs.hpp"

// Makes the file at path anew. fill(descriptor) writes the content to a new file with these permission bits (the
// process's mask applies), may give it others, and tells whether it could. False, with path as it was and the system
// error number telling why, when anything fails.
template <class Fill> bool Tq4_replace_file(const std::string &path, mode_t mode, Fill fill) {
    std::string made;
    const int descriptor = MP_FileMakeBeside(path.c_str(), mode, &made);
    if (descriptor < 0) return false;
    const bool filled = fill(descriptor);
    const int filling = errno;
    const bool closed = MP_FileClose(descriptor);
    if (filled && closed && MP_FileRename(made.c_str(), path.c_str())) return true;
    const int reason = filled ? errno : filling;
    MP_FileDelete(made.c_str());
    errno = reason;
    return false;
}
