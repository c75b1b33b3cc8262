#pragma once
// /proc/pressure/memory: how much of the recent past tasks spent waiting for memory.

#include <string_view>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"
#include "OmniraCore/sampling/SystemSource.h"

namespace omnira::platform {

// https://docs.kernel.org/accounting/psi.html
// Needs both the "some" and the "full" line with an avg10 value.
Result<MemoryStall, ParseFailure> parseMemoryStall(std::string_view text);

}  // namespace omnira::platform
