/* file_api.h: the file interface: files and directories by their paths.
 *
 * Paths are NUL-terminated and borrowed; a null path fails. Links are followed unless an operation says otherwise.
 * After a failure the system's error number tells why.
 *
 * Threads: every operation may be called from any thread.
 */
#ifndef TQ4_FILE_API_H
#define TQ4_FILE_API_H

#include "tq4/api.h"

TQ4_BEGIN_DECLS

/* What stands at a path. */
typedef enum Tq4_file_type {
    Tq4_file_type_none = 0, /* nothing, or neither of the others (a device, a socket) */
    Tq4_file_type_directory = 1,
    Tq4_file_type_regular = 2
} Tq4_file_type;

typedef struct Tq4_file_api_ {
    /* 1 when anything stands at the path, a device too; else 0. */
    int (*Exist)(const char *path);
    Tq4_file_type (*Type)(const char *path);
    /* Opens as open(2) does, with its flags and permission bits, close-on-exec. With O_CREAT the missing directories
     * are made first, with the mode plus the execute bits; none whose path has more than 260 bytes. Returns the
     * descriptor, to be closed by the caller, or -1. */
    int (*Open)(const char *path, int flags, unsigned mode);
    /* Closes a descriptor. 1, or 0 when it was not open or the system lost data of it. */
    int (*Close)(int descriptor);

    /* Bytes in the file at a path, or in an open one; -1 when it cannot be examined. */
    long (*Size)(const char *path);
    long (*SizeOf)(int descriptor);
    /* Lines in a regular file: its line feeds, and one more when the last line has none. -1 when it cannot be read. */
    long (*LineCount)(const char *path);

    /* Makes `to` a copy of the regular file `from`, with its permission bits but without those that set the user or the
     * group of who runs it; an existing regular file is replaced. The copy is made beside it and renamed over it, so
     * `to` is always either whole or as it was. 1; 0 on failure and when something else than a regular file (a link, a
     * directory, a device) stands at `to`. */
    int (*Copy)(const char *from, const char *to);
    /* Renames a file or a directory, replacing a file that stands at `to`. A regular file whose new place is on
     * another file system is copied, then deleted. 1/0. */
    int (*Rename)(const char *from, const char *to);
    /* Deletes a file, or a link itself; never a directory. 1/0. */
    int (*Delete)(const char *path);

    /* Makes the directory with these permission bits (the process's mask applies), and every missing one above it
     * with the owner's rights to write and search added. 1 when it is there afterwards, else 0. */
    int (*MkDir)(const char *path, unsigned mode);
    /* Removes a directory: an empty one, or with recursive non-zero one with all that is in it. Links in it are
     * removed, not followed, and a link at the path itself is refused, as is a path that ends in "." or "..". A tree
     * may be of any depth. 1/0; after a failure a part may be gone. */
    int (*RmDir)(const char *path, int recursive);
} Tq4_file_api_;

extern TQ4_API const Tq4_file_api_ *const Tq4_file_api;

TQ4_END_DECLS

#endif
