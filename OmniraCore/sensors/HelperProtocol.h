#pragma once
// What Omnira and its privileged helper say to each other: one compact JSON request line,
// one JSON reply line, as many pairs as the client likes on one connection. The connection
// is the session: fans set through it go back to their own control when it closes.
//
// The requests are a fixed list and carry only numbers; no path, command or file name ever
// comes from the client:
//   {"op":"hello"}                              → {"ok":true,"version":1,"uid":1000}
//   {"op":"rapl"}                               → {"ok":true,"counters":[{"zone","name","energy_uj"[,"max_energy_range_uj"]}]}
//   {"op":"processes","pids":[1,2]}             → {"ok":true,"processes":[{"pid"[,"read_bytes","write_bytes"]
//                                                   [,"rss_kb","pss_kb"[,"pss_anon_kb","pss_shmem_kb","swap_pss_kb"]]}]}
//   {"op":"fans"}                               → {"ok":true,"fans":[{"index","chip","label","mode","source"
//                                                   [,"rpm","min_rpm","max_rpm","target_rpm"]}]}
//   {"op":"set_fan","index":1,"rpm":2000}       → {"ok":true,"index":1,"rpm":2000}   (rpm after clamping)
//   {"op":"set_fan","index":1,"mode":"auto"}    → {"ok":true,"index":1,"mode":"auto"}
// Any failure: {"ok":false,"error":"<a sentence>"}. Processes that are gone are left out
// of the list; figures that could not be read are absent.
//
// Pure functions, any thread. Decoding never throws: what it refuses comes back as a
// sentence (for requests, to send back; for replies, to show).

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/PidIO.h"
#include "OmniraCore/platform/linux/SmapsRollup.h"
#include "OmniraCore/sensors/FanStatus.h"
#include "OmniraCore/sensors/RaplCounter.h"

namespace omnira {

struct HelperRequest {
  enum class Op { hello, rapl, processes, fans, setFan };
  Op op = Op::hello;
  std::vector<int32_t> pids;  // processes
  int fanIndex = 0;           // setFan
  std::optional<double> rpm;  // setFan; absent: back to automatic

  friend bool operator==(const HelperRequest&, const HelperRequest&) = default;
};

struct HelperHello {
  int version = 0;
  uid_t uid = 0;  // the user the helper serves
};

// What a normal user cannot read of another user's process.
struct HelperProcessFigures {
  int32_t pid = 0;
  std::optional<platform::PidIO> io;
  std::optional<platform::SmapsRollup> memory;
};

// A fan after set_fan: the rpm asked of the chip, or absent when it went back to automatic.
struct HelperFanSet {
  int index = 0;
  std::optional<double> rpm;
};

class HelperProtocol {
 public:
  static constexpr int kVersion = 1;
  static constexpr size_t kMaxLineBytes = 64 * 1024;  // a request line; longer ones end the connection
  static constexpr size_t kMaxPIDs = 8192;
  static constexpr double kMaxRPM = 100000;

  // A reply with ok = false, or one that cannot be read.
  struct Failure {
    bool refused = false;  // the helper answered with a sentence; else the reply was malformed
    std::string message;
  };

  static std::string encodeRequest(const HelperRequest& request);
  // A sentence on failure, sent back as is.
  static Result<HelperRequest, std::string> decodeRequest(std::string_view line);

  static std::string encodeFailure(std::string_view sentence);
  static std::string encodeHello(const HelperHello& hello);
  static std::string encodeRapl(const std::vector<RaplCounter>& counters);
  static std::string encodeProcesses(const std::vector<HelperProcessFigures>& processes);
  static std::string encodeFans(const std::vector<FanStatus>& fans);
  static std::string encodeFanSet(const HelperFanSet& set);

  static Result<HelperHello, Failure> decodeHello(std::string_view line);
  static Result<std::vector<RaplCounter>, Failure> decodeRapl(std::string_view line);
  static Result<std::vector<HelperProcessFigures>, Failure> decodeProcesses(std::string_view line);
  static Result<std::vector<FanStatus>, Failure> decodeFans(std::string_view line);
  static Result<HelperFanSet, Failure> decodeFanSet(std::string_view line);
};

}  // namespace omnira
