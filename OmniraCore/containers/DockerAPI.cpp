#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/containers/DockerAPI.h"

#include <algorithm>
#include <cctype>

#include <nlohmann/json.hpp>

namespace omnira {

namespace {

using json = nlohmann::json;

DockerAPI::Failure failure(std::string message) { return DockerAPI::Failure{std::move(message)}; }

// A member of an object, or null: engines leave keys out or send null for "none".
const json& at(const json& object, const char* key) {
  static const json none;
  if (!object.is_object()) return none;
  const auto found = object.find(key);
  return found == object.end() ? none : *found;
}

std::string text(const json& value) { return value.is_string() ? value.get<std::string>() : std::string(); }

std::optional<uint64_t> count(const json& value) {
  if (value.is_number_unsigned()) return value.get<uint64_t>();
  if (value.is_number_integer() && value.get<int64_t>() >= 0) return static_cast<uint64_t>(value.get<int64_t>());
  if (value.is_number_float() && value.get<double>() >= 0 && value.get<double>() < 1.8e19)
    return static_cast<uint64_t>(value.get<double>());
  return std::nullopt;
}

Result<json, DockerAPI::Failure> parse(std::string_view body) {
  json parsed = json::parse(body, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded()) return fail(failure("the engine's reply is not JSON"));
  return parsed;
}

DockerAPI::Stats::CPU cpuOf(const json& stats) {
  DockerAPI::Stats::CPU cpu;
  cpu.totalUsage = count(at(at(stats, "cpu_usage"), "total_usage")).value_or(0);
  cpu.systemUsage = count(at(stats, "system_cpu_usage"));
  if (auto online = count(at(stats, "online_cpus")); online && *online <= UINT32_MAX)
    cpu.onlineCPUs = static_cast<uint32_t>(*online);
  return cpu;
}


}  // namespace

std::optional<std::string> DockerAPI::Summary::label(const std::string& key) const {
  const auto found = labels.find(key);
  if (found == labels.end() || found->second.empty()) return std::nullopt;
  return found->second;
}

std::vector<uint16_t> DockerAPI::Summary::publishedPorts() const {
  std::vector<uint16_t> published;
  for (const auto& port : ports)
    if (port.publicPort) published.push_back(*port.publicPort);
  std::sort(published.begin(), published.end());
  published.erase(std::unique(published.begin(), published.end()), published.end());
  return published;
}

uint64_t DockerAPI::Stats::Memory::inUse() const {
  const uint64_t cache = inactiveFile.value_or(0);
  return usage > cache ? usage - cache : 0;
}

Result<std::vector<DockerAPI::Summary>, DockerAPI::Failure> DockerAPI::decodeList(std::string_view body) {
  auto parsed = parse(body);
  if (!parsed) return fail(parsed.error());
  if (!parsed->is_array()) return fail(failure("the container list is not a list"));
  std::vector<Summary> containers;
  for (const auto& item : *parsed) {
    if (!item.is_object()) continue;
    Summary s;
    s.id = text(at(item, "Id"));
    if (s.id.empty()) continue;  // nothing to ask about without it
    if (const auto& names = at(item, "Names"); names.is_array() && !names.empty()) {
      s.name = text(names.front());
      if (s.name.starts_with('/')) s.name.erase(0, 1);
    }
    s.image = text(at(item, "Image"));
    s.status = text(at(item, "Status"));
    if (const auto& labels = at(item, "Labels"); labels.is_object())
      for (const auto& [key, value] : labels.items())
        if (value.is_string()) s.labels[key] = value.get<std::string>();
    if (const auto& ports = at(item, "Ports"); ports.is_array()) {
      for (const auto& port : ports) {
        Summary::Port p;
        if (auto published = count(at(port, "PublicPort")); published && *published > 0 && *published <= 65535)
          p.publicPort = static_cast<uint16_t>(*published);
        if (auto inside = count(at(port, "PrivatePort")); inside && *inside <= 65535) p.privatePort = static_cast<uint16_t>(*inside);
        p.type = text(at(port, "Type"));
        s.ports.push_back(std::move(p));
      }
    }
    containers.push_back(std::move(s));
  }
  return containers;
}

Result<DockerAPI::Info, DockerAPI::Failure> DockerAPI::decodeInfo(std::string_view body) {
  auto parsed = parse(body);
  if (!parsed) return fail(parsed.error());
  if (!parsed->is_object()) return fail(failure("the engine's information is not an object"));
  return Info{count(at(*parsed, "MemTotal")).value_or(0)};
}

Result<DockerAPI::Stats, DockerAPI::Failure> DockerAPI::decodeStats(std::string_view body) {
  auto parsed = parse(body);
  if (!parsed) return fail(parsed.error());
  const json& root = *parsed;
  if (!root.is_object()) return fail(failure("the container's stats are not an object"));
  Stats stats;
  // "0001-01-01T00:00:00Z" stands for no time; it also lies outside what a Date holds.
  if (const std::string read = text(at(root, "read")); read >= "1970") stats.read = parseISO8601(read);
  stats.cpu = cpuOf(at(root, "cpu_stats"));
  stats.previousCPU = cpuOf(at(root, "precpu_stats"));
  const json& memory = at(root, "memory_stats");
  stats.memory.usage = count(at(memory, "usage")).value_or(0);
  stats.memory.limit = count(at(memory, "limit")).value_or(0);
  const json& detail = at(memory, "stats");
  stats.memory.inactiveFile = count(at(detail, "inactive_file"));
  if (!stats.memory.inactiveFile) stats.memory.inactiveFile = count(at(detail, "total_inactive_file"));
  if (const auto& networks = at(root, "networks"); networks.is_object()) {
    for (const auto& [name, network] : networks.items()) {
      stats.networkReceived += count(at(network, "rx_bytes")).value_or(0);
      stats.networkSent += count(at(network, "tx_bytes")).value_or(0);
    }
  }
  if (const auto& entries = at(at(root, "blkio_stats"), "io_service_bytes_recursive"); entries.is_array()) {
    for (const auto& entry : entries) {
      const std::string op = lowered(text(at(entry, "op")));
      const uint64_t bytes = count(at(entry, "value")).value_or(0);
      if (op == "read") stats.blockIO.readBytes += bytes;
      if (op == "write") stats.blockIO.writeBytes += bytes;
    }
  }
  return stats;
}

Result<std::vector<DockerAPI::Summary>, DockerAPI::Failure> DockerAPI::list(const std::string& socketPath,
                                                                       std::chrono::milliseconds timeout) {
  auto body = UnixHTTP::get("/containers/json", socketPath, timeout);
  if (!body) return fail(body.error());
  return decodeList(*body);
}

Result<DockerAPI::Info, DockerAPI::Failure> DockerAPI::info(const std::string& socketPath, std::chrono::milliseconds timeout) {
  auto body = UnixHTTP::get("/info", socketPath, timeout);
  if (!body) return fail(body.error());
  return decodeInfo(*body);
}

Result<DockerAPI::Stats, DockerAPI::Failure> DockerAPI::stats(const std::string& socketPath, const std::string& id,
                                                         std::chrono::milliseconds timeout) {
  // The id goes into the request line: one from a misbehaving engine must not break it.
  const bool plain = !id.empty() && std::all_of(id.begin(), id.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.';
  });
  if (!plain) return fail(failure("the container's id is not one the engine would give"));
  auto body = UnixHTTP::get("/containers/" + id + "/stats?stream=false&one-shot=true", socketPath, timeout);
  if (!body) return fail(body.error());
  return decodeStats(*body);
}

}  // namespace omnira
