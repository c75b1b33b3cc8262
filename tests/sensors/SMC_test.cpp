// The SMC codec: decoding and encoding key bytes by type, the parameter record's layout,
// and the key lookups, reads, writes and fan keys over a controller held in memory.

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
  EXPECT_EQ(decoded("sp78", {0xFF, 0x00}), -1.0);
  EXPECT_EQ(decoded("fpe2", {0x0B, 0xB8}), 750.0);
  EXPECT_EQ(decoded("fpe2", {0xFF, 0xFF}), 16383.75);  // unsigned: the top bit is no sign
  EXPECT_EQ(decoded("sp5a", {0x04, 0x00}), 1.0);       // 10 fraction bits
  EXPECT_EQ(decoded("sp5a", {0xFC, 0x00}), -1.0);
  EXPECT_EQ(decoded("fp88", {0xFF, 0x80}), 255.5);
  EXPECT_EQ(decoded("sp1e", {0x43, 0x60}), std::ldexp(0x4360, -14));
  EXPECT_EQ(decoded("ui8 ", {0xC8}), 200.0);
  EXPECT_EQ(decoded("flt ", {0x00, 0x00, 0xC0, 0x3F}), 1.5);  // little-endian

  EXPECT_FALSE(decoded("xp78", {0x1F, 0x80}));
  EXPECT_FALSE(decoded("spxz", {0x1F, 0x80}));  // fraction bits not a hex digit
  EXPECT_FALSE(decoded("si8 ", {0x03}));
  EXPECT_FALSE(decoded("ui16", {0x00, 0x02}));
  // Sizes that do not fit the type.
  EXPECT_FALSE(decoded("flt ", {0x00, 0x00, 0xC0}));
  EXPECT_FALSE(decoded("sp78", {0x1F}));
  EXPECT_FALSE(decoded("ui8 ", {0x01, 0x02}));
  // Fewer bytes than the key's size.
  const Bytes one{0x1F};
  EXPECT_FALSE(SMC::decode(one, keyOf("sp78", 2)));
}

TEST(SMCCodec, PacksNamesBigEndianPaddedWithSpaces) {
  EXPECT_EQ(SMC::code("FNum"), 0x464E756Du);
  EXPECT_EQ(SMC::code("FNumber"), 0x464E756Du);
  EXPECT_EQ(SMC::code("ui8"), SMC::code("ui8 "));
  EXPECT_EQ(SMC::code("FS! "), 0x46532120u);
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
  EXPECT_EQ(SMC::bytes(-5.0, keyOf("fpe2", 2)), (Bytes{0x00, 0x00}));
  EXPECT_EQ(SMC::bytes(20000.0, keyOf("fpe2", 2)), (Bytes{0xFF, 0xFF}));
  EXPECT_EQ(SMC::bytes(3.9, keyOf("ui8 ", 1)), (Bytes{3}));
  EXPECT_EQ(SMC::bytes(-0.5, keyOf("ui8 ", 1)), (Bytes{0}));
  EXPECT_EQ(SMC::bytes(300.0, keyOf("ui8 ", 1)), (Bytes{255}));
  EXPECT_EQ(SMC::bytes(255.99, keyOf("ui8 ", 1)), (Bytes{255}));
  // Nothing to encode.
  EXPECT_FALSE(SMC::bytes(std::nan(""), keyOf("sp78", 2)));
  EXPECT_FALSE(SMC::bytes(std::numeric_limits<double>::infinity(), keyOf("ui8 ", 1)));
  EXPECT_FALSE(SMC::bytes(1.0, keyOf("xp78", 2)));
  EXPECT_FALSE(SMC::bytes(1.0, keyOf("ui16", 2)));
  EXPECT_FALSE(SMC::bytes(1.0, keyOf("flt ", 2)));
}

