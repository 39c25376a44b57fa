// multi_platform_fs: files, directories and paths.
//
// Splitting a path copies nothing: the parts are views into it. Making a directory that another process makes at the
// same moment counts as success: what matters is that it is there afterwards.
#include "platform/multi_platform_fs.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

constexpr int type_directory = 1;
constexpr int type_regular = 2;
constexpr const char *separators = "/\\";
constexpr std::size_t longest_prefix = 260;
constexpr mode_t permission_bits = 07777;
constexpr mode_t execute_bits = S_IXUSR | S_IXGRP | S_IXOTH;

uint64_t size_of(int examined, const struct stat &status) {
    return examined == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

int type_of(const struct stat &status) {
    if (S_ISDIR(status.st_mode)) return type_directory;
    return S_ISREG(status.st_mode) ? type_regular : 0;
}

bool describe(int examined, const struct stat &status, MP_FileInfo *info) {
    if (examined != 0) return false;
    *info = {type_of(status),
             static_cast<uint64_t>(status.st_size),
             status.st_mode & permission_bits,
             status.st_uid,
             status.st_gid,
             status.st_dev,
             status.st_ino};
    return true;
}

// A system call, made again while a signal interrupts it.
template <class Call> auto restarted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

bool make_directory(const char *path, mode_t mode) {
    if (MP_GetFileType(path) == type_directory || mkdir(path, mode) == 0) return true;
    return errno == EEXIST && MP_GetFileType(path) == type_directory; // made by somebody else meanwhile
}

// Splits text at the last of the given characters into what stands before and behind it. False when there is none.
bool split_at_last(std::string_view text, std::string_view characters, std::string_view *before,
                   std::string_view *behind) {
    const std::size_t at = text.find_last_of(characters);
    if (at == std::string_view::npos) return false;
    *before = text.substr(0, at);
    *behind = text.substr(at + 1);
    return true;
}

} // namespace

int MP_GetDiskInfo(const char *path, uint64_t *block_size, uint64_t *total_blocks, uint64_t *free_blocks) {
    struct statfs status;
    if (!path || statfs(path, &status) != 0) return 0;
    if (block_size) *block_size = static_cast<uint64_t>(status.f_bsize);
    if (total_blocks) *total_blocks = status.f_blocks;
    if (free_blocks) *free_blocks = status.f_bfree;
    return 1;
}

char *MP_TempFile(char *name_template) {
    const int descriptor = name_template ? mkostemp(name_template, O_CLOEXEC) : -1;
    if (descriptor < 0) return name_template;
    close(descriptor);
    return nullptr; // deliberate: null is success
}

uint64_t MP_GetFileSize1(int descriptor) {
    struct stat status;
    return size_of(fstat(descriptor, &status), status);
}

uint64_t MP_GetFileSize2(const char *path) {
    struct stat status;
    return path ? size_of(stat(path, &status), status) : 0;
}

int MP_GetFileType(const char *path) {
    struct stat status;
    return path && stat(path, &status) == 0 ? type_of(status) : 0;
}

void MP_SpliteFileName2(const char *path, std::string_view *directory, std::string_view *file) {
    const std::string_view whole = path ? path : "";
    if (MP_GetFileType(path) == type_directory) {
        *directory = whole;
        if (std::strchr(separators, whole.back())) directory->remove_suffix(1);
        *file = "*.*";
    } else if (!split_at_last(whole, separators, directory, file)) {
        *directory = {};
        *file = whole;
    }
}

void MP_SpliteFileName1(const char *path, std::string_view *directory, std::string_view *name,
                        std::string_view *extension) {
    std::string_view file;
    MP_SpliteFileName2(path, directory, &file);
    if (!split_at_last(file, ".", name, extension)) {
        *name = file;
        *extension = {};
    }
}

int MP_MkdirBeforCreateFile(const char *path, mode_t mode) {
    if (!path) return -1;
    const char *start = path[0] == '\\' && path[1] == '\\' ? std::strchr(path, '$') : path;
    if (!start) return -1;
    for (const char *end = start; (end = std::strpbrk(end, separators)); ++end) {
        const auto length = static_cast<std::size_t>(end - path);
        if (length > longest_prefix) break;
        char prefix[longest_prefix + 2];
        std::memcpy(prefix, path, length);
        std::memcpy(prefix + length, "/", 2);
        if (!make_directory(prefix, mode)) return -1;
    }
    return 0;
}

