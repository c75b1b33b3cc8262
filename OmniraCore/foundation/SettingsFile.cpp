#include "OmniraCore/foundation/SettingsFile.h"

#include <fmt/format.h>

#include <algorithm>

#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/FileLock.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/SettingsKeys.h"

namespace omnira {

namespace fs = std::filesystem;
using Kind = SettingsFile::Failure::Kind;

namespace {

Failed<SettingsFile::Failure> failure(Kind kind, std::string message) {
  return fail(SettingsFile::Failure{kind, std::move(message)});
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

size_t skipSpace(std::string_view text, size_t at) {
  while (at < text.size() && isSpace(text[at])) ++at;
  return at;
}

// Past the closing quote of the string that opens at `at`.
size_t stringEnd(std::string_view text, size_t at) {
  for (++at; at < text.size(); ++at) {
    if (text[at] == '\\') ++at;
    else if (text[at] == '"') return at + 1;
  }
  return text.size();
}

// Past the value that starts at `at`, in text the library has accepted as JSON.
size_t valueEnd(std::string_view text, size_t at) {
  if (at >= text.size()) return text.size();
  if (text[at] == '"') return stringEnd(text, at);
  if (text[at] == '[' || text[at] == '{') {
    size_t depth = 0;
    while (at < text.size()) {
      const char c = text[at];
      if (c == '"') {
        at = stringEnd(text, at);
        continue;
      }
      if (c == '[' || c == '{') ++depth;
      else if ((c == ']' || c == '}') && --depth == 0) return at + 1;
      ++at;
    }
    return text.size();
  }
  while (at < text.size() && text[at] != ',' && text[at] != '}' && text[at] != ']' && !isSpace(text[at])) ++at;
  return at;
}

}  // namespace

// The file's members as they stand, each by its place in the text. Only the key that
// changes is parsed again: a settings file of a million keys once took minutes here, as
// each key was looked up among all before it on the way in.
struct SettingsFile::Document {
  struct Member {
    std::string key;  // decoded
    size_t keyBegin, keyEnd, valueBegin, valueEnd;
  };
  std::string text;
  std::vector<Member> members;

  std::string_view raw(size_t begin, size_t end) const { return std::string_view(text).substr(begin, end - begin); }

