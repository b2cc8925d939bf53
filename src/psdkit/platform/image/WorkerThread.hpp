#pragma once
// Internal to the image core: spreading independent pieces of codec work over the calling thread
// and at most one worker thread, with the same outcome as doing them in order on one thread.
#include <cstddef>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace psdkit::detail {

/// Below this plane size a second thread costs more than it saves.
inline constexpr std::size_t minimumPlaneBytesForWorker = std::size_t{1} << 20;

/// Calls `body(i)` for every i in 0 … count − 1. With `useWorker`, the odd indices run on a second
/// thread while the calling thread does the even ones; without it (or when no thread can be started)
/// all run here in order. Every index runs even if another fails; afterwards the exception of the
/// lowest failing index is rethrown, so the error is the one a run in order would report first.
template <typename Body> void forEachIndex(std::size_t count, bool useWorker, Body&& body)
{
    std::vector<std::exception_ptr> failures(count);
    const auto runFrom = [&](std::size_t first, std::size_t step) {
        for (std::size_t i = first; i < count; i += step) {
            try {
                body(i);
            } catch (...) {
                failures[i] = std::current_exception();
            }
        }
    };
    std::thread worker;
    if (useWorker && count > 1) {
        try {
            worker = std::thread(runFrom, 1, 2);
        } catch (const std::system_error&) {
            // No thread to be had: everything runs here.
        }
    }
    if (worker.joinable()) {
        runFrom(0, 2);
        worker.join();
    } else {
        runFrom(0, 1);
    }
    for (const std::exception_ptr& failure : failures) {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }
}

} // namespace psdkit::detail
