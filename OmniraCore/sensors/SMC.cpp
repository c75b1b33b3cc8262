#include "OmniraCore/sensors/SMC.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <string>

namespace omnira {

namespace {

using RecordBytes = std::array<uint8_t, SMC::Record::byteCount>;

void put16(RecordBytes& out, size_t at, uint16_t v) {
  out[at] = static_cast<uint8_t>(v);
  out[at + 1] = static_cast<uint8_t>(v >> 8);
}

void put32(RecordBytes& out, size_t at, uint32_t v) {
  for (size_t i = 0; i < 4; ++i) out[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

uint16_t get16(const RecordBytes& in, size_t at) {
  return static_cast<uint16_t>(in[at] | (in[at + 1] << 8));
}

uint32_t get32(const RecordBytes& in, size_t at) {
  uint32_t v = 0;
  for (size_t i = 0; i < 4; ++i) v |= static_cast<uint32_t>(in[at + i]) << (8 * i);
  return v;
}

char typeChar(uint32_t type, int position) { return static_cast<char>((type >> (8 * (3 - position))) & 0xFF); }

std::optional<int> hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return std::nullopt;
}

struct FixedPoint {
  bool isSigned = false;
  int fractionBits = 0;
};

// "sp78", "fpe2", "sp5a", ...: signed or unsigned, a 'p', then integer and fraction bits.
std::optional<FixedPoint> fixedPoint(const SMC::Key& key) {
  if (key.size != 2) return std::nullopt;
  const char first = typeChar(key.type, 0);
  if ((first != 's' && first != 'f') || typeChar(key.type, 1) != 'p') return std::nullopt;
  auto bits = hexDigit(typeChar(key.type, 3));
  if (!bits) return std::nullopt;
  return FixedPoint{first == 's', *bits};
}

std::string fanKey(int index, std::string_view suffix) {
  return "F" + std::to_string(index) + std::string(suffix);
}

}  // namespace

std::array<uint8_t, SMC::Record::byteCount> SMC::Record::encode() const {
  RecordBytes out{};
  put32(out, 0, key);
  out[4] = version.major;
  out[5] = version.minor;
  out[6] = version.build;
  out[7] = version.reserved;
  put16(out, 8, version.release);
  put16(out, 12, powerLimits.version);
  put16(out, 14, powerLimits.length);
  put32(out, 16, powerLimits.cpuLimit);
  put32(out, 20, powerLimits.gpuLimit);
  put32(out, 24, powerLimits.memoryLimit);
  put32(out, 28, keyInfo.dataSize);
  put32(out, 32, keyInfo.dataType);
  out[36] = keyInfo.dataAttributes;
  out[40] = result;
  out[41] = status;
  out[42] = command;
  put32(out, 44, data32);
  std::copy(bytes.begin(), bytes.end(), out.begin() + 48);
  return out;
}

SMC::Record SMC::Record::decode(const std::array<uint8_t, byteCount>& in) {
  Record r;
  r.key = get32(in, 0);
  r.version = {in[4], in[5], in[6], in[7], get16(in, 8)};
  r.powerLimits = {get16(in, 12), get16(in, 14), get32(in, 16), get32(in, 20), get32(in, 24)};
  r.keyInfo = {get32(in, 28), get32(in, 32), in[36]};
  r.result = in[40];
  r.status = in[41];
  r.command = in[42];
  r.data32 = get32(in, 44);
  std::copy(in.begin() + 48, in.end(), r.bytes.begin());
  return r;
}

std::optional<double> SMC::decode(std::span<const uint8_t> bytes, const Key& key) {
  if (bytes.size() < key.size) return std::nullopt;
  if (key.type == float_) {
    if (key.size != 4) return std::nullopt;
    const uint32_t raw = static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
                         static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
    return static_cast<double>(std::bit_cast<float>(raw));
  }
  if (key.type == unsigned8) {
    if (key.size != 1) return std::nullopt;
    return static_cast<double>(bytes[0]);
  }
  if (auto fixed = fixedPoint(key)) {
    const uint16_t raw = static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
    const double integer = fixed->isSigned ? static_cast<double>(static_cast<int16_t>(raw)) : static_cast<double>(raw);
    return std::ldexp(integer, -fixed->fractionBits);
  }
  return std::nullopt;
}

std::optional<std::vector<uint8_t>> SMC::bytes(double value, const Key& key) {
  if (!std::isfinite(value)) return std::nullopt;
  if (key.type == float_) {
    if (key.size != 4) return std::nullopt;
    const uint32_t raw = std::bit_cast<uint32_t>(static_cast<float>(value));
    return std::vector<uint8_t>{static_cast<uint8_t>(raw), static_cast<uint8_t>(raw >> 8),
                                static_cast<uint8_t>(raw >> 16), static_cast<uint8_t>(raw >> 24)};
  }
  if (key.type == unsigned8) {
    if (key.size != 1) return std::nullopt;
    return std::vector<uint8_t>{static_cast<uint8_t>(std::clamp(std::trunc(value), 0.0, 255.0))};
  }
  if (auto fixed = fixedPoint(key)) {
    const double lowest = fixed->isSigned ? -32768.0 : 0.0;
    const double highest = fixed->isSigned ? 32767.0 : 65535.0;
    const double scaled = std::clamp(std::round(std::ldexp(value, fixed->fractionBits)), lowest, highest);
    // Through int32 so that a negative signed value keeps its two's-complement bits.
    const auto raw = static_cast<uint16_t>(static_cast<int32_t>(scaled));
    return std::vector<uint8_t>{static_cast<uint8_t>(raw >> 8), static_cast<uint8_t>(raw)};
  }
  return std::nullopt;
}

std::optional<SMC::Record> SMC::call(const Record& input) {
  auto output = transport_.call(input.encode());
  if (!output) return std::nullopt;
  auto record = Record::decode(*output);
  if (record.result != 0) return std::nullopt;
  return record;
}

std::optional<SMC::Key> SMC::key(std::string_view name) {
  Record request;
  request.key = code(name);
  request.command = readKeyInfo;
  auto reply = call(request);
  if (!reply) return std::nullopt;
  return Key{request.key, reply->keyInfo.dataSize, reply->keyInfo.dataType};
}

std::optional<std::vector<uint8_t>> SMC::read(const Key& key) {
  if (key.size > maximumDataSize) return std::nullopt;
  Record request;
  request.key = key.code;
  request.keyInfo.dataSize = key.size;
  request.command = readBytes;
  auto reply = call(request);
  if (!reply) return std::nullopt;
  return std::vector<uint8_t>(reply->bytes.begin(), reply->bytes.begin() + key.size);
}

std::optional<double> SMC::value(const Key& key) {
  auto data = read(key);
  if (!data) return std::nullopt;
  return decode(*data, key);
}

std::optional<double> SMC::value(std::string_view name) {
  auto k = key(name);
  if (!k) return std::nullopt;
  return value(*k);
}

bool SMC::write(std::span<const uint8_t> data, const Key& key) {
  if (data.size() != key.size || data.size() > maximumDataSize) return false;
  Record request;
  request.key = key.code;
  request.keyInfo.dataSize = key.size;
  request.command = writeBytes;
  std::copy(data.begin(), data.end(), request.bytes.begin());
  return call(request).has_value();
}

std::optional<int> SMC::fanCount() {
  auto count = value("FNum");
  if (!count || *count < 1 || *count > 1000) return std::nullopt;  // a garbled count is no count
  return static_cast<int>(*count);
}

std::vector<FanReading> SMC::fans() {
  std::vector<FanReading> result;
  const int count = fanCount().value_or(0);
  for (int i = 0; i < count; ++i) {
    auto rpm = value(fanKey(i, "Ac"));
    if (!rpm) continue;
    result.push_back({i, *rpm, value(fanKey(i, "Mn")).value_or(0), value(fanKey(i, "Mx")).value_or(0)});
  }
  return result;
}

std::optional<double> SMC::fanTarget(int index) { return value(fanKey(index, "Tg")); }

std::optional<bool> SMC::fanIsManual(int index) {
  if (auto mode = value(fanKey(index, "Md"))) return *mode == 1;
  if (index < 0) return std::nullopt;
  auto maskKey = key("FS! ");
  if (!maskKey || maskKey->size == 0 || maskKey->size > 8) return std::nullopt;
  auto data = read(*maskKey);
  if (!data) return std::nullopt;
  uint64_t mask = 0;
  for (uint8_t byte : *data) mask = (mask << 8) | byte;
  if (static_cast<size_t>(index) >= data->size() * 8) return false;
  return ((mask >> index) & 1) != 0;
}

bool SMC::needsUnlock() { return key("Ftst").has_value(); }

std::optional<double> SMC::systemPower() { return value("PSTR"); }

}  // namespace omnira
