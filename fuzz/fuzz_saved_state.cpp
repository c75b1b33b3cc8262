// The files Omnira saves and reads back at start: the usage ledger, the "worth a look"
// list, the bridge's action log, the usage limits cache (with its token ledger) and the
// fans' saved controls. Each is decoded as its loader does; what decodes must survive
// being written and read again unchanged, since a save follows every load.

#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "OmniraCore/bridge/ActionRecord.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/history/UsageLedger.h"
#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/platform/linux/FanControl.h"
#include "OmniraCore/usage/TokenLedger.h"
#include "OmniraCore/usage/UsageLimitsCache.h"
#include "fuzz/FuzzInput.h"

using namespace omnira;

namespace {

// Decoded, written as the saver writes it, parsed and decoded again: the same value.
template <class T, class Json>
void roundTrip(const T& decoded) {
  const auto again = Json::parse(jsonText(decoded.toJSON()), nullptr, /*allow_exceptions=*/false);
  if (again.is_discarded()) __builtin_trap();
  auto second = T::fromJSON(again);
  if (!second || !(*second == decoded)) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = fuzz::split(data, size, 6);
  const auto text = input.text;
  switch (input.selector) {
    case 0: {
      const auto json = nlohmann::ordered_json::parse(text, nullptr, false);
      if (json.is_discarded()) break;
      if (auto ledger = UsageLedger::fromJSON(json)) roundTrip<UsageLedger, nlohmann::ordered_json>(*ledger);
      break;
    }
    case 1: {
      const auto json = nlohmann::ordered_json::parse(text, nullptr, false);
      if (json.is_discarded()) break;
      std::vector<std::string> skipped;
      const auto list = WorthALook::fromJSON(json, &skipped);
      const auto again = nlohmann::ordered_json::parse(jsonText(list.toJSON()), nullptr, false);
      if (again.is_discarded() || !(WorthALook::fromJSON(again) == list)) __builtin_trap();
      break;
    }
    case 2: {
      // The action log: a JSON list of records.
      const auto json = nlohmann::ordered_json::parse(text, nullptr, false);
      if (!json.is_array()) break;
      for (const auto& item : json)
        if (auto record = ActionRecord::fromJSON(item)) roundTrip<ActionRecord, nlohmann::ordered_json>(*record);
      break;
    }
    case 3: {
      const auto json = nlohmann::json::parse(text, nullptr, false);
      if (json.is_discarded()) break;
      if (auto cache = UsageLimitsCache::fromJSON(json)) roundTrip<UsageLimitsCache, nlohmann::json>(*cache);
      break;
    }
    case 4: {
      const auto json = nlohmann::json::parse(text, nullptr, false);
      if (json.is_discarded()) break;
      if (auto ledger = TokenLedger::fromJSON(json)) roundTrip<TokenLedger, nlohmann::json>(*ledger);
      break;
    }
    case 5: {
      using platform::FanControl;
      if (auto saved = FanControl::decodeSaved(text)) {
        auto again = FanControl::decodeSaved(FanControl::encodeSaved(*saved));
        if (!again || !(*again == *saved)) __builtin_trap();
      }
      break;
    }
  }
  return 0;
}
