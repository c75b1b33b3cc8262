#include "cli/SettingsCommand.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <ctime>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Settings.h"
#include "OmniraCore/foundation/SettingsFile.h"
#include "OmniraCore/foundation/SettingsKeys.h"
#include "cli/CanQuit.h"

namespace omnira::cli {

namespace {

constexpr int kFailed = 1;
constexpr int kUsageError = 2;
constexpr size_t kValueColumn = 12;  // longer values push the description along

std::string_view typeName(SettingSpec::Type type) {
  switch (type) {
    case SettingSpec::Type::boolean: return "boolean";
    case SettingSpec::Type::integer: return "integer";
    case SettingSpec::Type::number: return "number";
    case SettingSpec::Type::choice: return "choice";
    case SettingSpec::Type::json: return "json";
  }
  return "";
}

// Texts bare, so that `$(omnira settings get temperatureUnit)` is the word itself.
std::string shown(const nlohmann::json& value) {
  return value.is_string() ? value.get<std::string>() : jsonText(value);
}

// The settings Omnira reads now: a file that cannot be used reads as all defaults, as in
// the application, and the person is told why.
Settings current(const AppPaths& paths, std::FILE* err) {
  auto settings = Settings::read(paths.settingsFile());
  if (settings) return std::move(settings).value();
  fmt::print(err, "omnira: {} Omnira uses the defaults until it is mended.\n", settings.error().message);
  return Settings();
}

int unknownKey(const std::string& key, std::FILE* err) {
  fmt::print(err, "omnira: {} Run 'omnira settings list' to see them all.\n", SettingsKeys::unknownKeySentence(key));
  return kUsageError;
}

// How the agent bridge stands, from what the running Omnira keeps in "bridge.json".
std::string bridgeState(const AppPaths& paths, const Settings& settings) {
  const auto running = runningOmnira(paths);
  const bool enabled = settings.boolean(SettingsKeys::bridgeEnabled);
  if (!running)
    return enabled ? "Bridge: on, once Omnira runs (omnira run)."
                   : "Bridge: off. omnira settings set bridgeEnabled true lets coding agents ask Omnira.";
  nlohmann::json state;
  if (auto text = AtomicFile::read(paths.dataFile("bridge.json")))
    state = nlohmann::json::parse(*text, nullptr, /*allow_exceptions=*/false);
  // A file of an earlier run says nothing about this one.
  if (!state.is_object() || state.value("pid", 0) != *running)
    return enabled ? "Bridge: starting." : "Bridge: off. omnira settings set bridgeEnabled true lets coding agents ask Omnira.";
  if (state["failure"].is_string()) return "Bridge: could not start: " + state["failure"].get<std::string>();
  if (!state.value("listening", false))
    return "Bridge: off. omnira settings set bridgeEnabled true lets coding agents ask Omnira.";
  std::string line = "Bridge: listening at " + state.value("socket", std::string("?"));
  if (state["lastAsked"].is_string()) {
    if (const auto asked = parseISO8601(state["lastAsked"].get<std::string>()))
      line += "; last asked " + formatLocal(*asked, "%Y-%m-%d %H:%M:%S");
  } else {
    line += "; not asked yet";
  }
  return line + ". omnira mcp setup adds Omnira to your agents.";
}

int list(const SettingsRequest& request, const AppPaths& paths, std::FILE* out, std::FILE* err) {
  const Settings settings = current(paths, err);
  if (request.json) {
    auto rows = nlohmann::json::array();
    for (const auto& spec : SettingsKeys::all()) {
      const auto value = settings.value(spec.key);
      nlohmann::json row = {{"key", spec.key},
                            {"type", typeName(spec.type)},
                            {"value", value},
                            {"default", spec.defaultValue},
                            {"isDefault", value == spec.defaultValue},
                            {"isSet", settings.stored(spec.key) != nullptr},
                            {"accepts", spec.accepts()},
                            {"description", spec.description}};
      if (const auto* stored = settings.stored(spec.key); stored && *stored != value) row["stored"] = *stored;
      rows.push_back(std::move(row));
    }
    fmt::print(out, "{}\n", jsonText(rows, 2));
    return 0;
  }
  size_t keyWidth = 0, valueWidth = 0;
  for (const auto& spec : SettingsKeys::all()) {
    keyWidth = std::max(keyWidth, spec.key.size());
    valueWidth = std::max(valueWidth, std::min(shown(settings.value(spec.key)).size(), kValueColumn));
  }
  fmt::print(out, "Settings file: {}\n", paths.settingsFile().string());
  for (const auto& spec : SettingsKeys::all()) {
    const auto value = settings.value(spec.key);
    const auto* stored = settings.stored(spec.key);
    const bool adjusted = stored && *stored != value;
    const std::string_view mark = adjusted ? "adjusted" : value == spec.defaultValue ? "default" : "";
    fmt::print(out, "{:<{}}  {:<{}}  {:<8}  {}\n", spec.key, keyWidth, shown(value), valueWidth, mark, spec.description);
    // Why a hand-edited value reads differently from what the file holds.
    if (adjusted) {
      fmt::print(out, "{:<{}}  the file holds {}: {}\n", "", keyWidth, stored->dump(),
                 spec.refusal(*stored).value_or(""));
    }
  }
  fmt::print(out, "\n{}\n", bridgeState(paths, settings));
  return 0;
}

}  // namespace

int runSettings(const SettingsRequest& request, const AppPaths& paths, std::FILE* out, std::FILE* err) {
  using Command = SettingsRequest::Command;
  if (request.command == Command::list) return list(request, paths, out, err);
  const SettingSpec* spec = SettingsKeys::find(request.key);
  if (!spec) return unknownKey(request.key, err);

  if (request.command == Command::get) {
    const Settings settings = current(paths, err);
    // A value put there by hand that the key does not take: say why the default shows.
    if (const auto* stored = settings.stored(spec->key); stored && !spec->reading(*stored))
      fmt::print(err, "omnira: The settings file holds {} for \"{}\", which takes {}; the default is used.\n",
                 jsonText(*stored), spec->key, spec->accepts());
    fmt::print(out, "{}\n", shown(settings.value(spec->key)));
    return 0;
  }

  const SettingsFile file(paths.settingsFile());
  using Kind = SettingsFile::Failure::Kind;
  const auto failed = [&](const SettingsFile::Failure& failure) {
    fmt::print(err, "omnira: {}\n", failure.message);
    return failure.kind == Kind::unknownKey || failure.kind == Kind::wrongValue ? kUsageError : kFailed;
  };
  if (request.command == Command::set) {
    auto written = file.set(spec->key, request.value);
    if (!written) return failed(written.error());
    fmt::print(out, "{} = {}\n", spec->key, shown(*written));
    return 0;
  }
  if (auto removed = file.unset(spec->key); !removed) return failed(removed.error());
  fmt::print(out, "{} = {} (default)\n", spec->key, shown(spec->defaultValue));
  return 0;
}

}  // namespace omnira::cli
