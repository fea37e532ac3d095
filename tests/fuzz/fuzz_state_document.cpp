// Coverage-guided fuzzing of the state reader with libFuzzer (clang builds
// only, see CMakeLists.txt): the contract of support_state_property.h on
// whatever bytes the fuzzer makes. A broken contract aborts with the reason,
// and libFuzzer keeps the input as a crash file.

#include "support_state_property.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const vistrel::fuzz::StatePropertyOutcome outcome = vistrel::fuzz::checkStateDocument(
        QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    if (!outcome.failure.isEmpty()) {
        std::fprintf(stderr, "State document contract broken: %s\n",
                     outcome.failure.toLocal8Bit().constData());
        std::abort();
    }
    return 0;
}
