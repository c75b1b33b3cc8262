#include "OmniraCore/foundation/SettingsFile.h"

#include <fmt/format.h>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/SettingsKeys.h"

namespace omnira {

namespace fs = std::filesystem;
using Kind = SettingsFile::Failure::Kind;

namespace {

Failed<SettingsFile::Failure> failure(Kind kind, std::string message) {
  return fail(SettingsFile::Failure{kind, std::move(message)});
}

}  // namespace

Result<nlohmann::json, SettingsFile::Failure> SettingsFile::set(std::string_view key, std::string_view text) const {
  const SettingSpec* spec = SettingsKeys::find(key);
  if (!spec) return failure(Kind::unknownKey, SettingsKeys::unknownKeySentence(key));
  auto value = spec->parse(text);
  if (!value) return failure(Kind::wrongValue, value.error());
  return setValue(key, *value);
}

Result<nlohmann::json, SettingsFile::Failure> SettingsFile::setValue(std::string_view key,
                                                                     const nlohmann::json& value) const {
  const SettingSpec* spec = SettingsKeys::find(key);
  if (!spec) return failure(Kind::unknownKey, SettingsKeys::unknownKeySentence(key));
  if (auto refusal = spec->refusal(value)) return failure(Kind::wrongValue, std::move(*refusal));
  auto values = readObject();
  if (!values) return fail(values.error());
  const std::string name(key);
  const nlohmann::ordered_json stored(value);
  if (auto it = values->find(name); it != values->end() && *it == stored) return value;
  (*values)[name] = stored;
  if (auto written = write(*values); !written) return fail(written.error());
  return value;
}

Result<void, SettingsFile::Failure> SettingsFile::unset(std::string_view key) const {
  if (!SettingsKeys::find(key)) return failure(Kind::unknownKey, SettingsKeys::unknownKeySentence(key));
  auto values = readObject();
  if (!values) return fail(values.error());
  if (values->erase(std::string(key)) == 0) return {};
  return write(*values);
}

Result<nlohmann::ordered_json, SettingsFile::Failure> SettingsFile::readObject() const {
  auto text = AtomicFile::read(file_, AtomicFile::settingsLimit, AtomicFile::Links::follow);
  if (!text) {
    if (text.error().missing) return nlohmann::ordered_json::object();
    return failure(Kind::unusable, fmt::format("The settings file could not be read: {}.", text.error().message));
  }
  if (trim(*text).empty()) return nlohmann::ordered_json::object();
  auto values = nlohmann::ordered_json::parse(*text, nullptr, /*allow_exceptions=*/false);
  if (values.is_discarded() || !values.is_object()) {
    return failure(Kind::unusable,
                   fmt::format("The settings file {} {}; it was left as it is. Mend or remove it, then try again.",
                               file_.string(), values.is_discarded() ? "is not valid JSON" : "does not hold a JSON object"));
  }
  return values;
}

Result<void, SettingsFile::Failure> SettingsFile::write(const nlohmann::ordered_json& values) const {
  // A settings file kept elsewhere and linked here stays linked: the target is replaced.
  std::error_code error;
  fs::path target = file_;
  if (fs::is_symlink(file_, error)) {
    target = fs::canonical(file_, error);
    if (error)
      return failure(Kind::notWritten, fmt::format("Cannot follow the link {}: {}.", file_.string(), error.message()));
  }
  auto written = AtomicFile::write(target, jsonText(values, 2) + "\n");
  if (!written)
    return failure(Kind::notWritten, fmt::format("The settings were not changed: {}.", written.error().message));
  return {};
}

}  // namespace omnira
