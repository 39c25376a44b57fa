// assert.hpp: the assertion that is on in every build, and the check that is on where faults are looked for.
//
// An assertion stands exactly where the system is meant to stop: a programming error that would corrupt memory, or
// malformed nested binary input. It prints file, function and the expression's text to standard error and aborts.
//
// A check states an invariant of our own, which no caller can break. It does the same in the debug, sanitizer and fuzz
// builds (the build's switch TQ4_CHECKS), and is compiled but never evaluated in the others. A structure has a member
// Check() of bounded cost, called after each operation, which does nothing unless Tq4_checks is set.
#pragma once

[[noreturn]] void Tq4_assert_failed(const char *file, const char *function, const char *expression);

#define TQ4_ASSERT(expression)                                                                                         \
    (__builtin_expect(!!(expression), 1) ? (void)0 : Tq4_assert_failed(__FILE__, __func__, #expression))

#ifdef TQ4_CHECKS
inline constexpr bool Tq4_checks = true;
#else
inline constexpr bool Tq4_checks = false;
#endif

#define TQ4_CHECK(expression) (Tq4_checks ? TQ4_ASSERT(expression) : (void)0)
