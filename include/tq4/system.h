/* system.h: the system interface: process, time, shared-library, byte-order, random-number and date services.
 *
 * Dates are Gregorian and written as the number yyyymmdd (20240229). The operations on them accept any number and
 * check no more than they say.
 *
 * Threads: every operation may be called from any thread; localtime without a record is the exception. The string
 * given to an operation must not be in use elsewhere.
 */
#ifndef TQ4_SYSTEM_H
#define TQ4_SYSTEM_H

#include <stdint.h>
#include <time.h>

#include "tq4/byte_order.h"
#include "tq4/string.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_system_ {
    /* These replace the string's text and return it (borrowed, the string's own), null for a null string. The text is
     * empty when the system does not tell, and a path of more than 510 bytes is cut there. */

    /* The full path of the running executable. */
    const char *(*ExePathName)(Tq4_string s);
    /* Its name without the directory. */
    const char *(*ExeName)(Tq4_string s);
    /* Its directory, without a '/' at the end (empty for the root). */
    const char *(*ExePath)(Tq4_string s);
    /* The current working directory. */
    const char *(*CurrentDir)(Tq4_string s);

    /* The wall clock: seconds since 1970 and microseconds, 0 to 999999. Either may be null. 0, or -1 on failure. */
    int (*gettimeofday)(long *seconds, long *microseconds);
    /* Time a minus time b, in microseconds. */
    double (*difftimeval)(long seconds_a, long microseconds_a, long seconds_b, long microseconds_b);
    /* *time as local calendar time in *result, which is returned. With a null result the C library's shared record is
     * filled and returned instead, and no other thread may do the same. Null for a null time, and when the year does
     * not fit. */
    struct tm *(*localtime)(const time_t *time, struct tm *result);
    /* Wall-clock milliseconds since 1970: they jump when the clock is set. */
    unsigned long (*GetTickCount)(void);
    /* Sleeps at least that long, whatever signals arrive; 0 and negative return at once. Always 0. */
    int (*Sleep)(long milliseconds);
    /* The file system that holds path: its block size in bytes, how many blocks it has and how many are free. Any of
     * the three may be null. 1; 0 when it cannot be examined or path is null, with the three left alone. */
    int (*GetDiskInfo)(const char *path, uint64_t *block_size, uint64_t *total_blocks, uint64_t *free_blocks);

    /* Loads a shared library, binding its symbols as they are used. The caller owns the handle; null on failure and
     * for a null path. */
    void *(*LoadDll)(const char *path);
    /* Gives the handle back; null is ignored. */
    void (*UnloadDll)(void *library);
    /* The address of a symbol, valid until the library is unloaded; null when it has none of that name, and for a null
     * handle or name. */
    void *(*Function)(void *library, const char *name);

    /* The byte order of this host: big, little or middle, never ByteOrder_SameHost. */
    Tq4_ByteOrder (*ByteOrder)(void);
    /* The calling thread's id as POSIX threads number them (not the kernel's). */
    unsigned long (*CurrentThreadId)(void);
    /* The process id. */
    unsigned long (*CurrentProcessId)(void);
    /* The next number, 0 to 2147483647, of the generator that the C library's srandom and srand seed. The host seeds
     * it; without that every run gives the same numbers. Not for secrets. */
    long (*Random)(void);

    /* The day after. A day of the month below 28 gives date + 1, even in a month that does not exist; otherwise a
     * month outside 1 to 12 gives the date unchanged. A day beyond the month's end gives the first of the next. */
    unsigned (*NextDate)(unsigned date);
    /* The day before. A day of the month of 2 or more gives date - 1, even in a month that does not exist; otherwise a
     * month outside 1 to 12 gives the date unchanged. */
    unsigned (*PreDate)(unsigned date);
    /* The day of the week, 1 for Monday to 7 for Sunday. For some dates, most of them early in a century, the same
     * minus 7: Wednesday 20000301 gives -4. */
    int (*GetDayWeek)(unsigned date);
    /* The days from b to a, negative when a is earlier. */
    int (*DateDiff)(unsigned a, unsigned b);
} Tq4_system_;

extern TQ4_API const Tq4_system_ *const Tq4_system_api;

TQ4_END_DECLS

#endif
