#pragma once
// The metrics endpoint's settings keys; their rows (defaults, ranges, checks) are in the
// settings table with the others.

#include <cstdint>
#include <string>

#include "OmniraCore/foundation/SettingsKeys.h"

namespace omnira::SettingsKeys {

inline constexpr SettingKey<bool> metricsEnabled{"metricsEnabled"};
inline constexpr SettingKey<std::string> metricsAddress{"metricsAddress"};  // "127.0.0.1:9464"
inline constexpr SettingKey<std::string> metricsToken{"metricsToken"};      // empty: none asked
inline constexpr SettingKey<int64_t> metricsMaxApps{"metricsMaxApps"};
inline constexpr SettingKey<bool> metricsProjectPaths{"metricsProjectPaths"};

}  // namespace omnira::SettingsKeys