  // Members in their order with `key` set to `value` (nullptr: left out) where it stood, or
  // at the end when it was not there.
  std::string with(std::string_view key, const nlohmann::json* value) const {
    std::string out = "{";
    bool first = true, placed = false;
    const auto add = [&](std::string_view rawKey, std::string_view rawValue) {
      out += first ? "\n  " : ",\n  ";
      out += rawKey;
      out += ": ";
      out += rawValue;
      first = false;
    };
    const auto encoded = [&] {
      // Indented to sit one level in, as the rest of the file.
      std::string text = jsonText(nlohmann::ordered_json(*value), 2), indented;
      for (const char c : text) {
        indented += c;
        if (c == '\n') indented += "  ";
      }
      return indented;
    };
    for (const auto& member : members) {
      if (member.key != key) {
        add(raw(member.keyBegin, member.keyEnd), raw(member.valueBegin, member.valueEnd));
      } else if (value && !placed) {  // a key written twice by hand ends up once
        add(raw(member.keyBegin, member.keyEnd), encoded());
        placed = true;
      }
    }
    if (value && !placed) add(jsonText(nlohmann::json(std::string(key))), encoded());
    return out + (first ? "}\n" : "\n}\n");
  }
};

Result<nlohmann::json, SettingsFile::Failure> SettingsFile::set(std::string_view key, std::string_view text) const {
  const SettingSpec* spec = SettingsKeys::find(key);
  if (!spec) return failure(Kind::unknownKey, SettingsKeys::unknownKeySentence(key));
  auto value = spec->parse(text);
  if (!value) return failure(Kind::wrongValue, value.error());
  return setValue(key, *value);
}

Result<nlohmann::json, SettingsFile::Failure> SettingsFile::setValue(std::string_view key,
                                                                     const nlohmann::json& value) const {
  const SettingSpec* spec = SettingsKeys::find(key);
  if (!spec) return failure(Kind::unknownKey, SettingsKeys::unknownKeySentence(key));
  if (auto refusal = spec->refusal(value)) return failure(Kind::wrongValue, std::move(*refusal));
  // Held from the read to the rename, so that two changes at once both land.
  FileLock lock(file_);
  if (!lock.failure().empty()) return failure(Kind::notWritten, "The settings were not changed. " + lock.failure());
  auto document = read();
  if (!document) return fail(document.error());
  const Document::Member* current = nullptr;
  for (const auto& member : document->members)
    if (member.key == key) current = &member;  // the last one is the one that counts
  if (current) {
    auto stored = parseJSONText(document->raw(current->valueBegin, current->valueEnd));
    if (stored && *stored == value) return value;
  }
  if (auto written = write(document->with(key, &value)); !written) return fail(written.error());
  return value;
}

Result<void, SettingsFile::Failure> SettingsFile::unset(std::string_view key) const {
  if (!SettingsKeys::find(key)) return failure(Kind::unknownKey, SettingsKeys::unknownKeySentence(key));
  FileLock lock(file_);
  if (!lock.failure().empty()) return failure(Kind::notWritten, "The settings were not changed. " + lock.failure());
  auto document = read();
  if (!document) return fail(document.error());
  const bool there = std::any_of(document->members.begin(), document->members.end(),
                                 [&](const Document::Member& member) { return member.key == key; });
  if (!there) return {};
  return write(document->with(key, nullptr));
}

Result<SettingsFile::Document, SettingsFile::Failure> SettingsFile::read() const {
  Document document;
  auto text = AtomicFile::read(file_, AtomicFile::settingsLimit, AtomicFile::Links::follow);
  if (!text) {
    if (text.error().missing) return document;
    return failure(Kind::unusable, fmt::format("The settings file could not be read: {}.", text.error().message));
  }
  if (trim(*text).empty()) return document;
  document.text = std::move(*text);
  const std::string_view all = document.text;
  const auto refuse = [&](std::string_view problem) {
    return failure(Kind::unusable, fmt::format("The settings file {} {}; it was left as it is. Mend or remove it, then try again.",
                                               file_.string(), problem));
  };
  // Checked without building it: the library's accept() keeps no value and no recursion.
  if (nestsDeeperThan(all)) return refuse(fmt::format("nests deeper than {} levels", kJSONDepthLimit));
  if (!nlohmann::json::accept(all)) return refuse("is not valid JSON");
  size_t at = skipSpace(all, 0);
  if (at >= all.size() || all[at] != '{') return refuse("does not hold a JSON object");
  at = skipSpace(all, at + 1);
  while (at < all.size() && all[at] != '}') {
    Document::Member member{};
    member.keyBegin = at;
    member.keyEnd = stringEnd(all, at);
    const auto rawKey = document.raw(member.keyBegin, member.keyEnd);
    if (rawKey.find('\\') == std::string_view::npos) {
      member.key = std::string(rawKey.substr(1, rawKey.size() - 2));
    } else if (auto decoded = parseJSONText(rawKey); decoded && decoded->is_string()) {
      member.key = decoded->get<std::string>();
    }
    at = skipSpace(all, skipSpace(all, member.keyEnd) + 1);  // past the colon
    member.valueBegin = at;
    member.valueEnd = valueEnd(all, at);
    document.members.push_back(std::move(member));
    at = skipSpace(all, document.members.back().valueEnd);
    if (at < all.size() && all[at] == ',') at = skipSpace(all, at + 1);
  }
  return document;
}

Result<void, SettingsFile::Failure> SettingsFile::write(std::string_view text) const {
  // A settings file kept elsewhere and linked here stays linked: the target is replaced.
  std::error_code error;
  fs::path target = file_;
  if (fs::is_symlink(file_, error)) {
    target = fs::canonical(file_, error);
    if (error)
      return failure(Kind::notWritten, fmt::format("Cannot follow the link {}: {}.", file_.string(), error.message()));
  }
  auto written = AtomicFile::write(target, text);
  if (!written)
    return failure(Kind::notWritten, fmt::format("The settings were not changed: {}.", written.error().message));
  return {};
}

}  // namespace omnira
