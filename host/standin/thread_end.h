// A function that is called for a thread when the thread ends.
#pragma once

#include <pthread.h>

namespace standin {

// The destructor of a thread-specific value: it runs behind those of all thread_local objects, which may
// still call the kernel, and may be asked for as late as that.
class ThreadEnd {
public:
    explicit ThreadEnd(void (*function)(void*)) : has_key_(pthread_key_create(&key_, function) == 0) {}

    // Has the function called with argument when this thread ends; null: not at all. False where that cannot
    // be.
    bool Call(void* argument) const { return has_key_ && pthread_setspecific(key_, argument) == 0; }

private:
    pthread_key_t key_{};
    bool has_key_;
};

} // namespace standin