TEST(SMCRecord, LaysOutEveryFieldAtItsOffset) {
  SMC::Record r;
  r.key = SMC::code("F0Ac");
  r.version = {0x11, 0x12, 0x13, 0x14, 0x1516};
  r.powerLimits = {0x2122, 0x2324, 0x25262728, 0x292A2B2C, 0x2D2E2F30};
  r.keyInfo = {0x31323334, SMC::code("fpe2"), 0x35};
  r.result = 0x41;
  r.status = 0x42;
  r.command = SMC::readBytes;
  r.data32 = 0x45464748;
  for (size_t i = 0; i < 32; ++i) r.bytes[i] = static_cast<uint8_t>(0x80 + i);

  const auto b = r.encode();
  const std::array<uint8_t, 48> head = {
      'c', 'A', '0', 'F',                                  // 0: key, native order
      0x11, 0x12, 0x13, 0x14, 0x16, 0x15,                  // 4: version
      0, 0,                                                // 10: padding
      0x22, 0x21, 0x24, 0x23,                              // 12: limits' version, length
      0x28, 0x27, 0x26, 0x25, 0x2C, 0x2B, 0x2A, 0x29,      // 16: CPU, GPU limits
      0x30, 0x2F, 0x2E, 0x2D,                              // 24: memory limit
      0x34, 0x33, 0x32, 0x31,                              // 28: data size
      '2', 'e', 'p', 'f',                                  // 32: data type
      0x35, 0, 0, 0,                                       // 36: attributes, padding
      0x41, 0x42, 5, 0,                                    // 40: result, status, command, padding
      0x48, 0x47, 0x46, 0x45};                             // 44: 32-bit data
  for (size_t i = 0; i < head.size(); ++i) EXPECT_EQ(b[i], head[i]) << "offset " << i;
  for (size_t i = 0; i < 32; ++i) EXPECT_EQ(b[48 + i], static_cast<uint8_t>(0x80 + i)) << "offset " << 48 + i;

  EXPECT_EQ(SMC::Record::decode(b), r);
  auto padded = b;
  for (size_t at : {10, 11, 37, 38, 39, 43}) padded[at] = 0xEE;
  EXPECT_EQ(SMC::Record::decode(padded), r);
  EXPECT_EQ(SMC::Record::decode(padded).encode(), b);
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
  ASSERT_EQ(c.requests.size(), 1u);
  EXPECT_EQ(c.requests[0].command, SMC::readKeyInfo);
  EXPECT_EQ(c.requests[0].key, SMC::code("TC0P"));
  EXPECT_EQ(smc.value(*key), 58.25);
  EXPECT_EQ(c.requests.back().command, SMC::readBytes);
  EXPECT_EQ(c.requests.back().keyInfo.dataSize, 2u);
  EXPECT_EQ(smc.value("F0Tg"), 1800.0);
  EXPECT_EQ(smc.value("BNum"), 1.0);
  EXPECT_FALSE(smc.key("TZZZ"));  // result byte "not found"
  EXPECT_FALSE(smc.value("TZZZ"));

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
  EXPECT_EQ(c.requests.back().command, SMC::writeBytes);
  EXPECT_EQ(c.requests.back().keyInfo.dataSize, 4u);
  EXPECT_EQ(smc.value("F0Tg"), 2500.0);

  // A controller that answers with a non-zero result byte, or not at all.
  c.forcedResult = 0x85;
  EXPECT_FALSE(smc.key("TC0P"));
  EXPECT_FALSE(smc.value(*key));
  EXPECT_FALSE(smc.write(*target, fanTarget));
  c.forcedResult = 0;
  c.failing = true;
  EXPECT_FALSE(smc.value(*key));
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
  c.keys["FS! "] = {"ui16", {0x00, 0x01}};
  EXPECT_EQ(smc.fanIsManual(1), false);
  EXPECT_EQ(smc.fanIsManual(20), false);  // beyond the mask's bits
  c.keys.erase("FS! ");
  EXPECT_FALSE(smc.fanIsManual(1));

  EXPECT_FALSE(smc.needsUnlock());
  c.keys["Ftst"] = {"ui8 ", {0}};
  EXPECT_TRUE(smc.needsUnlock());
  EXPECT_FALSE(smc.systemPower());
  c.keys["PSTR"] = {"sp96", {0x05, 0xE0}};
  EXPECT_EQ(smc.systemPower(), 23.5);

  c.keys["FNum"] = {"sp78", {0x02, 0xE0}};  // 2.875 truncates to 2
  EXPECT_EQ(smc.fanCount(), 2);
  EXPECT_EQ(smc.fans().size(), 1u);
  c.keys["FNum"] = {"ui8 ", {0}};
  EXPECT_FALSE(smc.fanCount());
  EXPECT_TRUE(smc.fans().empty());
  c.keys.erase("FNum");
  EXPECT_TRUE(smc.fans().empty());
}

}  // namespace
}  // namespace omnira
