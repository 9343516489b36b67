#ifndef CORVANE_HOST_PARSER_THREADSAFETY_H
#define CORVANE_HOST_PARSER_THREADSAFETY_H

// Names for Clang's thread-safety attributes; they say nothing to other compilers. Shared data is
// declared CORVANE_GUARDED_BY(mutex), and Clang's -Wthread-safety then refuses an access without
// the lock.

#if defined(__clang__)
#define CORVANE_THREAD_ATTRIBUTE(attribute) __attribute__((attribute))
#else
#define CORVANE_THREAD_ATTRIBUTE(attribute)
#endif

#define CORVANE_CAPABILITY(name) CORVANE_THREAD_ATTRIBUTE(capability(name))
#define CORVANE_SCOPED_CAPABILITY CORVANE_THREAD_ATTRIBUTE(scoped_lockable)
#define CORVANE_GUARDED_BY(mutex) CORVANE_THREAD_ATTRIBUTE(guarded_by(mutex))
#define CORVANE_ACQUIRE(...) CORVANE_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define CORVANE_RELEASE(...) CORVANE_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))

#endif
