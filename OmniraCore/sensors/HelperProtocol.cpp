#include "OmniraCore/sensors/HelperProtocol.h"

#include <cmath>
#include <limits>
#include <set>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "OmniraCore/foundation/JSONText.h"

namespace omnira {

namespace {

using json = nlohmann::ordered_json;  // "ok" first on the wire, as people read it
using Failure = HelperProtocol::Failure;

constexpr const char* kNotJSON = "The request is not a JSON object.";

std::string_view opName(HelperRequest::Op op) {
  switch (op) {
    case HelperRequest::Op::hello: return "hello";
    case HelperRequest::Op::rapl: return "rapl";
    case HelperRequest::Op::processes: return "processes";
    case HelperRequest::Op::fans: return "fans";
    case HelperRequest::Op::setFan: return "set_fan";
  }
  return "hello";
}

std::optional<HelperRequest::Op> opNamed(std::string_view name) {
  for (auto op : {HelperRequest::Op::hello, HelperRequest::Op::rapl, HelperRequest::Op::processes,
                  HelperRequest::Op::fans, HelperRequest::Op::setFan})
    if (opName(op) == name) return op;
  return std::nullopt;
}

std::optional<FanStatus::Mode> modeNamed(std::string_view name) {
  for (auto mode : {FanStatus::Mode::automatic, FanStatus::Mode::manual, FanStatus::Mode::fullSpeed,
                    FanStatus::Mode::unknown})
    if (rawValue(mode) == name) return mode;
  return std::nullopt;
}

json ok() { return json{{"ok", true}}; }

// A reply's object when ok is true; its sentence, or a malformed-reply failure, otherwise.
Result<json, Failure> replyObject(std::string_view line) {
  auto reply = json::parse(line, nullptr, /*allow_exceptions=*/false);
  if (!reply.is_object()) return fail(Failure{false, "The helper's reply is not a JSON object."});
  const auto okay = reply.find("ok");
  if (okay == reply.end() || !okay->is_boolean()) return fail(Failure{false, "The helper's reply has no \"ok\"."});
  if (!okay->get<bool>()) {
    const auto error = reply.find("error");
    if (error == reply.end() || !error->is_string()) return fail(Failure{false, "The helper failed without saying why."});
    return fail(Failure{true, error->get<std::string>()});
  }
  return reply;
}

Failure malformed(std::string_view what) { return Failure{false, fmt::format("The helper's reply has no valid {}.", what)}; }

// Optional members of a reply: absent stays absent, a wrong type is a malformed reply.
template <class T>
bool optionalMember(const json& object, const char* key, std::optional<T>& out) {
  const auto found = object.find(key);
  if (found == object.end()) return true;
  if constexpr (std::is_same_v<T, double>) {
    if (!found->is_number()) return false;
    out = found->get<double>();
  } else {
    if (!found->is_number_unsigned()) return false;
    out = found->get<T>();
  }
  return true;
}

bool unsignedMember(const json& object, const char* key, uint64_t& out) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_unsigned()) return false;
  out = found->get<uint64_t>();
  return true;
}

bool stringMember(const json& object, const char* key, std::string& out) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return false;
  out = found->get<std::string>();
  return true;
}

std::optional<int64_t> integerOf(const json& value) {
  if (value.is_number_unsigned()) {
    const auto n = value.get<uint64_t>();
    if (n > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return std::nullopt;
    return static_cast<int64_t>(n);
  }
  if (value.is_number_integer()) return value.get<int64_t>();
  return std::nullopt;
}

bool onlyKeys(const json& object, std::initializer_list<std::string_view> keys) {
  for (const auto& [key, value] : object.items()) {
    bool known = false;
    for (const auto k : keys) known = known || key == k;
    if (!known) return false;
  }
  return true;
}

}  // namespace

