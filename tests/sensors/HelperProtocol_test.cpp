#include "OmniraCore/sensors/HelperProtocol.h"

#include <gtest/gtest.h>

#include <string>

namespace omnira {
namespace {

TEST(HelperProtocol, RequestsRoundTripAndCarryOnlyNumbers) {
  HelperRequest processes{HelperRequest::Op::processes, {1, 42, 4194304}};
  HelperRequest speed{HelperRequest::Op::setFan};
  speed.fanIndex = 3;
  speed.rpm = 1850.5;
  HelperRequest automatic{HelperRequest::Op::setFan};
  automatic.fanIndex = 0;
  for (const auto& request : {HelperRequest{HelperRequest::Op::hello}, HelperRequest{HelperRequest::Op::rapl},
                              HelperRequest{HelperRequest::Op::fans}, processes, speed, automatic}) {
    const std::string line = HelperProtocol::encodeRequest(request);
    EXPECT_EQ(line.find('\n'), std::string::npos) << line;
    auto decoded = HelperProtocol::decodeRequest(line);
    ASSERT_TRUE(decoded) << line << ": " << decoded.error();
    EXPECT_EQ(*decoded, request) << line;
  }
  EXPECT_EQ(HelperProtocol::encodeRequest(automatic), R"({"op":"set_fan","index":0,"mode":"auto"})");

  // Repeated pids are asked once.
  auto repeated = HelperProtocol::decodeRequest(R"({"op":"processes","pids":[7,7,8]})");
  ASSERT_TRUE(repeated);
  EXPECT_EQ(repeated->pids, (std::vector<int32_t>{7, 8}));
}

TEST(HelperProtocol, HostileRequestsGetASentenceNeverACrash) {
  const std::string many = [] {
    std::string pids;
    for (size_t i = 1; i <= HelperProtocol::kMaxPIDs + 1; ++i) pids += (i > 1 ? "," : "") + std::to_string(i);
    return R"({"op":"processes","pids":[)" + pids + "]}";
  }();
  const std::string deep = std::string(60000, '[') + std::string(60000, ']');
  for (const std::string& line : std::vector<std::string>{
           "", "not json", "[]", "\"hello\"", R"({"op":1})", R"({"op":"read_file","path":"/etc/shadow"})",
           R"({"op":"hello","path":"/etc/shadow"})", R"({"op":"rapl","zone":"x"})", R"({"op":"processes"})",
           R"({"op":"processes","pids":"1"})", R"({"op":"processes","pids":[1],"cmd":"rm"})",
           R"({"op":"processes","pids":[1.5]})", R"({"op":"processes","pids":[0]})",
           R"({"op":"processes","pids":["1"]})", R"({"op":"processes","pids":[2147483648]})", many,
           R"({"op":"set_fan","index":1})", R"({"op":"set_fan","rpm":100})", R"({"op":"set_fan","index":-1,"rpm":100})",
           R"({"op":"set_fan","index":"1","rpm":100})", R"({"op":"set_fan","index":1.5,"rpm":100})",
           R"({"op":"set_fan","index":1,"rpm":-1})", R"({"op":"set_fan","index":1,"rpm":1e400})",
           R"({"op":"set_fan","index":1,"rpm":"fast"})", R"({"op":"set_fan","index":1,"rpm":100,"mode":"auto"})",
           R"({"op":"set_fan","index":1,"mode":"manual"})", R"({"op":"set_fan","index":1,"rpm":100,"file":"pwm1"})", deep,
           std::string(HelperProtocol::kMaxLineBytes + 1, ' ') + R"({"op":"hello"})", "{\"op\":\"hel\xff\xfelo\"}",
           std::string("{\"op\":\"hello\"}\0{\"op\":\"rapl\"}", 28)}) {
    auto decoded = HelperProtocol::decodeRequest(line);
    EXPECT_FALSE(decoded) << line.substr(0, 80);
    if (!decoded) {
      EXPECT_FALSE(decoded.error().empty());
      EXPECT_EQ(decoded.error().back(), '.') << decoded.error();
      // The sentence goes back as a reply that the client reads as a refusal.
      auto reply = HelperProtocol::decodeHello(HelperProtocol::encodeFailure(decoded.error()));
      ASSERT_FALSE(reply);
      EXPECT_TRUE(reply.error().refused);
      EXPECT_EQ(reply.error().message, decoded.error());
    }
  }
}

TEST(HelperProtocol, RepliesRoundTrip) {
  auto hello = HelperProtocol::decodeHello(HelperProtocol::encodeHello({HelperProtocol::kVersion, 1000}));
  ASSERT_TRUE(hello);
  EXPECT_EQ(hello->version, HelperProtocol::kVersion);

  const std::vector<RaplCounter> counters{{"intel-rapl:0", "package-0", 18446744073709551000ull, 262143328850ull},
                                          {"intel-rapl:0:0", "core", 5, std::nullopt}};
  auto rapl = HelperProtocol::decodeRapl(HelperProtocol::encodeRapl(counters));
  ASSERT_TRUE(rapl);
  EXPECT_EQ(*rapl, counters);

  platform::SmapsRollup full{2048, 1024, 512, 256, 8};
  platform::SmapsRollup old{100, 50, std::nullopt, std::nullopt, std::nullopt};
  const std::vector<HelperProcessFigures> processes{{1, platform::PidIO{4096, 8192}, full},
                                                    {2, std::nullopt, old},
                                                    {3, platform::PidIO{0, 0}, std::nullopt}};
  auto decoded = HelperProtocol::decodeProcesses(HelperProtocol::encodeProcesses(processes));
  ASSERT_TRUE(decoded);
  ASSERT_EQ(decoded->size(), 3u);
  EXPECT_EQ((*decoded)[0].io->writeBytes, 8192u);
  EXPECT_FALSE((*decoded)[1].io);
  EXPECT_EQ((*decoded)[1].memory->pssKB, 50u);
  EXPECT_FALSE((*decoded)[2].memory);

  const FanStatus fan{.index = 4, .chip = "nct6775", .label = "CPU Fan", .rpm = 900, .maximumRPM = 1800,
                     .mode = FanStatus::Mode::manual, .source = "class/hwmon/hwmon2"};
  const FanStatus bare{.chip = "applesmc", .label = "Fan 1"};
  auto fans = HelperProtocol::decodeFans(HelperProtocol::encodeFans({fan, bare}));
  ASSERT_TRUE(fans);
  EXPECT_EQ(*fans, (std::vector<FanStatus>{fan, bare}));

  auto set = HelperProtocol::decodeFanSet(HelperProtocol::encodeFanSet({2, 1500}));
  ASSERT_TRUE(set);
  EXPECT_EQ(set->index, 2);
  auto automatic = HelperProtocol::decodeFanSet(HelperProtocol::encodeFanSet({2, std::nullopt}));
  ASSERT_TRUE(automatic);
  EXPECT_FALSE(automatic->rpm);
}

TEST(HelperProtocol, MalformedRepliesAreNotRefusals) {
  for (const char* line : {"", "garbage", "[]", R"({"version":1,"uid":1})", R"({"ok":"yes","version":1,"uid":1})",
                           R"({"ok":false})", R"({"ok":false,"error":7})", R"({"ok":true,"version":1,"uid":-1})",
                           R"({"ok":true,"version":1})"}) {
    auto hello = HelperProtocol::decodeHello(line);
    ASSERT_FALSE(hello) << line;
    EXPECT_FALSE(hello.error().refused) << line;
  }
  EXPECT_FALSE(HelperProtocol::decodeRapl(R"({"ok":true,"counters":[{"zone":"a","name":"b","energy_uj":-1}]})"));
  EXPECT_FALSE(HelperProtocol::decodeProcesses(R"({"ok":true,"processes":[{"pid":1,"read_bytes":5}]})"));
  EXPECT_FALSE(HelperProtocol::decodeProcesses(R"({"ok":true,"processes":[{"pid":0}]})"));
  EXPECT_FALSE(HelperProtocol::decodeFans(
      R"({"ok":true,"fans":[{"index":0,"chip":"x","label":"y","source":"z","mode":"turbo"}]})"));
  EXPECT_FALSE(HelperProtocol::decodeFanSet(R"({"ok":true,"index":1})"));
}

}  // namespace
}  // namespace omnira
