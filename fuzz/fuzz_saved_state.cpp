// The files Omnira saves and reads back at start: the usage ledger, the "worth a look"
// list, the bridge's action log, the usage limits cache (with its token ledger) and the
// fans' saved controls. Each is decoded as its loader does; what decodes must survive
// being written and read again unchanged, since a save follows every load.

#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "OmniraCore/bridge/ActionRecord.h"
#include "OmniraCore/history/UsageLedger.h"
#include "OmniraCore/history/WorthALook.h"
#include "OmniraCore/platform/linux/FanControl.h"
#include "OmniraCore/usage/TokenLedger.h"
#include "OmniraCore/usage/UsageLimitsCache.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/RoundTrip.h"

using namespace omnira;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = fuzz::split(data, size, 6);
  const auto text = input.text;
  switch (input.selector) {
    case 0: fuzz::checkDecodedText<nlohmann::ordered_json, UsageLedger>(text); break;
    case 1: {
      const auto json = nlohmann::ordered_json::parse(text, nullptr, false);
      if (json.is_discarded()) break;
      std::vector<std::string> skipped;
      fuzz::checkRoundTrip<nlohmann::ordered_json>(WorthALook::fromJSON(json, &skipped));
      break;
    }
    case 2: {
      // The action log: a JSON list of records.
      const auto json = nlohmann::ordered_json::parse(text, nullptr, false);
      if (!json.is_array()) break;
      for (const auto& item : json)
        if (auto record = ActionRecord::fromJSON(item)) fuzz::checkRoundTrip<nlohmann::ordered_json>(*record);
      break;
    }
    case 3: fuzz::checkDecodedText<nlohmann::json, UsageLimitsCache>(text); break;
    case 4: fuzz::checkDecodedText<nlohmann::json, TokenLedger>(text); break;
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
