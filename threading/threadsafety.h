// SPDX-License-Identifier: Apache-2.0
#ifndef NUV_THREADSAFETY_H
#define NUV_THREADSAFETY_H

// Names the lock beside each member that threads share. Under clang with
// -Wthread-safety the compiler checks every access; elsewhere the macros
// are empty and serve as documentation.
#if defined(__clang__)
#define NUV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define NUV_THREAD_ANNOTATION(x)
#endif

#define NUV_CAPABILITY(name) NUV_THREAD_ANNOTATION(capability(name))
#define NUV_SCOPED_CAPABILITY NUV_THREAD_ANNOTATION(scoped_lockable)
#define NUV_GUARDED_BY(lock) NUV_THREAD_ANNOTATION(guarded_by(lock))
#define NUV_PT_GUARDED_BY(lock) NUV_THREAD_ANNOTATION(pt_guarded_by(lock))
#define NUV_REQUIRES(...) NUV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define NUV_EXCLUDES(...) NUV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define NUV_ACQUIRE(...) NUV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define NUV_RELEASE(...) NUV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NUV_RETURN_CAPABILITY(x) NUV_THREAD_ANNOTATION(lock_returned(x))
// For the few functions whose locking the analysis cannot follow (a lock
// taken only on some paths); say why beside each use.
#define NUV_NO_THREAD_SAFETY_ANALYSIS NUV_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif // NUV_THREADSAFETY_H
