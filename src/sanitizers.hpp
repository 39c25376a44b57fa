// sanitizers.hpp: which sanitizer the compiler builds for, told alike by gcc and clang.
#pragma once

#ifndef __has_feature
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#define TQ4_ADDRESS_SANITIZER 1
#endif
#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
#define TQ4_THREAD_SANITIZER 1
#endif
