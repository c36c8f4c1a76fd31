// SPDX-License-Identifier: Apache-2.0
// Which lock guards what, in a form that clang's thread-safety analysis checks; other compilers see nothing.
#ifndef KFLCOMMON_KFLTHREADANNOTATIONS_H
#define KFLCOMMON_KFLTHREADANNOTATIONS_H

#include <KFLCommon/KFLLanguage.h>

#if defined(__clang__)
#define KFL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KFL_THREAD_ATTRIBUTE(x)
#endif

// For lock classes.
#define KFL_CAPABILITY(name) KFL_THREAD_ATTRIBUTE(capability(name))
#define KFL_SCOPED_CAPABILITY KFL_THREAD_ATTRIBUTE(scoped_lockable)
// For data: the lock that must be held to touch it, or what it points to.
#define KFL_GUARDED_BY(lock) KFL_THREAD_ATTRIBUTE(guarded_by(lock))
#define KFL_PT_GUARDED_BY(lock) KFL_THREAD_ATTRIBUTE(pt_guarded_by(lock))
// For functions: the caller holds the lock, or must not hold it.
#define KFL_REQUIRES(...) KFL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define KFL_EXCLUDES(...) KFL_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
// For functions that take and release.
#define KFL_ACQUIRE(...) KFL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define KFL_TRY_ACQUIRE(...) KFL_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define KFL_RELEASE(...) KFL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
// For the rare function that the analysis cannot follow; say why beside it.
#define KFL_NO_THREAD_SAFETY_ANALYSIS KFL_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif
