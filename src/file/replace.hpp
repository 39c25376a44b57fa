// replace.hpp: a file's content replaced in one step. It is written beside the file and renamed over it, so that what
// stands at the path is always either the old content or the whole new one.
#pragma once

#include <climits>
#include <string>

#include "platform/multi_platform_fs.hpp"
#include "platform/multi_platform_system.hpp"

// Writes n bytes to a descriptor. False when the system refused before all were written.
inline bool Tq4_write_all(int descriptor, const char *bytes, long n) {
    while (n > 0) {
        const long written = MP_Write(descriptor, bytes, static_cast<unsigned long>(n));
        if (written <= 0) return false;
        bytes += written;
        n -= written;
    }
    return true;
}

// What the name of a new file beside that at path is made from; the name is cut when it leaves no room for more.
inline std::string Tq4_name_beside(const std::string &path) {
    const std::string filled_in = ".XXXXXX";
    const std::size_t name = path.rfind('/') + 1; // 0 without a '/'
    return path.substr(0, name + NAME_MAX - filled_in.size()) + filled_in;
}

// Makes the file at path anew with these permission bits: fill(descriptor) writes the content and tells whether it
// could. False, with path as it was, when anything fails.
template <class Fill> bool Tq4_replace_file(const std::string &path, mode_t mode, Fill fill) {
    std::string made = Tq4_name_beside(path);
    if (MP_TempFile(made.data())) return false;
    const int descriptor = MP_SafeOpen(made.c_str(), O_WRONLY, 0);
    bool whole = descriptor >= 0 && fill(descriptor) && MP_FileSetMode(descriptor, mode);
    if (descriptor >= 0) whole = MP_FileClose(descriptor) && whole;
    if (whole && MP_FileRename(made.c_str(), path.c_str())) return true;
    MP_FileDelete(made.c_str());
    return false;
}
