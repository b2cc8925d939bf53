#include "psdkit/platform/support/HostApplication.hpp"

#include <mutex>

namespace psdkit {
namespace {
std::mutex& applicationMutex()
{
    static std::mutex m;
    return m;
}
HostApplication& storedApplication()
{
    static HostApplication application;
    return application;
}
} // namespace

HostApplication HostApplication::current()
{
    std::lock_guard lock(applicationMutex());
    return storedApplication();
}

void HostApplication::setCurrent(HostApplication application)
{
    std::lock_guard lock(applicationMutex());
    storedApplication() = std::move(application);
}

} // namespace psdkit
