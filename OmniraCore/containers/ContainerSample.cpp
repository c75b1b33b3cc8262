#include "OmniraCore/containers/ContainerSample.h"

#include "OmniraCore/foundation/Parse.h"

namespace omnira {

namespace {

nlohmann::ordered_json orNull(const std::optional<std::string>& text) {
  return text ? nlohmann::ordered_json(*text) : nlohmann::ordered_json();
}

template <class T>
nlohmann::ordered_json orNull(const std::optional<T>& number) {
  return number ? nlohmann::ordered_json(*number) : nlohmann::ordered_json();
}

}  // namespace

std::string ContainerSample::displayName() const {
  if (composeService && composeProject) return *composeService + " (" + *composeProject + ")";
  return name.empty() ? shortID() : name;
}

std::string ContainerSample::stopCommand() const {
  // Both engines take the name; Podman's socket answers for its own command only.
  return (engine == "Podman" ? "podman stop " : "docker stop ") + (name.empty() ? shortID() : name);
}

bool ContainerSample::matches(std::string_view query) const {
  if (query.empty()) return true;
  const auto wanted = lowered(query);
  const auto has = [&](std::string_view text) { return lowered(text).find(wanted) != std::string::npos; };
  return has(name) || has(image) || has(shortID()) || (composeService && has(*composeService)) ||
         (composeProject && has(*composeProject));
}

nlohmann::ordered_json ContainerSample::toJSON() const {
  nlohmann::ordered_json json;
  json["id"] = id;
  json["name"] = name;
  json["image"] = image;
  json["status"] = status;
  json["engine"] = engine;
  json["publishedPorts"] = publishedPorts;
  json["composeProject"] = orNull(composeProject);
  json["composeService"] = orNull(composeService);
  json["composeFolder"] = orNull(composeFolder);
  json["memoryInUseBytes"] = orNull(memoryInUseBytes);
  json["memoryLimitBytes"] = orNull(memoryLimitBytes);
  json["cpuPercent"] = orNull(cpuPercent);
  json["networkInBytesPerSec"] = orNull(networkInBytesPerSec);
  json["networkOutBytesPerSec"] = orNull(networkOutBytesPerSec);
  json["diskReadBytesPerSec"] = orNull(diskReadBytesPerSec);
  json["diskWriteBytesPerSec"] = orNull(diskWriteBytesPerSec);
  json["stop"] = stopCommand();
  return json;
}

}  // namespace omnira