std::string HelperProtocol::encodeRequest(const HelperRequest& request) {
  json object{{"op", opName(request.op)}};
  if (request.op == HelperRequest::Op::processes) object["pids"] = request.pids;
  if (request.op == HelperRequest::Op::setFan) {
    object["index"] = request.fanIndex;
    if (request.rpm) object["rpm"] = *request.rpm;
    else object["mode"] = "auto";
  }
  return jsonText(object);
}

Result<HelperRequest, std::string> HelperProtocol::decodeRequest(std::string_view line) {
  if (line.size() > kMaxLineBytes) return fail(std::string("The request is longer than the helper reads."));
  // The parser takes a NUL for the end of its input; what follows would be silently ignored.
  if (line.find('\0') != std::string_view::npos) return fail(std::string(kNotJSON));
  const auto object = json::parse(line, nullptr, /*allow_exceptions=*/false);
  if (!object.is_object()) return fail(std::string(kNotJSON));
  const auto opField = object.find("op");
  if (opField == object.end() || !opField->is_string()) return fail(std::string("The request names no \"op\"."));
  const auto op = opNamed(opField->get_ref<const std::string&>());
  if (!op) return fail(std::string("The helper knows no such request."));

  HelperRequest request;
  request.op = *op;
  switch (*op) {
    case HelperRequest::Op::hello:
    case HelperRequest::Op::rapl:
    case HelperRequest::Op::fans:
      if (!onlyKeys(object, {"op"})) return fail(fmt::format("The {} request takes nothing but \"op\".", opName(*op)));
      return request;
    case HelperRequest::Op::processes: {
      if (!onlyKeys(object, {"op", "pids"})) return fail(std::string("The processes request takes only \"pids\"."));
      const auto pids = object.find("pids");
      if (pids == object.end() || !pids->is_array()) return fail(std::string("The processes request needs a list of \"pids\"."));
      if (pids->size() > kMaxPIDs) return fail(fmt::format("The helper reads at most {} processes at a time.", kMaxPIDs));
      std::set<int32_t> seen;
      for (const auto& pid : *pids) {
        const auto n = integerOf(pid);
        if (!n || *n < 1 || *n > std::numeric_limits<int32_t>::max())
          return fail(std::string("Every pid must be a whole number above 0."));
        if (seen.insert(static_cast<int32_t>(*n)).second) request.pids.push_back(static_cast<int32_t>(*n));
      }
      return request;
    }
    case HelperRequest::Op::setFan: {
      if (!onlyKeys(object, {"op", "index", "rpm", "mode"}))
        return fail(std::string("The set_fan request takes only \"index\" and \"rpm\" or \"mode\"."));
      const auto index = object.find("index");
      const auto n = index == object.end() ? std::nullopt : integerOf(*index);
      if (!n || *n < 0 || *n > 100000) return fail(std::string("The set_fan request needs a fan \"index\", 0 or more."));
      request.fanIndex = static_cast<int>(*n);
      const auto rpm = object.find("rpm");
      const auto mode = object.find("mode");
      if ((rpm == object.end()) == (mode == object.end()))
        return fail(std::string("The set_fan request needs either \"rpm\" or \"mode\": \"auto\"."));
      if (mode != object.end()) {
        if (!mode->is_string() || mode->get_ref<const std::string&>() != "auto")
          return fail(std::string("The only fan mode to ask for is \"auto\"."));
        return request;
      }
      if (!rpm->is_number() || !std::isfinite(rpm->get<double>()) || rpm->get<double>() < 0 ||
          rpm->get<double>() > kMaxRPM)
        return fail(fmt::format("A fan speed is a number of rpm from 0 to {}.", kMaxRPM));
      request.rpm = rpm->get<double>();
      return request;
    }
  }
  return fail(std::string("The helper knows no such request."));
}

std::string HelperProtocol::encodeFailure(std::string_view sentence) {
  return jsonText(json{{"ok", false}, {"error", sentence}});
}

std::string HelperProtocol::encodeHello(const HelperHello& hello) {
  json reply = ok();
  reply["version"] = hello.version;
  reply["uid"] = hello.uid;
  return jsonText(reply);
}

