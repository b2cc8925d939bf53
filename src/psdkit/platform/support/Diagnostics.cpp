#include "psdkit/platform/support/Diagnostics.hpp"

#include <atomic>
#include <cstdio>
#include <mutex>

namespace psdkit {
namespace {
void writeToStandardOutput(std::string_view line)
{
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
}
std::mutex& sinkMutex()
{
    static std::mutex m;
    return m;
}
DiagnosticsSink& sinkStorage()
{
    static DiagnosticsSink sink = writeToStandardOutput;
    return sink;
}
std::atomic<bool> sinkEnabled{true};
} // namespace

DiagnosticsSink setDiagnosticsSink(DiagnosticsSink sink)
{
    std::lock_guard lock(sinkMutex());
    sinkEnabled = static_cast<bool>(sink);
    DiagnosticsSink previous = std::move(sinkStorage());
    sinkStorage() = std::move(sink);
    return previous;
}

bool diagnosticsEnabled() noexcept
{
    return sinkEnabled.load(std::memory_order_relaxed);
}

void emitDiagnostic(std::string_view line)
{
    if (!diagnosticsEnabled()) {
        return;
    }
    std::lock_guard lock(sinkMutex());
    if (sinkStorage()) {
        sinkStorage()(line);
    }
}

} // namespace psdkit
