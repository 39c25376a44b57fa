/* api.h: what every public header starts with.
 *
 * Handles. A module xxx hands out handles of type Tq4_xxx, a pointer to a pointer to its table of operations; an
 * operation is called as (*h)->Op(h, ...). Null handles are accepted everywhere and give null or 0 unless an
 * operation says otherwise.
 * Lengths, counts, indexes, positions and time-outs are unsigned long; TQ4_ALL_ONES as a length means up to the
 * terminating NUL, as a time-out it means without limit.
 * An enumeration marked TQ4_INT may hold other numbers than its names have, in C++ too.
 */
#ifndef TQ4_API_H
#define TQ4_API_H

#define TQ4_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define TQ4_BEGIN_DECLS extern "C" {
#define TQ4_END_DECLS }
#define TQ4_INT : int
#else
#define TQ4_BEGIN_DECLS
#define TQ4_END_DECLS
#define TQ4_INT
#endif

#define TQ4_ALL_ONES ((unsigned long)-1)

#endif
