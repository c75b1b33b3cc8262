#include "OmniraCore/platform/linux/AppleSMCSysfs.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <string>
#include <system_error>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/platform/linux/FileText.h"

namespace omnira::platform {

namespace fs = std::filesystem;

namespace {

// Writes the whole text to an existing attribute file; never creates one, so a fan the
// driver has no file for is refused rather than invented.
bool writeAttribute(const fs::path& path, std::string_view text) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (fd < 0) return false;
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      break;
    }
    done += static_cast<size_t>(n);
  }
  const bool closed = ::close(fd) == 0;
  return done == text.size() && closed;
}

char codeChar(uint32_t code, int position) { return static_cast<char>((code >> (8 * (3 - position))) & 0xFF); }

// The fan index i of "F<i>Tg" / "F<i>Md" when the code is that key.
std::optional<int> fanIndex(uint32_t code, std::string_view suffix) {
  const char digit = codeChar(code, 1);
  if (codeChar(code, 0) != 'F' || digit < '0' || digit > '9') return std::nullopt;
  if (codeChar(code, 2) != suffix[0] || codeChar(code, 3) != suffix[1]) return std::nullopt;
  return digit - '0';
}

}  // namespace

Result<uint32_t, ParseFailure> parseAppleSMCNumber(std::string_view text) {
  auto number = parseNumber<uint32_t>(trim(text));
  if (!number) return fail(ParseFailure{"applesmc number is not a decimal count"});
  return *number;
}

Result<uint32_t, ParseFailure> parseAppleSMCCode(std::string_view text) {
  // Spaces belong to codes ("ui8 "), so only the driver's one newline is taken off.
  if (text.ends_with('\n')) text.remove_suffix(1);
  if (text.size() != 4) return fail(ParseFailure{"applesmc code is not four bytes"});
  return SMC::code(text);
}

std::optional<fs::path> appleSMCDevice(const Roots& roots) {
  std::error_code error;
  std::vector<fs::path> candidates;
  for (fs::directory_iterator it(roots.sys / "bus/platform/devices", error), end; !error && it != end;
       it.increment(error)) {
    if (it->path().filename().string().starts_with("applesmc.")) candidates.push_back(it->path());
  }
  std::sort(candidates.begin(), candidates.end());
  candidates.push_back(roots.sys / "devices/platform/applesmc.768");
  for (const auto& candidate : candidates) {
    if (fs::is_regular_file(candidate / "key_count", error)) return candidate;
  }
  return std::nullopt;
}

AppleSMCSysfsKeyPort::AppleSMCSysfsKeyPort(fs::path deviceFolder) : folder_(std::move(deviceFolder)) {}

std::optional<uint32_t> AppleSMCSysfsKeyPort::number(const char* file) const {
  auto text = readTextFile(folder_ / file, 64);
  if (!text) return std::nullopt;
  return parseAppleSMCNumber(*text).toOptional();
}

std::optional<uint32_t> AppleSMCSysfsKeyPort::code(const char* file) const {
  auto text = readTextFile(folder_ / file, 64);
  if (!text) return std::nullopt;
  return parseAppleSMCCode(*text).toOptional();
}

std::optional<uint32_t> AppleSMCSysfsKeyPort::keyCount() { return number("key_count"); }

bool AppleSMCSysfsKeyPort::select(uint32_t index) {
  return writeAttribute(folder_ / "key_at_index", std::to_string(index));
}

std::optional<uint32_t> AppleSMCSysfsKeyPort::name() { return code("key_at_index_name"); }

std::optional<uint32_t> AppleSMCSysfsKeyPort::type() { return code("key_at_index_type"); }

std::optional<uint32_t> AppleSMCSysfsKeyPort::dataLength() { return number("key_at_index_data_length"); }

std::optional<std::vector<uint8_t>> AppleSMCSysfsKeyPort::data() {
  // Binary; one byte beyond the most a record carries shows an over-long file.
  auto bytes = readTextFile(folder_ / "key_at_index_data", SMC::maximumDataSize + 1);
  if (!bytes) return std::nullopt;
  return std::vector<uint8_t>(bytes->begin(), bytes->end());
}

AppleSMCSysfs::AppleSMCSysfs(AppleSMCKeyPort& port, fs::path deviceFolder)
    : port_(port), folder_(std::move(deviceFolder)) {}

