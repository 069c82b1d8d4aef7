#include "dro_threads.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <utility>

#include "dro_log.h"

namespace dro {
namespace {

using Body = std::function<void()>;

void* run_body(void* argument) {
    const std::unique_ptr<Body> body(static_cast<Body*>(argument));
    try {
        (*body)();
    } catch (const std::exception& failure) {
        LOG_ERROR("A thread exits after an exception: %s\n", failure.what());
    }
    return nullptr;
}

}  // namespace

int start_thread(pthread_t& thread, void* (*body)(void*), void* argument, bool detached) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, detached ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE);
    pthread_attr_setstacksize(&attributes, DRO_THREAD_STACK);
    const int result = pthread_create(&thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    return result;
}

int start_detached(Body body) {
    std::unique_ptr<Body> owned(new (std::nothrow) Body(std::move(body)));
    if (!owned) {
        return ENOMEM;
    }
    pthread_t thread{};
    const int result = start_thread(thread, run_body, owned.get(), true);
    if (result == 0) {
        static_cast<void>(owned.release());  // now owned by run_body
    }
    return result;
}

void end_process(int status) {
    std::fflush(nullptr);
    _exit(status);
}

}  // namespace dro
