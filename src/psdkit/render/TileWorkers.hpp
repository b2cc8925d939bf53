#pragma once
// Spreading independent tiles over a few threads. Internal to the renderer; small on purpose, so
// that a shared pool can take its place.
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <thread>
#include <vector>

namespace psdkit::detail {

/// Calls `body(i)` for every i in 0 … count − 1 on up to `threads` threads (0: one per core), the
/// calling thread among them. Every index runs; afterwards the exception of the lowest failing
/// index is rethrown, so that failures do not depend on the number of threads.
template <typename Body> void forEachTile(std::size_t count, unsigned threads, Body&& body)
{
    if (threads == 0) {
        threads = std::max(1u, std::thread::hardware_concurrency());
    }
    threads = static_cast<unsigned>(std::min<std::size_t>(threads, std::max<std::size_t>(count, 1)));
    std::vector<std::exception_ptr> failures(count);
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t i = next++; i < count; i = next++) {
            try {
                body(i);
            } catch (...) {
                failures[i] = std::current_exception();
            }
        }
    };
    std::vector<std::thread> workers;
    for (unsigned t = 1; t < threads; ++t) {
        try {
            workers.emplace_back(work);
        } catch (const std::system_error&) {
            break; // no more threads: the ones started and this one do the rest
        }
    }
    work();
    for (auto& worker : workers) {
        worker.join();
    }
    for (const auto& failure : failures) {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }
}

} // namespace psdkit::detail