int MP_SafeOpen(const char *path, int flags, mode_t mode) {
    if (!path) {
        errno = EFAULT;
        return -1;
    }
    if (flags & O_CREAT) MP_MkdirBeforCreateFile(path, mode | execute_bits); // a failure shows in the open
    return restarted([=] { return open(path, flags | O_CLOEXEC, mode); });
}

int MP_FileClose(int descriptor) { return close(descriptor) == 0; }

long MP_FileRead(int descriptor, void *room, unsigned long n) {
    return restarted([=] { return read(descriptor, room, n); });
}

long MP_FileSeek(int descriptor, long offset, int whence) { return lseek(descriptor, offset, whence); }

int MP_FileTruncate(int descriptor, unsigned long size) {
    if (size > static_cast<unsigned long>(LONG_MAX)) {
        errno = EFBIG;
        return 0;
    }
    return restarted([=] { return ftruncate(descriptor, static_cast<off_t>(size)); }) == 0;
}

int MP_FileSync(int descriptor) {
    return restarted([=] { return fsync(descriptor); }) == 0;
}

int MP_FileSetMode(int descriptor, mode_t mode) { return fchmod(descriptor, mode) == 0; }

int MP_FileSetOwner(int descriptor, uid_t owner, gid_t group) {
    constexpr auto as_it_is = static_cast<uid_t>(-1);
    return fchown(descriptor, owner, group) == 0 || fchown(descriptor, as_it_is, group) == 0;
}

int MP_GetFileInfo(const char *path, int follow, MP_FileInfo *info) {
    struct stat status;
    return path && describe(fstatat(AT_FDCWD, path, &status, follow ? 0 : AT_SYMLINK_NOFOLLOW), status, info);
}

int MP_GetOpenFileInfo(int descriptor, MP_FileInfo *info) {
    struct stat status;
    return describe(fstat(descriptor, &status), status, info);
}

std::string MP_ResolvePath(const char *path) {
    char *resolved = realpath(path, nullptr); // owned
    std::string result = resolved ? resolved : path;
    std::free(resolved);
    return result;
}

int MP_FileRename(const char *from, const char *to) { return from && to && rename(from, to) == 0; }

int MP_FileDelete(const char *path) { return path && unlink(path) == 0; }

int MP_DirMake(const char *path, mode_t mode) { return path && make_directory(path, mode); }

// The directory that holds path, open for reading; -1 on failure.
static int open_directory_of(const char *path) {
    const std::string_view whole = path ? path : "";
    const std::string directory(whole.substr(0, std::min(whole.rfind('/'), whole.size())));
    return open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

int MP_LockDirectoryOf(const char *path) {
    const int descriptor = open_directory_of(path);
    if (descriptor < 0 || restarted([=] { return flock(descriptor, LOCK_EX); }) == 0) return descriptor;
    close(descriptor);
    return -1;
}

// A record lock: unlike the lock above, processes that this one forks do not have it, and it tells whose it is.
int MP_OccupyDirectoryOf(const char *path) {
    const int descriptor = open_directory_of(path);
    struct flock shared {};
    shared.l_type = F_RDLCK;
    if (descriptor < 0 || fcntl(descriptor, F_SETLK, &shared) == 0) return descriptor;
    close(descriptor);
    return -1;
}

long MP_OccupierOfDirectoryOf(const char *path) {
    const int descriptor = open_directory_of(path);
    if (descriptor < 0) return 0;
    struct flock asked {};
    asked.l_type = F_WRLCK;
    const bool occupied = fcntl(descriptor, F_GETLK, &asked) == 0 && asked.l_type != F_UNLCK;
    close(descriptor);
    return occupied ? asked.l_pid : 0;
}

int MP_DirRemove(const char *path) { return path && rmdir(path) == 0; }

int MP_DirList(const char *path, std::vector<std::string> *names) {
    DIR *directory = path ? opendir(path) : nullptr;
    if (!directory) return 0;
    errno = 0;
    while (const dirent *entry = readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names->emplace_back(name);
        errno = 0;
    }
    const int error = errno;
    closedir(directory);
    return error == 0;
}

int MP_FileGetLastError() { return errno; }
