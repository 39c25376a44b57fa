// save: a file is replaced in one step, or written in place where that is refused.
//
// Writing in place has no one step. What the file grows by is written first: only that needs room, so a full disk is
// met while nothing but the file's length has changed. The old content is kept in memory and goes back when anything
// fails afterwards.
#include "file/ini/save.hpp"

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "file/replace.hpp"
#include "platform/multi_platform_system.hpp"
#include "tq4/file_api.h"

namespace {

constexpr mode_t Created_mode = 0660;
constexpr mode_t Made_mode = 0600; // of the new file, until it has the old one's

// Whether replacing a file failed for what its directory allows, and not for want of room: the directory may belong to
// somebody else, or the file be mounted there alone.
bool is_refusal(int error) { return error == EACCES || error == EPERM || error == EROFS || error == EBUSY; }

bool is_missing(int error) { return error == ENOENT || error == ENOTDIR; }

bool write_all(int descriptor, std::string_view bytes) { return MP_WriteAll(descriptor, bytes.data(), bytes.size()); }

bool write_at(int descriptor, std::size_t position, std::string_view bytes) {
    return MP_FileSeek(descriptor, static_cast<long>(position), SEEK_SET) >= 0 && write_all(descriptor, bytes);
}

// Replacing asks the directory alone, and would overwrite what this process may not write.
bool is_writable(const std::string &file) {
    const int descriptor = MP_SafeOpen(file.c_str(), O_RDWR, 0);
    return descriptor >= 0 && MP_FileClose(descriptor);
}

bool read_all(int descriptor, std::string *content) {
    char block[65536];
    for (;;) {
        const long n = MP_FileRead(descriptor, block, sizeof block);
        if (n <= 0) return n == 0;
        content->append(block, static_cast<std::size_t>(n));
    }
}

bool overwrite(int descriptor, std::string_view before, std::string_view text) {
    const std::size_t common = std::min(before.size(), text.size());
    return write_at(descriptor, common, text.substr(common)) && write_at(descriptor, 0, text.substr(0, common)) &&
           (text.size() >= before.size() || MP_FileTruncate(descriptor, text.size())) && MP_FileSync(descriptor);
}

// The length first, so that a device that takes no bytes any more, and took none, has its old content.
void put_back(int descriptor, std::string_view before) {
    MP_FileTruncate(descriptor, before.size());
    write_at(descriptor, 0, before);
    MP_FileSync(descriptor);
}

bool write_in_place(const std::string &file, std::string_view text) {
    const int descriptor = MP_SafeOpen(file.c_str(), O_RDWR, 0);
    if (descriptor < 0) return false;
    std::string before;
    bool written = false;
    if (read_all(descriptor, &before)) {
        written = overwrite(descriptor, before, text);
        if (!written) put_back(descriptor, before);
    }
    MP_FileClose(descriptor); // the content is on the medium: a failure now loses nothing
    return written;
}

bool replace(const std::string &file, const MP_FileInfo &old, std::string_view text) {
    if (!is_writable(file)) return false;
    std::string place;
    const bool replaced =
        MP_ResolvePath(file.c_str(), &place) && Tq4_replace_file(place, Made_mode, [&](int descriptor) {
            MP_FileSetOwner(descriptor, old.owner, old.group); // a service still reads what root has changed
            return MP_FileSetMode(descriptor, old.mode) && write_all(descriptor, text) && MP_FileSync(descriptor);
        });
    return replaced || (is_refusal(errno) && write_in_place(file, text));
}

bool make(const std::string &file, std::string_view text) {
    MP_MkdirBeforCreateFile(file.c_str(), Created_mode | 0111); // a failure shows below
    std::string place;
    return !file.ends_with('/') && MP_ResolvePath(file.c_str(), &place) &&
           Tq4_replace_file(place, Created_mode,
                            [&](int descriptor) { return write_all(descriptor, text) && MP_FileSync(descriptor); });
}

// A device or a pipe takes the text as it comes.
bool send(const std::string &file, std::string_view text) {
    const int descriptor = MP_SafeOpen(file.c_str(), O_RDWR, 0);
    if (descriptor < 0) return false;
    const bool sent = write_all(descriptor, text);
    return MP_FileClose(descriptor) && sent;
}

} // namespace

bool Tq4_config_save(const std::string &file, const std::string &text) {
    MP_FileInfo old;
    if (!MP_GetFileInfo(file.c_str(), 1, &old)) return is_missing(errno) && make(file, text);
    return old.type == Tq4_file_type_regular ? replace(file, old, text) : send(file, text);
}
