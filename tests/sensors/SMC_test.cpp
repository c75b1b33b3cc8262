// The SMC codec: decoding and encoding key bytes by type, and the key lookups, reads, writes
// and fan keys over a controller held in memory (which decodes the records it is sent).

#include "OmniraCore/sensors/SMC.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <string>

namespace omnira {
namespace {

using Bytes = std::vector<uint8_t>;

SMC::Key keyOf(const char* type, uint32_t size) { return {SMC::code("TEST"), size, SMC::code(type)}; }

std::optional<double> decoded(const char* type, Bytes bytes) {
  return SMC::decode(bytes, keyOf(type, static_cast<uint32_t>(bytes.size())));
}

// A controller in memory, answering records as the hardware does.
class Controller : public SMCTransport {
 public:
  struct Stored {
    std::string type;
    Bytes bytes;
  };
  std::map<std::string, Stored> keys;
  std::vector<SMC::Record> requests;
  uint8_t forcedResult = 0;
  bool failing = false;

  std::optional<std::array<uint8_t, 80>> call(const std::array<uint8_t, 80>& input) override {
    auto request = SMC::Record::decode(input);
    requests.push_back(request);
    if (failing) return std::nullopt;
    auto reply = request;
    const char name[] = {static_cast<char>(request.key >> 24), static_cast<char>(request.key >> 16),
                         static_cast<char>(request.key >> 8), static_cast<char>(request.key)};
    auto it = keys.find(std::string(name, 4));
    if (forcedResult != 0 || it == keys.end()) {
      reply.result = forcedResult != 0 ? forcedResult : SMC::keyNotFound;
      return reply.encode();
    }
    auto& stored = it->second;
    switch (request.command) {
      case SMC::readKeyInfo:
        reply.keyInfo.dataSize = static_cast<uint32_t>(stored.bytes.size());
        reply.keyInfo.dataType = SMC::code(stored.type);
        break;
      case SMC::readBytes:
        if (request.keyInfo.dataSize != stored.bytes.size()) return std::nullopt;
        std::copy(stored.bytes.begin(), stored.bytes.end(), reply.bytes.begin());
        break;
      case SMC::writeBytes:
        if (request.keyInfo.dataSize != stored.bytes.size()) return std::nullopt;
        std::copy(request.bytes.begin(), request.bytes.begin() + request.keyInfo.dataSize, stored.bytes.begin());
        break;
      default:
        return std::nullopt;
    }
    return reply.encode();
  }
};

TEST(SMCCodec, DecodesTheNamedAndGenericTypes) {
  EXPECT_EQ(decoded("sp78", {0x1F, 0x80}), 31.5);
  EXPECT_EQ(decoded("fpe2", {0x0B, 0xB8}), 750.0);
  EXPECT_EQ(decoded("fpe2", {0xFF, 0xFF}), 16383.75);  // unsigned: the top bit is no sign
  EXPECT_EQ(decoded("sp5a", {0x04, 0x00}), 1.0);       // 10 fraction bits
  EXPECT_EQ(decoded("sp1e", {0x43, 0x60}), std::ldexp(0x4360, -14));
  EXPECT_EQ(decoded("ui8 ", {0xC8}), 200.0);
  EXPECT_EQ(decoded("flt ", {0x00, 0x00, 0xC0, 0x3F}), 1.5);  // little-endian

  EXPECT_FALSE(decoded("xp78", {0x1F, 0x80}));
  EXPECT_FALSE(decoded("spxz", {0x1F, 0x80}));  // fraction bits not a hex digit
  // Sizes that do not fit the type.
  EXPECT_FALSE(decoded("flt ", {0x00, 0x00, 0xC0}));
  // Fewer bytes than the key's size.
  const Bytes one{0x1F};
  EXPECT_FALSE(SMC::decode(one, keyOf("sp78", 2)));
}

TEST(SMCCodec, PacksNamesBigEndianPaddedWithSpaces) {
  EXPECT_EQ(SMC::code("FNum"), 0x464E756Du);
  EXPECT_EQ(SMC::code("ui8"), SMC::code("ui8 "));
  EXPECT_EQ(SMC::code("\xC3\xA9t\xC3\xA9"), 0xC3A974C3u);  // bytes, not characters
}

// The decoder is pinned byte by byte above, so a round trip pins the encoder.
TEST(SMCCodec, EncodesRoundTripsAndClamps) {
  const std::vector<std::pair<SMC::Key, std::vector<double>>> exact = {
      {keyOf("fpe2", 2), {0.0, 0.25, 2000.0, 6199.75, 16383.75}},
      {keyOf("sp78", 2), {-128.0, -0.00390625, 58.25, 127.99609375}},
      {keyOf("sp5a", 2), {-31.9990234375, 0.0009765625, 31.0}},
      {keyOf("flt ", 4), {1795.5, -3.25, 1e30}},
  };
  for (const auto& [key, values] : exact) {
    for (double v : values) {
      auto b = SMC::bytes(v, key);
      ASSERT_TRUE(b) << v;
      EXPECT_EQ(SMC::decode(*b, key), static_cast<float>(v)) << v;  // every value here is exact as a float
    }
  }
  // Between steps: the nearest step.
  EXPECT_EQ(SMC::bytes(2000.2, keyOf("fpe2", 2)), SMC::bytes(2000.25, keyOf("fpe2", 2)));
  // Out of range: the type's ends.
  EXPECT_EQ(SMC::bytes(200.0, keyOf("sp78", 2)), (Bytes{0x7F, 0xFF}));
  EXPECT_EQ(SMC::bytes(-200.0, keyOf("sp78", 2)), (Bytes{0x80, 0x00}));
  EXPECT_EQ(SMC::bytes(3.9, keyOf("ui8 ", 1)), (Bytes{3}));
  // Nothing to encode.
  EXPECT_FALSE(SMC::bytes(std::nan(""), keyOf("sp78", 2)));
  EXPECT_FALSE(SMC::bytes(std::numeric_limits<double>::infinity(), keyOf("ui8 ", 1)));
}

TEST(SMCKeys, LooksUpReadsAndWritesThroughTheRecords) {
  Controller c;
  c.keys["TC0P"] = {"sp78", {0x3A, 0x40}};
  c.keys["F0Tg"] = {"flt ", {0x00, 0x00, 0xE1, 0x44}};
  c.keys["BNum"] = {"ui8 ", {0x01}};
  SMC smc(c);

  auto key = smc.key("TC0P");
  ASSERT_TRUE(key);
  EXPECT_EQ(*key, (SMC::Key{SMC::code("TC0P"), 2, SMC::signedFixed78}));
  EXPECT_EQ(smc.value(*key), 58.25);
  EXPECT_FALSE(smc.key("TZZZ"));  // result byte "not found"

  // Wrong byte counts are refused before anything reaches the controller.
  const auto before = c.requests.size();
  const Bytes three{1, 2, 3};
  const SMC::Key fanTarget{SMC::code("F0Tg"), 4, SMC::float_};
  EXPECT_FALSE(smc.write(three, fanTarget));
  const Bytes many(33, 0);
  EXPECT_FALSE(smc.write(many, {SMC::code("F0Tg"), 33, SMC::float_}));
  EXPECT_EQ(c.requests.size(), before);

  auto target = SMC::bytes(2500, fanTarget);
  ASSERT_TRUE(target);
  EXPECT_TRUE(smc.write(*target, fanTarget));
  EXPECT_EQ(smc.value("F0Tg"), 2500.0);

  // A controller that answers with a non-zero result byte, or not at all.
  c.forcedResult = 0x85;
  EXPECT_FALSE(smc.key("TC0P"));
  EXPECT_FALSE(smc.write(*target, fanTarget));
  c.forcedResult = 0;
  c.failing = true;
  EXPECT_FALSE(smc.write(*target, fanTarget));
  c.failing = false;
  EXPECT_EQ(smc.value(*key), 58.25);
}

TEST(SMCFans, ListsFansWithAnActualSpeedAndTellsManualMode) {
  Controller c;
  c.keys["FNum"] = {"ui8 ", {3}};
  c.keys["F0Ac"] = {"fpe2", {0x1F, 0x3B}};
  c.keys["F0Mn"] = {"fpe2", {0x1F, 0x40}};
  c.keys["F0Mx"] = {"fpe2", {0x60, 0xE0}};
  c.keys["F0Tg"] = {"fpe2", {0x2E, 0xE0}};
  c.keys["F0Md"] = {"ui8 ", {1}};
  c.keys["F1Mn"] = {"fpe2", {0x1F, 0x40}};  // no F1Ac: not a fan here
  c.keys["F2Ac"] = {"fpe2", {0x0B, 0xB8}};  // no min or max
  c.keys["FS! "] = {"ui16", {0x00, 0x06}};  // fans 1 and 2
  SMC smc(c);

  EXPECT_EQ(smc.fanCount(), 3);
  EXPECT_EQ(smc.fans(), (std::vector<FanReading>{{0, 1998.75, 2000, 6200}, {2, 750, 0, 0}}));
  EXPECT_EQ(smc.fanTarget(0), 3000.0);
  EXPECT_FALSE(smc.fanTarget(2));
  EXPECT_EQ(smc.fanIsManual(0), true);   // its mode key
  EXPECT_EQ(smc.fanIsManual(2), true);   // the mask's bit 2
  c.keys["F2Md"] = {"ui8 ", {0}};
  EXPECT_EQ(smc.fanIsManual(2), false);  // the mode key wins over the mask
  c.keys.erase("FS! ");
  EXPECT_FALSE(smc.fanIsManual(1));

  c.keys["Ftst"] = {"ui8 ", {0}};
  EXPECT_TRUE(smc.needsUnlock());
  c.keys["PSTR"] = {"sp96", {0x05, 0xE0}};
  EXPECT_EQ(smc.systemPower(), 23.5);

  c.keys["FNum"] = {"ui8 ", {0}};
  EXPECT_TRUE(smc.fans().empty());
}

}  // namespace
}  // namespace omnira
