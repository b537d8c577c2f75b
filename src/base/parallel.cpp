#include "base/parallel.h"

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

namespace kv {

u32 threadCount() {
    return std::max(std::thread::hardware_concurrency(), 1U);
}

void inParallel(u32 count, const std::function<void(u32)>& work) {
    std::vector<std::jthread> threads;
    threads.reserve(count);
    u32 started = 0;
    try {
        for (; started + 1 < count; ++started) threads.emplace_back([&work, started] { work(started); });
    } catch (const std::system_error&) { // the rest is done here
    }
    for (; started < count; ++started) work(started);
}

} // namespace kv
