// The settings file and values as a person types them: the file's JSON read key by key
// through the settings table, `omnira settings set` values, the general JSON reader and
// the one JSON writer (which must take any bytes).

#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/JSONValue.h"
#include "OmniraCore/foundation/SettingsKeys.h"
#include "fuzz/FuzzInput.h"

using namespace omnira;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = fuzz::split(data, size, 4);
  const auto text = input.text;
  const auto table = SettingsKeys::all();
  switch (input.selector) {
    case 0: {
      // The settings file: every key of the table read from it as the getters do.
      const auto json = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
      if (json.is_discarded() || !json.is_object()) break;
      for (const auto& entry : table) {
        auto stored = json.find(std::string(entry.key));
        if (stored == json.end()) continue;
        // What a stored value reads as is a value the key takes.
        if (auto reading = entry.reading(*stored); reading && entry.refusal(*reading)) __builtin_trap();
      }
      fuzz::keep(jsonText(json, 2));
      break;
    }
    case 1: {
      // A typed value for the key named by the text's first byte.
      if (table.empty() || text.empty()) break;
      const auto& entry = table[static_cast<unsigned char>(text[0]) % table.size()];
      auto value = entry.parse(text.substr(1));
      if (value && entry.refusal(*value)) __builtin_trap();
      break;
    }
    case 2: {
      // Canonical JSON: what is encoded reads back as the same value.
      auto value = JSONValue::parse(text);
      if (!value) break;
      const auto encoded = value->encoded();
      auto again = JSONValue::parse(encoded);
      if (!again || !(*again == *value)) __builtin_trap();
      fuzz::keep(JSONValue::fromJSON(value->toJSON()));
      break;
    }
    case 3: {
      // Names from the system are any bytes; writing them must not throw.
      nlohmann::json object = {{std::string(text), std::string(text)}, {"list", {std::string(text)}}};
      fuzz::keep(jsonText(object));
      fuzz::keep(jsonText(nlohmann::ordered_json(object), 1));
      break;
    }
  }
  return 0;
}