std::string HelperProtocol::encodeRapl(const std::vector<RaplCounter>& counters) {
  json list = json::array();
  for (const auto& counter : counters) {
    json item{{"zone", counter.zone}, {"name", counter.name}, {"energy_uj", counter.energyMicrojoules}};
    if (counter.maxEnergyRangeMicrojoules) item["max_energy_range_uj"] = *counter.maxEnergyRangeMicrojoules;
    list.push_back(std::move(item));
  }
  json reply = ok();
  reply["counters"] = std::move(list);
  return jsonText(reply);
}

std::string HelperProtocol::encodeProcesses(const std::vector<HelperProcessFigures>& processes) {
  json list = json::array();
  for (const auto& process : processes) {
    json item{{"pid", process.pid}};
    if (process.io) {
      item["read_bytes"] = process.io->readBytes;
      item["write_bytes"] = process.io->writeBytes;
    }
    if (const auto& m = process.memory) {
      item["rss_kb"] = m->rssKB;
      item["pss_kb"] = m->pssKB;
      if (m->pssAnonKB) item["pss_anon_kb"] = *m->pssAnonKB;
      if (m->pssShmemKB) item["pss_shmem_kb"] = *m->pssShmemKB;
      if (m->swapPssKB) item["swap_pss_kb"] = *m->swapPssKB;
    }
    list.push_back(std::move(item));
  }
  json reply = ok();
  reply["processes"] = std::move(list);
  return jsonText(reply);
}

std::string HelperProtocol::encodeFans(const std::vector<FanStatus>& fans) {
  json list = json::array();
  for (const auto& fan : fans) {
    json item{{"index", fan.index},
              {"chip", fan.chip},
              {"label", fan.label},
              {"mode", rawValue(fan.mode)},
              {"source", fan.source}};
    if (fan.rpm) item["rpm"] = *fan.rpm;
    if (fan.minimumRPM) item["min_rpm"] = *fan.minimumRPM;
    if (fan.maximumRPM) item["max_rpm"] = *fan.maximumRPM;
    if (fan.targetRPM) item["target_rpm"] = *fan.targetRPM;
    list.push_back(std::move(item));
  }
  json reply = ok();
  reply["fans"] = std::move(list);
  return jsonText(reply);
}

std::string HelperProtocol::encodeFanSet(const HelperFanSet& set) {
  json reply = ok();
  reply["index"] = set.index;
  if (set.rpm) reply["rpm"] = *set.rpm;
  else reply["mode"] = "auto";
  return jsonText(reply);
}

Result<HelperHello, Failure> HelperProtocol::decodeHello(std::string_view line) {
  auto reply = replyObject(line);
  if (!reply) return fail(reply.error());
  const auto version = reply->find("version");
  const auto uid = reply->find("uid");
  if (version == reply->end() || !version->is_number_integer()) return fail(malformed("version"));
  if (uid == reply->end() || !uid->is_number_unsigned() || uid->get<uint64_t>() > std::numeric_limits<uid_t>::max())
    return fail(malformed("uid"));
  return HelperHello{version->get<int>(), static_cast<uid_t>(uid->get<uint64_t>())};
}

Result<std::vector<RaplCounter>, Failure> HelperProtocol::decodeRapl(std::string_view line) {
  auto reply = replyObject(line);
  if (!reply) return fail(reply.error());
  const auto list = reply->find("counters");
  if (list == reply->end() || !list->is_array()) return fail(malformed("counters"));
  std::vector<RaplCounter> counters;
  for (const auto& item : *list) {
    RaplCounter counter;
    if (!item.is_object() || !stringMember(item, "zone", counter.zone) || !stringMember(item, "name", counter.name) ||
        !unsignedMember(item, "energy_uj", counter.energyMicrojoules) ||
        !optionalMember(item, "max_energy_range_uj", counter.maxEnergyRangeMicrojoules))
      return fail(malformed("counters"));
    counters.push_back(std::move(counter));
  }
  return counters;
}

