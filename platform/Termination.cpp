#include "platform/Termination.h"

#include <atomic>

namespace varnoth {

namespace {

std::atomic<bool> flag{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the flag is set from a signal handler");

} // namespace

void Termination::request() {
    flag.store(true, std::memory_order_relaxed);
}

bool Termination::requested() {
    return flag.load(std::memory_order_relaxed);
}

void Termination::clear() {
    flag.store(false, std::memory_order_relaxed);
}

} // namespace varnoth
