// multi_platform_fs: files, directories and paths.
//
// Paths are NUL-terminated and borrowed. Both '/' and '\' separate the parts of a path.
#pragma once

#include <cstdint>
#include <fcntl.h> // the flags of MP_SafeOpen
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

// Block size in bytes, total blocks and free blocks of the file system that holds path. 1, or 0 with the counts left
// alone.
int MP_GetDiskInfo(const char *path, uint64_t *block_size, uint64_t *total_blocks, uint64_t *free_blocks);

// Makes a new empty file that only its owner may read and write, replacing the six X that end name_template. Returns
// null when it SUCCEEDED and name_template when it failed, deliberately. (The library's own files are made by
// MP_FileMakeBeside, which asks the process's mask.)
char *MP_TempFile(char *name_template);

// The size in bytes of an open file or of the file at path; 0 when it cannot be examined.
uint64_t MP_GetFileSize1(int descriptor);
uint64_t MP_GetFileSize2(const char *path);
// 1 when the path leads to another file than the open one, or to none; 0 also when the system does not tell.
int MP_FileHasMoved(int descriptor, const char *path);

// 1 for a directory, 2 for a regular file, 0 for anything else and for what is missing. Links are followed.
int MP_GetFileType(const char *path);

// Splits a path at its last separator, which belongs to neither part; without one all is file. An existing directory
// is itself the directory (one trailing separator removed) and the file is "*.*". The parts point into path or at
// static text. Null gives two empty parts.
void MP_SpliteFileName2(const char *path, std::string_view *directory, std::string_view *file);
// The same, and splits the file at its last '.', which belongs to neither part; without one all is name.
void MP_SpliteFileName1(const char *path, std::string_view *directory, std::string_view *name,
                        std::string_view *extension);

// Makes every missing directory along the path, that is, everything up to each separator. A prefix of more than 260
// bytes ends the walk. A path that starts with two backslashes is walked from its first '$'. 0; -1 when a directory
// cannot be made or there is no '$'.
int MP_MkdirBeforCreateFile(const char *path, mode_t mode);

// Opens a file as open(2) does, close-on-exec. With O_CREAT in flags the missing directories are made first, with mode
// plus the three execute bits. The descriptor, owned by the caller, or -1; then the system error number tells about the
// first thing that failed.
int MP_SafeOpen(const char *path, int flags, mode_t mode);

// Closes a descriptor. 1/0.
int MP_FileClose(int descriptor);

// Reads up to n bytes from a descriptor, as MP_Write writes to it. Returns how many came, 0 at the end, -1 on failure;
// a signal is no failure.
long MP_FileRead(int descriptor, void *room, unsigned long n);
// Moves the position as lseek(2) does and returns it; -1 when it would be negative or there is none.
long MP_FileSeek(int descriptor, long offset, int whence);
// Cuts the file to a size, or lengthens it with zeros. 1/0.
int MP_FileTruncate(int descriptor, unsigned long size);
// Waits until what was written to the file is on the medium. 1/0.
int MP_FileSync(int descriptor);
// Sets the permission bits of an open file, whatever the process's mask. 1/0.
int MP_FileSetMode(int descriptor, mode_t mode);
// Gives an open file to an owner and a group, to the group alone where the process may not give it away. 1/0.
int MP_FileSetOwner(int descriptor, uid_t owner, gid_t group);

// What stands at a path.
struct MP_FileInfo {
    int type;      // as MP_GetFileType; a link that is not followed is 0
    uint64_t size; // in bytes
    mode_t mode;   // the permission bits
    uid_t owner;
    gid_t group;
    uint64_t device, number; // the same for nothing else that exists at the time
};
// 1, or 0 when nothing is there or it cannot be examined. With follow 0 a link is examined itself.
int MP_GetFileInfo(const char *path, int follow, MP_FileInfo *info);
// The same for an open file.
int MP_GetOpenFileInfo(int descriptor, MP_FileInfo *info);

// A path as it is from the root, whatever the current directory becomes later; the path itself where the system does
// not tell the current directory. Links in it stay.
std::string MP_AbsolutePath(const char *path);
// Where a path leads, from the root and without links in it, also where a link leads to nothing yet. Its directory must
// be there. 1, or 0 when the system does not tell.
int MP_ResolvePath(const char *path, std::string *resolved);
// Makes a new empty file in the directory of path, for reading and writing and close-on-exec, with these permission
// bits (the process's mask applies). Its name, which *made receives, is that of path, cut where it leaves no room, and
// an unusual tail. The descriptor, owned by the caller, or -1.
int MP_FileMakeBeside(const char *path, mode_t mode, std::string *made);

// Renames a file or a directory within a file system; a file at `to` is replaced. 1/0.
int MP_FileRename(const char *from, const char *to);
// Deletes a file, or a link itself. 1/0.
int MP_FileDelete(const char *path);

// Makes one directory. 1 when it is there afterwards, else 0.
int MP_DirMake(const char *path, mode_t mode);
// Opens the directory that holds path and waits until this process alone has it locked; closing the descriptor, which
// the caller owns, gives it free. -1 when there is no such directory or it may not be read.
int MP_LockDirectoryOf(const char *path);
// Lets other processes know that this one, but none that it forks, uses the directory that holds path; until it ends.
// It must not open the directory a second time: closing that would take the mark away. The descriptor behind the mark,
// owned by the caller; -1 on failure.
int MP_OccupyDirectoryOf(const char *path);
// The process that does so; 0 when there is none or it cannot be told.
long MP_OccupierOfDirectoryOf(const char *path);
// Removes an empty directory. 1/0.
int MP_DirRemove(const char *path);

// --- Directories by descriptor: a path has a greatest length, a tree has no greatest depth ---

// Opens a directory for listing; with follow 0 a link to one is refused. Owned by the caller; -1 on failure.
int MP_DirOpen(const char *path, int follow);
// The same for a name in an open directory. Links are refused.
int MP_DirOpenIn(int directory, const char *name);
// Opens the directory above an open one: not for listing, but for the names in it. Owned by the caller; -1 on failure.
int MP_DirOpenAbove(int directory);
// Appends the names in an open directory, without "." and "..", in no order. 1, or 0 when it cannot be read to its end.
int MP_DirList(int directory, std::vector<std::string> *names);
// What stands at a name in an open directory, as MP_GetFileInfo.
int MP_GetFileInfoIn(int directory, const char *name, int follow, MP_FileInfo *info);
// Deletes a file, or a link itself, or removes an empty directory, by its name in an open directory. 1/0.
int MP_FileDeleteIn(int directory, const char *name);
int MP_DirRemoveIn(int directory, const char *name);

// The system error number.
int MP_FileGetLastError();
