// The libFuzzer entry points of one fuzz target, chosen at build time by PSDKIT_FUZZ_TARGET_NAME.
// A broken promise (see Outcome::violation) is reported and aborts, so libFuzzer keeps the input.
#include <cstdio>
#include <cstdlib>

#include "targets/FuzzTargets.hpp"

namespace {
const psdkit::fuzz::Target& target()
{
    static const psdkit::fuzz::Target* const found = psdkit::fuzz::findTarget(PSDKIT_FUZZ_TARGET_NAME);
    if (found == nullptr) {
        std::fprintf(stderr, "no fuzz target called %s\n", PSDKIT_FUZZ_TARGET_NAME);
        std::abort();
    }
    return *found;
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    psdkit::fuzz::prepareLibrary();
    (void)target();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const psdkit::fuzz::Outcome outcome = target().run({data, size});
    if (outcome.violation) {
        std::fprintf(stderr, "psdkit %s target: %s\n", PSDKIT_FUZZ_TARGET_NAME, outcome.violation->c_str());
        std::abort();
    }
    return 0;
}
