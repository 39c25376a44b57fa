/* finder.h: Tq4_finder, the files and directories whose names match a pattern, in a stable order.
 *
 * In a pattern '*' stands for any bytes, '?' for one UTF-8 character, and "[a-z_]" for one character of a set, "[!a-z]"
 * for one that is not in it; all else stands for itself ("[*]" is an asterisk). Upper and lower case differ. "*.*"
 * matches every name, also one without a dot, and a name that begins with a dot is like any other.
 *
 * What is found is a picture of the moment of the search. It is ordered by the bytes of the paths, so the same tree
 * gives the same order on every machine. Create ignores its parameter and gives a finder that has found nothing; Reset
 * returns to that. Copy and Dup take over what was found, Equal compares the paths found.
 *
 * Null handles: operations that return a text give null, all others 0.
 *
 * Threads: a finder belongs to one thread at a time.
 */
#ifndef TQ4_FINDER_H
#define TQ4_FINDER_H

#include "tq4/file_api.h"
#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_finder_ Tq4_finder_;
typedef const Tq4_finder_ **Tq4_finder; /* handle */

/* What to look for; combined with |. */
typedef enum Tq4_finder_flags {
    Tq4_finder_files = 1,       /* everything but directories */
    Tq4_finder_directories = 2, /* directories */
    Tq4_finder_recursive = 4 /* also in the directories below, whatever their names; links to some are not followed */
} Tq4_finder_flags;

/* Non-zero ends the walk. */
typedef int (*Tq4_finder_visitor)(const char *path, void *param);

struct Tq4_finder_ {
    /* Replaces what was found by what matches: path is a directory and a pattern, "logs/svc_*.log", a pattern alone,
     * which is looked for in the current directory, or an existing directory, which stands for everything in it. flags
     * combines Tq4_finder_flags; with neither files nor directories both are found. A tree may be of
     * any depth, so paths may be longer than the system takes. Directories below that cannot be read are passed over.
     * Returns the number found; -1, with nothing found, when path is null, when its directory cannot be read and when
     * a directory that was being searched has been moved out of the tree. */
    long (*Find)(Tq4_finder f, const char *path, int flags);
    unsigned long (*Count)(Tq4_finder f);
    /* The path of what was found at an index from 0: the directory as it was given, and the names from there. Null at
     * or past the count. Borrowed until the next Find, Copy, Reset or Delete; so is Name, the part behind the last
     * '/'. */
    const char *(*Path)(Tq4_finder f, unsigned long index);
    const char *(*Name)(Tq4_finder f, unsigned long index);
    /* Its size in bytes and what it was when it was found; links are followed. 0 at or past the count. */
    unsigned long (*Size)(Tq4_finder f, unsigned long index);
    Tq4_file_type (*Type)(Tq4_finder f, unsigned long index);
    /* Calls visitor with each path in order, on the calling thread, until it returns non-zero. Returns that result, 0
     * when all were visited. */
    int (*each)(Tq4_finder f, Tq4_finder_visitor visitor, void *param);
};

extern TQ4_API const Tq4_object_itf *const Tq4_finder_oitf;

TQ4_END_DECLS

#endif
