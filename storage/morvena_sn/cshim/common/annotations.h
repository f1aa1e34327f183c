// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

/**
  @file common/annotations.h
  What a mutex guards, in words that clang's thread-safety analysis checks
  (clang++ -Wthread-safety). Other compilers see nothing.
*/

#ifndef MORVENA_SN_COMMON_ANNOTATIONS_H
#define MORVENA_SN_COMMON_ANNOTATIONS_H

#if defined(__clang__)
#define THREAD_ANNOTATION(x) __attribute__((x))
#else
#define THREAD_ANNOTATION(x)
#endif

/** A class whose objects are held, a mutex for instance. */
#define CAPABILITY(name) THREAD_ANNOTATION(capability(name))
/** A class whose objects hold one for as long as they live. */
#define SCOPED_CAPABILITY THREAD_ANNOTATION(scoped_lockable)
/** A member that is used under the mutex only. */
#define GUARDED_BY(mutex) THREAD_ANNOTATION(guarded_by(mutex))
/** A function to be called under the mutex. */
#define REQUIRES(...) THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/** A function to be called without it, because it takes it. */
#define EXCLUDES(...) THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/** A function that takes the mutex, or gives it back. */
#define ACQUIRE(...) THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) THREAD_ANNOTATION(release_capability(__VA_ARGS__))

#endif  // MORVENA_SN_COMMON_ANNOTATIONS_H
