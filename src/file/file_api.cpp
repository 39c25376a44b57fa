// file_api: files and directories by path, over the platform layer.
//
// Nothing is kept between calls. What reads or copies a whole file does so in blocks of one size.
#include "tq4/file_api.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>

#include "file/descriptor.hpp"
#include "file/replace.hpp"
#include "file/walk.hpp"
#include "platform/multi_platform_fs.hpp"
#include "platform/multi_platform_system.hpp"

namespace {

constexpr unsigned long Block_size = 65536;

// Calls use(bytes, n) with each block of a file until it gives false. True when the end was reached.
template <class Use> bool each_block(int descriptor, Use use) {
    const auto block = std::make_unique<char[]>(Block_size);
    for (;;) {
        const long n = MP_FileRead(descriptor, block.get(), Block_size);
        if (n <= 0) return n == 0;
        if (!use(block.get(), n)) return false;
    }
}

int Exist(const char *path) {
    MP_FileInfo info;
    return MP_GetFileInfo(path, 1, &info);
}

Tq4_file_type Type(const char *path) { return static_cast<Tq4_file_type>(MP_GetFileType(path)); }

long Size(const char *path) {
    MP_FileInfo info;
    return MP_GetFileInfo(path, 1, &info) ? static_cast<long>(info.size) : -1;
}

long SizeOf(int descriptor) {
    MP_FileInfo info;
    return MP_GetOpenFileInfo(descriptor, &info) ? static_cast<long>(info.size) : -1;
}

long LineCount(const char *path) {
    if (MP_GetFileType(path) != Tq4_file_type_regular) return -1;
    const Tq4_descriptor file(MP_SafeOpen(path, O_RDONLY, 0));
    if (!file) return -1;
    long lines = 0;
    char last = '\n';
    const bool whole = each_block(file.get(), [&](const char *bytes, long n) {
        lines += std::count(bytes, bytes + n, '\n');
        last = bytes[n - 1];
        return true;
    });
    return whole ? lines + (last != '\n') : -1;
}

constexpr mode_t Made_mode = 0600;       // until all is there
constexpr mode_t Permission_bits = 0777; // a copy that runs as its owner would be another owner's

int Copy(const char *from, const char *to) {
    MP_FileInfo source, target;
    if (!MP_GetFileInfo(from, 1, &source) || source.type != Tq4_file_type_regular || !to) return 0;
    if (MP_GetFileInfo(to, 0, &target) && target.type != Tq4_file_type_regular) return 0;
    const Tq4_descriptor in(MP_SafeOpen(from, O_RDONLY, 0));
    return in && Tq4_replace_file(to, Made_mode, [&](int out) {
               return each_block(in.get(),
                                 [out](const char *bytes, long n) {
                                     return MP_WriteAll(out, bytes, static_cast<std::size_t>(n));
                                 }) &&
                      MP_FileSetMode(out, source.mode & Permission_bits);
           });
}

int Rename(const char *from, const char *to) {
    if (MP_FileRename(from, to)) return 1;
    return MP_FileGetLastError() == EXDEV && Copy(from, to) && MP_FileDelete(from);
}

constexpr unsigned Owner_may_fill = 0300;

int MkDir(const char *path, unsigned mode) {
    if (!path || !*path) return 0;
    const std::string whole = path;
    for (std::size_t at = 0; (at = whole.find('/', at + 1)) != std::string::npos;)
        MP_DirMake(whole.substr(0, at).c_str(), mode | Owner_may_fill); // a failure shows below
    return MP_DirMake(path, mode);
}

bool remove_content(const char *path) {
    bool removed = true;
    const bool whole = Tq4_walk_tree(
        path, {.recursive = true, .refuse_link = true},
        [&](const Tq4_walk_entry &found) {
            if (found.info.type == Tq4_file_type_directory) return; // when it is empty
            removed = MP_FileDeleteIn(found.directory, found.name) && removed;
        },
        [&](const Tq4_walk_entry &left) { removed = MP_DirRemoveIn(left.directory, left.name) && removed; });
    return whole && removed;
}

int RmDir(const char *path, int recursive) {
    std::string directory = path ? path : "";
    while (!directory.empty() && directory.back() == '/') directory.pop_back(); // "link/" would be what it points to
    const std::string_view last = std::string_view(directory).substr(directory.rfind('/') + 1);
    if (last == "." || last == "..") { // the system refuses these too, but only when all in them would be gone
        errno = EINVAL;
        return 0;
    }
    MP_FileInfo info;
    if (!MP_GetFileInfo(directory.c_str(), 0, &info) || info.type != Tq4_file_type_directory) return 0;
    if (recursive && !remove_content(directory.c_str())) return 0;
    return MP_DirRemove(directory.c_str());
}

constinit const Tq4_file_api_ api_Tq4_file = {
    .Exist = Exist,
    .Type = Type,
    .Open = [](const char *path, int flags, unsigned mode) { return MP_SafeOpen(path, flags, mode); },
    .Close = MP_FileClose,
    .Size = Size,
    .SizeOf = SizeOf,
    .LineCount = LineCount,
    .Copy = Copy,
    .Rename = Rename,
    .Delete = MP_FileDelete,
    .MkDir = MkDir,
    .RmDir = RmDir,
};

} // namespace

extern "C" constinit const Tq4_file_api_ *const Tq4_file_api = &api_Tq4_file;
