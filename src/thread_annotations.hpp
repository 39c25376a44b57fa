// thread_annotations.hpp: which lock guards what, in a form that clang checks (-Wthread-safety); nothing elsewhere.
//
// A record names its lock in a field, marks the fields behind it TQ4_GUARDED_BY(m_lock), and takes it for a scope with
// Tq4_guard (thread/lock.hpp). A function that is called with the lock held says TQ4_REQUIRES(m_lock).
#pragma once

#if defined(__clang__)
#define TQ4_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define TQ4_THREAD_ATTRIBUTE(x)
#endif

#define TQ4_CAPABILITY TQ4_THREAD_ATTRIBUTE(capability("mutex"))
#define TQ4_SCOPED_CAPABILITY TQ4_THREAD_ATTRIBUTE(scoped_lockable)
#define TQ4_GUARDED_BY(lock) TQ4_THREAD_ATTRIBUTE(guarded_by(lock))
#define TQ4_REQUIRES(...) TQ4_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define TQ4_ACQUIRE(...) TQ4_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TQ4_RELEASE(...) TQ4_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TQ4_NO_THREAD_ANALYSIS TQ4_THREAD_ATTRIBUTE(no_thread_safety_analysis)
