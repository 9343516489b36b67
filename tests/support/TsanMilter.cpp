// In builds with ThreadSanitizer alone. When libmilter stops, its pool's controller destroys the
// pool's lock and condition while the pool's workers still wait for them: reports on that would end
// the daemon, and they come from functions without names, so no suppression fits them that would not
// hide the same fault in the daemon's own code. Both are static and of no further use, so that they
// may as well stay.
//
// The program's definitions come before those of the sanitizer, which they call for everybody else.

#ifdef __SANITIZE_THREAD__

#include <cstring>

#include <dlfcn.h>
#include <pthread.h>

namespace {

bool s_isMilter(const void *caller) {
    Dl_info info{};
    return dladdr(caller, &info) != 0 && std::strstr(info.dli_fname, "/libmilter.so") != nullptr;
}

} // namespace

extern "C" {

int destroyWatchedMutex(pthread_mutex_t *mutex) __asm__("__interceptor_pthread_mutex_destroy");
int destroyWatchedCondition(pthread_cond_t *condition) __asm__(
    "__interceptor_pthread_cond_destroy");

int pthread_mutex_destroy(pthread_mutex_t *mutex) noexcept {
    return s_isMilter(__builtin_return_address(0)) ? 0 : destroyWatchedMutex(mutex);
}

int pthread_cond_destroy(pthread_cond_t *condition) noexcept {
    return s_isMilter(__builtin_return_address(0)) ? 0 : destroyWatchedCondition(condition);
}
}

#endif
