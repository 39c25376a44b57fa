/* system.h: the system interface: process, time, shared-library, byte-order, random-number and date services.
 *
 * Threads: every operation may be called from any thread.
 */
#ifndef TQ4_SYSTEM_H
#define TQ4_SYSTEM_H

#include <stdint.h>
#include <time.h>

#include "tq4/byte_order.h"
#include "tq4/string.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_system_ {
    const char *(*ExePathName)(Tq4_string s);
    const char *(*ExeName)(Tq4_string s);
    const char *(*ExePath)(Tq4_string s);
    const char *(*CurrentDir)(Tq4_string s);
    int (*gettimeofday)(long *seconds, long *microseconds);
    double (*difftimeval)(long seconds_a, long microseconds_a, long seconds_b, long microseconds_b);
    struct tm *(*localtime)(const time_t *time, struct tm *result);
    unsigned long (*GetTickCount)(void);
    int (*Sleep)(long milliseconds);
    int (*GetDiskInfo)(const char *path, uint64_t *block_size, uint64_t *total_blocks, uint64_t *free_blocks);
    void *(*LoadDll)(const char *path);
    void (*UnloadDll)(void *library);
    void *(*Function)(void *library, const char *name);
    Tq4_ByteOrder (*ByteOrder)(void);
    unsigned long (*CurrentThreadId)(void);
    unsigned long (*CurrentProcessId)(void);
    long (*Random)(void);
    unsigned (*NextDate)(unsigned date);
    unsigned (*PreDate)(unsigned date);
    int (*GetDayWeek)(unsigned date);
    int (*DateDiff)(unsigned a, unsigned b);
} Tq4_system_;

extern TQ4_API const Tq4_system_ *const Tq4_system_api;

TQ4_END_DECLS

#endif