Result<std::vector<HelperProcessFigures>, Failure> HelperProtocol::decodeProcesses(std::string_view line) {
  auto reply = replyObject(line);
  if (!reply) return fail(reply.error());
  const auto list = reply->find("processes");
  if (list == reply->end() || !list->is_array()) return fail(malformed("processes"));
  std::vector<HelperProcessFigures> processes;
  for (const auto& item : *list) {
    if (!item.is_object()) return fail(malformed("processes"));
    HelperProcessFigures figures;
    const auto pid = item.find("pid");
    const auto n = pid == item.end() ? std::nullopt : integerOf(*pid);
    if (!n || *n < 1 || *n > std::numeric_limits<int32_t>::max()) return fail(malformed("processes"));
    figures.pid = static_cast<int32_t>(*n);
    if (item.contains("read_bytes") || item.contains("write_bytes")) {
      platform::PidIO io;
      if (!unsignedMember(item, "read_bytes", io.readBytes) || !unsignedMember(item, "write_bytes", io.writeBytes))
        return fail(malformed("processes"));
      figures.io = io;
    }
    if (item.contains("rss_kb") || item.contains("pss_kb")) {
      platform::SmapsRollup memory;
      if (!unsignedMember(item, "rss_kb", memory.rssKB) || !unsignedMember(item, "pss_kb", memory.pssKB) ||
          !optionalMember(item, "pss_anon_kb", memory.pssAnonKB) ||
          !optionalMember(item, "pss_shmem_kb", memory.pssShmemKB) ||
          !optionalMember(item, "swap_pss_kb", memory.swapPssKB))
        return fail(malformed("processes"));
      figures.memory = memory;
    }
    processes.push_back(std::move(figures));
  }
  return processes;
}

Result<std::vector<FanStatus>, Failure> HelperProtocol::decodeFans(std::string_view line) {
  auto reply = replyObject(line);
  if (!reply) return fail(reply.error());
  const auto list = reply->find("fans");
  if (list == reply->end() || !list->is_array()) return fail(malformed("fans"));
  std::vector<FanStatus> fans;
  for (const auto& item : *list) {
    if (!item.is_object()) return fail(malformed("fans"));
    FanStatus fan;
    const auto index = item.find("index");
    const auto n = index == item.end() ? std::nullopt : integerOf(*index);
    std::string mode;
    if (!n || *n < 0 || *n > std::numeric_limits<int>::max() || !stringMember(item, "chip", fan.chip) ||
        !stringMember(item, "label", fan.label) || !stringMember(item, "source", fan.source) ||
        !stringMember(item, "mode", mode) || !modeNamed(mode) || !optionalMember(item, "rpm", fan.rpm) ||
        !optionalMember(item, "min_rpm", fan.minimumRPM) || !optionalMember(item, "max_rpm", fan.maximumRPM) ||
        !optionalMember(item, "target_rpm", fan.targetRPM))
      return fail(malformed("fans"));
    fan.index = static_cast<int>(*n);
    fan.mode = *modeNamed(mode);
    fans.push_back(std::move(fan));
  }
  return fans;
}

Result<HelperFanSet, Failure> HelperProtocol::decodeFanSet(std::string_view line) {
  auto reply = replyObject(line);
  if (!reply) return fail(reply.error());
  const auto index = reply->find("index");
  const auto n = index == reply->end() ? std::nullopt : integerOf(*index);
  if (!n || *n < 0 || *n > std::numeric_limits<int>::max()) return fail(malformed("fan index"));
  HelperFanSet set{static_cast<int>(*n), std::nullopt};
  if (!optionalMember(*reply, "rpm", set.rpm)) return fail(malformed("rpm"));
  if (!set.rpm) {
    const auto mode = reply->find("mode");
    if (mode == reply->end() || *mode != "auto") return fail(malformed("mode"));
  }
  return set;
}

}  // namespace omnira
