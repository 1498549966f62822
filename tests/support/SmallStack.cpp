#include <support/SmallStack.h>

#include <cstddef>
#include <pthread.h>
#include <stdexcept>

namespace {

#ifdef __OPTIMIZE__
constexpr std::size_t StackSize = 512 * 1024;
#else
constexpr std::size_t StackSize = 2048 * 1024;
#endif

} // namespace

void RunOnSmallStack(std::function<void()> function) {
    pthread_attr_t attributes;
    pthread_t thread;
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    pthread_attr_init(&attributes);
    if (pthread_attr_setstacksize(&attributes, StackSize) != 0 ||
        pthread_create(&thread, &attributes, run, &function) != 0)
        throw std::runtime_error("no thread with a small stack");
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}