std::optional<std::optional<AppleSMCSysfs::Entry>> AppleSMCSysfs::find(uint32_t code) {
  if (auto known = found_.find(code); known != found_.end()) return known->second;
  auto count = port_.keyCount();
  if (!count) return std::nullopt;
  uint32_t low = 0, high = *count;
  while (low < high) {
    const uint32_t middle = low + (high - low) / 2;
    if (!port_.select(middle)) return std::nullopt;
    auto name = port_.name();
    if (!name) return std::nullopt;
    if (*name < code) {
      low = middle + 1;
    } else if (*name > code) {
      high = middle;
    } else {
      auto type = port_.type();
      auto length = port_.dataLength();
      if (!type || !length) return std::nullopt;
      return found_[code] = Entry{middle, *type, *length};
    }
  }
  return found_[code] = std::optional<Entry>();
}

std::optional<std::vector<uint8_t>> AppleSMCSysfs::read(uint32_t code, const Entry& entry) {
  if (!port_.select(entry.index)) return std::nullopt;
  auto data = port_.data();
  // The selection is shared by every process: the name read after the data shows that
  // nobody selected another key in between.
  if (!data || data->size() != entry.length || port_.name() != code) return std::nullopt;
  return data;
}

bool AppleSMCSysfs::setFanFile(int fanNumber, std::string_view attribute, std::string_view text) {
  return writeAttribute(folder_ / ("fan" + std::to_string(fanNumber) + "_" + std::string(attribute)), text);
}

bool AppleSMCSysfs::write(const SMC::Record& request, const Entry& entry) {
  const SMC::Key key{request.key, entry.length, entry.type};
  const std::span<const uint8_t> data(request.bytes.data(), entry.length);

  if (auto fan = fanIndex(request.key, "Tg")) {
    auto rpm = SMC::decode(data, key);
    if (!rpm || !std::isfinite(*rpm) || *rpm < 0 || *rpm > 1e6) return false;
    return setFanFile(*fan + 1, "output", std::to_string(std::llround(*rpm)));
  }
  if (auto fan = fanIndex(request.key, "Md")) {
    auto mode = SMC::decode(data, key);
    if (mode != 0.0 && mode != 1.0) return false;
    return setFanFile(*fan + 1, "manual", *mode == 1.0 ? "1" : "0");
  }
  if (request.key == SMC::code("FS! ")) {
    if (entry.length == 0 || entry.length > 8) return false;
    uint64_t mask = 0;
    for (uint8_t byte : data) mask = (mask << 8) | byte;
    auto countEntry = find(SMC::code("FNum"));
    if (!countEntry || !*countEntry) return false;
    auto countBytes = read(SMC::code("FNum"), **countEntry);
    if (!countBytes) return false;
    auto count = SMC::decode(*countBytes, {SMC::code("FNum"), (*countEntry)->length, (*countEntry)->type});
    if (!count || *count < 1 || *count > static_cast<double>(entry.length * 8)) return false;
    bool all = true;
    for (int fan = 0; fan < static_cast<int>(*count); ++fan)
      all = setFanFile(fan + 1, "manual", (mask >> fan) & 1 ? "1" : "0") && all;
    return all;
  }
  return false;
}

std::optional<std::array<uint8_t, 80>> AppleSMCSysfs::call(const std::array<uint8_t, 80>& input) {
  auto reply = SMC::Record::decode(input);
  if (reply.command != SMC::readKeyInfo && reply.command != SMC::readBytes && reply.command != SMC::writeBytes)
    return std::nullopt;
  auto entry = find(reply.key);
  if (!entry) return std::nullopt;
  if (!*entry) {
    reply.result = SMC::keyNotFound;
    return reply.encode();
  }
  const Entry& e = **entry;
  reply.result = 0;
  if (reply.command == SMC::readKeyInfo) {
    reply.keyInfo = {e.length, e.type, 0};
    return reply.encode();
  }
  if (reply.keyInfo.dataSize != e.length || e.length > SMC::maximumDataSize) return std::nullopt;
  if (reply.command == SMC::readBytes) {
    auto data = read(reply.key, e);
    if (!data) return std::nullopt;
    reply.bytes.fill(0);
    std::copy(data->begin(), data->end(), reply.bytes.begin());
    return reply.encode();
  }
  if (!write(reply, e)) return std::nullopt;
  return reply.encode();
}

}  // namespace omnira::platform
