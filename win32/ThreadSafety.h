// Annotations of locks that clang checks (-Wthread-safety); other compilers see nothing.
#pragma once

#if defined(__clang__)
#define THREAD_ANNOTATION(x) __attribute__((x))
#else
#define THREAD_ANNOTATION(x)
#endif

/// A class that is a lock; a class that holds one for as long as it lives.
#define CAPABILITY(name)  THREAD_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY THREAD_ANNOTATION(scoped_lockable)

/// A field that may be touched only under the lock.
#define GUARDED_BY(lock) THREAD_ANNOTATION(guarded_by(lock))

/// Functions whose caller holds the lock, and those that take or release it.
#define REQUIRES(...)        THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define ACQUIRE(...)         THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...)  THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define RELEASE(...)         THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...)  THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...)     THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))

/// Each use has a comment that says why the analysis cannot follow.
#define NO_THREAD_SAFETY_ANALYSIS THREAD_ANNOTATION(no_thread_safety_analysis)
