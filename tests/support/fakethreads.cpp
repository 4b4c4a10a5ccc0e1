#include "support/fakethreads.h"

#include <cerrno>

#include <dlfcn.h>
#include <pthread.h>

std::atomic<bool> FakeThreads::noneLeft = false;

extern "C" {

/// The sanitizers' own, a part of the program where clang builds it: a thread that they do not know of
/// crashes.
__attribute__((weak)) int sanitizedCreate(pthread_t* thread, const pthread_attr_t* attributes,
                                          void* (*routine)(void*), void* argument) noexcept
    asm("__interceptor_pthread_create");

__attribute__((visibility("default"))) int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                                          void* (*routine)(void*), void* argument) noexcept
{
    static const auto next =
        reinterpret_cast<decltype(&pthread_create)>(::dlsym(RTLD_NEXT, "pthread_create"));
    if (FakeThreads::noneLeft) {
        return EAGAIN;
    }
    return sanitizedCreate != nullptr ? sanitizedCreate(thread, attributes, routine, argument)
                                      : next(thread, attributes, routine, argument);
}

} // extern "C"
