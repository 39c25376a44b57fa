/* api.h: what every public header starts with.
 *
 * Handles. A module xxx hands out handles of type Tq4_xxx, a pointer to a pointer to its table of operations; an
 * operation is called as (*h)->Op(h, ...). The h that is called through leads to an object. As an argument a null
 * handle is accepted everywhere and gives null or 0, unless an operation says otherwise.
 * No C++ exception and no longjmp may leave a function that a program hands in (a callback, sink, hook or thread
 * function): it would take away the library's frames with the locks that they hold.
 * Lengths, counts, indexes, positions and time-outs are unsigned long; TQ4_ALL_ONES as a length means up to the
 * terminating NUL, as a time-out it means without limit.
 * An enumeration marked TQ4_INT may hold other numbers than its names have, in C++ too.
 * Behaviour that a header calls deliberate surprises and stays; docs/compatibility.md says who depends on it.
 *
 * The binary interface of 1.x: tables get further operations at their end and keep all others in place. Records have
 * the members that the headers show, in their order. The shared object stays libTq4_c_objectD-1.0.so.
 *
 * Other languages. Tools that do not know GCC's attributes define TQ4_API themselves, as nothing; every constant is a
 * plain literal or an enumerator.
 */
#ifndef TQ4_API_H
#define TQ4_API_H

/* The version of these headers; the number is 10000 * major + 100 * minor + patch. */
#define TQ4_VERSION "1.0.0"
#define TQ4_VERSION_NUMBER 10000

#ifndef TQ4_API
#define TQ4_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define TQ4_BEGIN_DECLS extern "C" {
#define TQ4_END_DECLS }
#define TQ4_INT : int
#else
#define TQ4_BEGIN_DECLS
#define TQ4_END_DECLS
#define TQ4_INT
#endif

#define TQ4_ALL_ONES 0xffffffffffffffffUL /* (unsigned long)-1 */

#endif
