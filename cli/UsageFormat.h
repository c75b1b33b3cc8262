#pragma once
// What only a terminal needs of token counts and plan limits, for `omnira tokens` and
// `omnira limits`: the texts both the command and the window show are in UsageWindowText.h.
// Plain functions of their arguments.

#include <cstddef>
#include <cstdint>
#include <string>

#include "OmniraCore/usage/UsageWindowText.h"

namespace omnira::cli {

std::string grouped(int64_t count);  // 12345678 -> "12,345,678"
// A bar of `width` cells for value against the largest value, in eighths of a cell ("██▍");
// a value above zero shows at least one eighth. Padded with spaces to `width` cells.
std::string bar(int64_t value, int64_t largest, size_t width);

// Cells a UTF-8 text takes in a terminal (one per code point; what these commands print).
size_t cells(const std::string& text);

}  // namespace omnira::cli
