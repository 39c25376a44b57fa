// multi_platform_fs: files, directories and paths.
//
// Splitting a path copies nothing: the parts are views into it. Making a directory that another process makes at the
// same moment counts as success: what matters is that it is there afterwards.
#include "platform/multi_platform_fs.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr int type_directory = 1;
constexpr int type_regular = 2;
constexpr const char *separators = "/\\";
constexpr std::size_t longest_prefix = 260;
constexpr mode_t permission_bits = 07777;
constexpr mode_t execute_bits = S_IXUSR | S_IXGRP | S_IXOTH;
constexpr int most_links = 40;     // on the way of one path, as for the system
constexpr int most_attempts = 100; // to find a name that nobody has
constexpr std::size_t tail_length = 7;

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

// A point and six letters, seldom the same twice.
std::string unusual_tail() {
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz0123456789";
    static std::atomic<uint64_t> calls{0};
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    uint64_t number = static_cast<uint64_t>(now.tv_nsec) * 1000003 + static_cast<uint64_t>(getpid()) * 8191 + ++calls;
    std::string tail(1, '.');
    for (; tail.size() < tail_length; number /= letters.size()) tail += letters[number % letters.size()];
    return tail;
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

int MP_FileHasMoved(int descriptor, const char *path) {
    struct stat open_file, there;
    if (fstat(descriptor, &open_file) != 0) return 0;
    if (stat(path, &there) != 0) return errno == ENOENT || errno == ENOTDIR;
    return there.st_dev != open_file.st_dev || there.st_ino != open_file.st_ino;
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
    const bool prepared = !(flags & O_CREAT) || MP_MkdirBeforCreateFile(path, mode | execute_bits) == 0;
    const int reason = errno;
    const int descriptor = restarted([=] { return open(path, flags | O_CLOEXEC, mode); });
    if (descriptor < 0 && !prepared) errno = reason; // why the directory is missing tells more
    return descriptor;
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
    return path && MP_GetFileInfoIn(AT_FDCWD, path, follow, info);
}

int MP_GetOpenFileInfo(int descriptor, MP_FileInfo *info) {
    struct stat status;
    return describe(fstat(descriptor, &status), status, info);
}

std::string MP_AbsolutePath(const char *path) {
    char *current = *path == '/' ? nullptr : getcwd(nullptr, 0); // owned
    // One that this process cannot reach from its root begins in another way.
    std::string result = current && *current == '/' ? current + ("/" + std::string(path)) : path;
    std::free(current);
    return result;
}

int MP_ResolvePath(const char *path, std::string *resolved) {
    std::string at = path;
    for (int links = 0; links < most_links; ++links) {
        const std::size_t name = at.rfind('/') + 1;                                   // 0 without a '/'
        char *directory = realpath(name ? at.substr(0, name).c_str() : ".", nullptr); // owned
        if (!directory) return 0;
        const std::string place = std::string(directory) + "/";
        std::free(directory);
        at = place + at.substr(name);
        char link[PATH_MAX];
        const ssize_t length = readlink(at.c_str(), link, sizeof link);
        if (length < 0) {
            *resolved = at;
            return errno == EINVAL || errno == ENOENT; // no link, or nothing at all
        }
        const std::string target(link, static_cast<std::size_t>(length));
        at = target.starts_with('/') ? target : place + target;
    }
    errno = ELOOP;
    return 0;
}

int MP_FileMakeBeside(const char *path, mode_t mode, std::string *made) {
    const std::string_view whole = path;
    const std::size_t name = whole.rfind('/') + 1; // 0 without a '/'
    const std::string start(whole.substr(0, name + NAME_MAX - tail_length));
    int descriptor = -1;
    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        *made = start + unusual_tail();
        descriptor = restarted([&] { return open(made->c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode); });
        if (descriptor >= 0 || errno != EEXIST) break;
    }
    return descriptor;
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

int MP_DirOpen(const char *path, int follow) {
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW);
    return restarted([=] { return open(path, flags); });
}

int MP_DirOpenIn(int directory, const char *name) {
    return restarted([=] { return openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); });
}

int MP_DirOpenAbove(int directory) {
    return restarted([=] { return openat(directory, "..", O_PATH | O_DIRECTORY | O_CLOEXEC); });
}

int MP_DirList(int directory, std::vector<std::string> *names) {
    const int reading = fcntl(directory, F_DUPFD_CLOEXEC, 0); // the stream's own
    DIR *stream = reading < 0 ? nullptr : fdopendir(reading);
    if (!stream) {
        if (reading >= 0) close(reading);
        return 0;
    }
    errno = 0;
    while (const dirent *entry = readdir(stream)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names->emplace_back(name);
        errno = 0;
    }
    const int error = errno;
    closedir(stream);
    return error == 0;
}

int MP_GetFileInfoIn(int directory, const char *name, int follow, MP_FileInfo *info) {
    struct stat status;
    return describe(fstatat(directory, name, &status, follow ? 0 : AT_SYMLINK_NOFOLLOW), status, info);
}

int MP_FileDeleteIn(int directory, const char *name) { return unlinkat(directory, name, 0) == 0; }
int MP_DirRemoveIn(int directory, const char *name) { return unlinkat(directory, name, AT_REMOVEDIR) == 0; }

int MP_FileGetLastError() { return errno; }
