#pragma once
// What a temperature sensor measures. Raw values are the wire and JSON form.

#include <string_view>

namespace omnira {

enum class SensorKind { cpu, gpu, memory, storage, battery, board, ambient, other };

std::string_view rawValue(SensorKind kind);

}  // namespace omnira
