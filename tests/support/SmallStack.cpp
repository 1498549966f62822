#include <support/SmallStack.h>

#include <pthread.h>
#include <stdexcept>

void RunOnSmallStack(std::function<void()> function) {
    pthread_attr_t attributes;
    pthread_t thread;
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    pthread_attr_init(&attributes);
    if (pthread_attr_setstacksize(&attributes, 512 * 1024) != 0 ||
        pthread_create(&thread, &attributes, run, &function) != 0)
        throw std::runtime_error("no thread with a small stack");
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}
