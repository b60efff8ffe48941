// What a lock guards and what a function wants held, written so that clang's -Wthread-safety checks it (tools/tidy
// does). For other compilers these say nothing.
//
// Three places cannot be said in these words and are marked instead:
//   ZD_TAKES_AGAIN     a function that takes a lock which one of its callers holds already
//   ZD_TAKES_TWO       a function that takes the locks of two handles, in the order of their addresses
//   ZD_UNDER_ANOTHERS  a clean-up that runs inside a function which holds the lock
#pragma once

#if defined(__clang__)
#define ZD_ANNOTATION(x) __attribute__((x))
#else
#define ZD_ANNOTATION(x)
#endif

#define ZD_CAPABILITY(kind) ZD_ANNOTATION(capability(kind))
#define ZD_SCOPED_CAPABILITY ZD_ANNOTATION(scoped_lockable)
#define ZD_GUARDED_BY(lock) ZD_ANNOTATION(guarded_by(lock))
#define ZD_REQUIRES(...) ZD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ZD_EXCLUDES(...) ZD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ZD_ACQUIRE(...) ZD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ZD_RELEASE(...) ZD_ANNOTATION(release_capability(__VA_ARGS__))
#define ZD_RETURNS_LOCK(lock) ZD_ANNOTATION(lock_returned(lock))

#define ZD_TAKES_AGAIN ZD_ANNOTATION(no_thread_safety_analysis)
#define ZD_TAKES_TWO ZD_ANNOTATION(no_thread_safety_analysis)
#define ZD_UNDER_ANOTHERS ZD_ANNOTATION(no_thread_safety_analysis)
