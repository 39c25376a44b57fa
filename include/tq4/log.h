/* log.h: Tq4_log, time-stamped lines in files under a tree of dated directories.
 *
 * The files of a day lie in MAIN/logfiles-YYYY/MM/YYYY-MM-DD and are called PREFIX_YYYY-MM-DD HH-Q[NNN].log, with the
 * quarter of the hour Q (1 to 4) and a number from 001. A new file begins with every hour, and whenever the open one
 * has reached the size limit: with the next number, or with 001 again when the quarter has changed. A file with room
 * left by an earlier run is continued. Files and directories are made when they are needed, but no directory whose path
 * has more than 260 bytes. Times are local time.
 *
 * A line is "[YYYY-MM-DD HH:MM:SS mmm tttt] " and the message: milliseconds, and the calling thread's kernel id in
 * hexadecimal. A message that does not end in a line feed gets one. Every operation that writes returns after its bytes
 * were handed to the system, in one piece. So lines of different threads never mix, and those of one thread keep their
 * order. A process that dies loses no line whose call has returned.
 *
 * No errors are reported to the caller. Lines that cannot be written (the directory is not writable, the disk is full)
 * are lost, until a later attempt succeeds. What a full disk has cut off in the middle of a line is removed again. The
 * first failure is told on standard error, with the file's path and the reason, and the next one after another file has
 * been opened.
 *
 * Others may work on the same files. When somebody has moved or removed the open file, the log goes over to a new file
 * at its path: within a second of writing, or at once by CheckFile. Several processes may write to one file: each line
 * stays whole, and the limit holds for what all of them have written, give or take 65536 bytes for each. A line never
 * continues what a killed process left without a line feed: it begins below it.
 *
 * Create makes a log that belongs to a single thread at a time when its parameter is null, and one for several threads
 * when it is not (its value is not used). The main directory is "log_files" beside the running program, "./log_files"
 * when its place cannot be found; the prefix is empty, the level 0. Delete and Reset close the file. Reset restores the
 * settings of Create. Copy takes over prefix, level, limits and main directory, which is also what Equal compares. Dup
 * does so into a new log, which is for several threads when the source is.
 *
 * Null handles are ignored; DirInfo gives null.
 *
 * Threads: a log made for several threads may be used by all of them; the object-level operations need it alone. Lines
 * of threads that write at the same moment leave in one write. A thread that is killed while it writes ends after its
 * line.
 *
 * Processes: a fork waits until the lines on their way are written. The child can use every log that is for several
 * threads, whatever the parent's other threads were doing, and of the others those of the thread that forked.
 *
 * Signal handlers must not write to a log, nor use an operation other than Level, which is a single store. A handler
 * that interrupts a thread in the middle of a line would wait for that line for ever. Let the handler set a flag, or
 * write to a pipe or an eventfd, and log on the thread that sees it. A handler of a crash (SIGSEGV, SIGABRT) has
 * write(2) to standard error. Functions that the console frame calls because of a signal (tq4/app.h) are no handlers:
 * they may log.
 */
#ifndef TQ4_LOG_H
#define TQ4_LOG_H

#include <stdarg.h>
#include <time.h>

#include "tq4/object.h"

TQ4_BEGIN_DECLS

typedef struct Tq4_log_ Tq4_log_;
typedef const Tq4_log_ **Tq4_log; /* handle */

struct Tq4_log_ {
    /* Sets the file-name prefix (copied; null: empty), which the next file has, and the level: one of Tq4_level
     * (tq4/debug.h) or any other number. */
    void (*Init)(Tq4_log log, const char *prefix, int level);
    /* Bytes in a file after which the next one begins; at least 1048576, 2097152 until set. A line that begins below
     * the limit is written whole. */
    void (*SizeLimit)(Tq4_log log, int bytes);
    /* At least 5120, 524288 until set. Kept, but no file is changed for it. */
    void (*LineLimit)(Tq4_log log, int lines);

    /* Writes a line with the current time. A message whose level is above the log's is dropped at once. The formats
     * are those of Tq4_string's Sprintf; a null format is an empty message. */
    void (*Printf)(Tq4_log log, int level, const char *format, ...);
    void (*vPrintf)(Tq4_log log, int level, const char *format, va_list args);
    /* The same with a given time, which also chooses the file; the milliseconds are those of the clock. */
    void (*Printf_t)(Tq4_log log, time_t time, int level, const char *format, ...);
    void (*vPrintf_t)(Tq4_log log, time_t time, int level, const char *format, va_list args);
    /* Writes a line as Printf does and below it the data, sixteen bytes a line. Such a line is the offset in eight
     * hexadecimal digits and a colon, each byte as "%02X ", and the same bytes as text, with a dot for each that is not
     * printable ASCII. length may be all ones for a text. Null data gives the line alone. */
    void (*HexLog)(Tq4_log log, int level, const void *data, unsigned long length, const char *format, ...);
    void (*HexPrint)(Tq4_log log, int level, const void *data, unsigned long length, const char *format, va_list args);
    /* Writes the text as it is, without prefix or line feed, to the file of the current time. Null is ignored. */
    void (*Write)(Tq4_log log, const char *text);

    /* Sets the level: messages with a higher one are dropped. */
    void (*Level)(Tq4_log log, int level);
    /* Sets the main directory (copied), which counts from the next change of date, for a new log from its first line. A
     * relative one is in the directory that is the current one during this call. Null and "" change nothing. */
    void (*MainDir)(Tq4_log log, const char *directory);
    /* The directory of the current day; "" before the first line. Borrowed: it stays valid through the next change of
     * date, until the second, or Delete. */
    const char *(*DirInfo)(Tq4_log log);
    /* Flushes the stream. What was written is with the system already, so nothing ever waits for this. */
    void (*FFlush)(Tq4_log log);
    /* For a periodic timer, or when the files have been moved. When a line now would begin a new file, closes the open
     * one and makes the day's directory; the next line then opens the file. Otherwise, when the open file is no longer
     * at its path, closes it and opens that path again. */
    void (*CheckFile)(Tq4_log log);
};

extern TQ4_API const Tq4_object_itf *const Tq4_log_oitf;

TQ4_END_DECLS

#endif
