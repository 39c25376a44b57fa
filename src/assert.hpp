// assert.hpp: the assertion that is on in every build.
//
// It is used exactly where the system is meant to stop: a programming error that would corrupt memory, or malformed
// nested binary input. It prints file, function and the expression's text to standard error and aborts.
#pragma once

[[noreturn]] void Tq4_assert_failed(const char *file, const char *function, const char *expression);

#define TQ4_ASSERT(expression)                                                                                         \
    (__builtin_expect(!!(expression), 1) ? (void)0 : Tq4_assert_failed(__FILE__, __func__, #expression))
