#pragma once
// Internal: spreading independent pieces of work over a few threads, with the outcome of doing
// them in order on one thread.
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace psdkit::detail {

/// The number of threads a host's `threadCount` asks for: itself, or one per hardware thread for 0.
[[nodiscard]] inline unsigned effectiveThreadCount(unsigned requested) noexcept
{
    if (requested != 0) {
        return requested;
    }
    const unsigned hardware = std::thread::hardware_concurrency();
    return hardware == 0 ? 1 : hardware;
}

/// Calls `body(i)` for every i in 0 … count − 1 on at most `threads` threads (the caller's among
/// them), which take the indices in increasing order as they become free. Every index runs even if
/// another fails; afterwards the exception of the lowest failing index is rethrown, so the error
/// is the one a run in order would meet first. When no thread can be started, the rest runs here.
template <typename Body> void parallelForEach(std::size_t count, unsigned threads, Body&& body)
{
    std::vector<std::exception_ptr> failures(count);
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t i = next.fetch_add(1, std::memory_order_relaxed); i < count;
             i = next.fetch_add(1, std::memory_order_relaxed)) {
            try {
                body(i);
            } catch (...) {
                failures[i] = std::current_exception();
            }
        }
    };
    std::vector<std::thread> helpers;
    const std::size_t helperCount =
        std::min<std::size_t>(threads == 0 ? 0 : threads - 1, count > 0 ? count - 1 : 0);
    helpers.reserve(helperCount);
    for (std::size_t t = 0; t < helperCount; ++t) {
        try {
            helpers.emplace_back(work);
        } catch (const std::system_error&) {
            break; // no more threads to be had: the others and this one share the work
        }
    }
    work();
    for (auto& helper : helpers) {
        helper.join();
    }
    for (const std::exception_ptr& failure : failures) {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }
}

} // namespace psdkit::detail
