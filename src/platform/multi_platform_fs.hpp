// multi_platform_fs: files, directories and paths.
//
// Paths are NUL-terminated and borrowed. Both '/' and '\' separate the parts of a path.
#pragma once

#include <cstdint>
#include <string_view>
#include <sys/types.h>

// Block size in bytes, total blocks and free blocks of the file system that holds path. 1, or 0 with the counts left
// alone.
int MP_GetDiskInfo(const char *path, uint64_t *block_size, uint64_t *total_blocks, uint64_t *free_blocks);

// Makes a new empty file that only its owner may read and write, replacing the six X that end name_template. Returns
// null when it SUCCEEDED and name_template when it failed, deliberately.
char *MP_TempFile(char *name_template);

// The size in bytes of an open file or of the file at path; 0 when it cannot be examined.
uint64_t MP_GetFileSize1(int descriptor);
uint64_t MP_GetFileSize2(const char *path);

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
// plus the three execute bits. The descriptor, owned by the caller, or -1.
int MP_SafeOpen(const char *path, int flags, mode_t mode);

// The system error number.
int MP_FileGetLastError();
