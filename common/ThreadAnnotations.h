// Names for clang's thread-safety analysis (https://clang.llvm.org/docs/ThreadSafetyAnalysis.html). They say which lock
// guards a field and which lock a function needs; clang checks them, other compilers see nothing.
#pragma once

#if defined(__clang__)
#define KV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KV_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) KV_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY KV_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) KV_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) KV_THREAD_ANNOTATION(pt_guarded_by(x))
#define ACQUIRED_BEFORE(...) KV_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define ACQUIRED_AFTER(...) KV_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define REQUIRES(...) KV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) KV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) KV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) KV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define EXCLUDES(...) KV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define RETURN_CAPABILITY(x) KV_THREAD_ANNOTATION(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS KV_THREAD_ANNOTATION(no_thread_safety_analysis)
