#include "OmniraCore/usage/UsageLogin.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <set>

#include "OmniraCore/usage/UsageLogins.h"

namespace omnira {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

// Sign-in files are a few kilobytes; a larger one is not what it claims to be.
constexpr off_t maxSignInFileBytes = 1024 * 1024;

void wipeText(std::string& text) {
  if (!text.empty()) explicit_bzero(text.data(), text.size());
  text.clear();
}

// The file's text, nothing for a missing file, or a failure that names the file.
Result<std::optional<std::string>, UsageLogin::Failure> readSmallFile(const fs::path& file,
                                                                     std::string_view whose) {
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOENT || errno == ENOTDIR) return std::optional<std::string>();
    return fail(UsageLogin::Failure{
        file, fmt::format("{} sign-in file {} cannot be read: {}.", whose, file.string(), std::strerror(errno))});
  }
  struct stat info{};
  if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > maxSignInFileBytes) {
    ::close(fd);
    return fail(UsageLogin::Failure{file, fmt::format("{} sign-in file {} is not a sign-in file.", whose, file.string())});
  }
  std::string text(static_cast<size_t>(info.st_size), '\0');
  size_t got = 0;
  while (got < text.size()) {
    const ssize_t n = ::read(fd, text.data() + got, text.size() - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  const int readError = errno;
  ::close(fd);
  if (got < text.size() && readError != 0) {
    wipeText(text);
    return fail(UsageLogin::Failure{
        file, fmt::format("{} sign-in file {} cannot be read: {}.", whose, file.string(), std::strerror(readError))});
  }
  text.resize(got);
  return std::optional<std::string>(std::move(text));
}

// The parsed file; the raw text is wiped once parsed, so one copy of the secrets fewer stays around.
Result<Json, UsageLogin::Failure> parseSignIn(std::string text, const fs::path& file, std::string_view whose) {
  Json json = Json::parse(text, nullptr, false);
  wipeText(text);
  // The parser's own message quotes the text near the error, which may be a secret: not used.
  if (json.is_discarded() || !json.is_object()) {
    return fail(UsageLogin::Failure{file, fmt::format("{} sign-in file {} is not valid JSON.", whose, file.string())});
  }
  return json;
}

const Json* member(const Json& object, const char* key) {
  if (!object.is_object()) return nullptr;
  auto it = object.find(key);
  if (it == object.end() || it->is_null()) return nullptr;
  return &*it;
}

std::optional<std::string> nonEmptyString(const Json& object, const char* key) {
  const Json* value = member(object, key);
  if (value == nullptr || !value->is_string() || value->get_ref<const std::string&>().empty()) return std::nullopt;
  return value->get<std::string>();
}

std::optional<std::string> decodeBase64URL(std::string_view text) {
  static const std::array<int8_t, 256> values = [] {
    std::array<int8_t, 256> table{};
    table.fill(-1);
    const std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    for (size_t i = 0; i < alphabet.size(); ++i) table[static_cast<unsigned char>(alphabet[i])] = static_cast<int8_t>(i);
    table['-'] = table['+'] = 62;
    table['_'] = table['/'] = 63;
    return table;
  }();
  while (!text.empty() && text.back() == '=') text.remove_suffix(1);
  if (text.size() % 4 == 1) return std::nullopt;
  std::string out;
  out.reserve(text.size() * 3 / 4);
  uint32_t buffer = 0;
  int bits = 0;
  for (const char c : text) {
    const int8_t value = values[static_cast<unsigned char>(c)];
    if (value < 0) return std::nullopt;
    buffer = (buffer << 6) | static_cast<uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((buffer >> bits) & 0xFF));
    }
  }
  return out;
}

// The claims of a JSON Web Token, read without checking its signature: Omnira only wants
// to know when it expires and whom it names, never to trust it.
std::optional<Json> jwtClaims(std::string_view token) {
  const auto first = token.find('.');
  if (first == std::string_view::npos) return std::nullopt;
  const auto second = token.find('.', first + 1);
  if (second == std::string_view::npos) return std::nullopt;
  auto payload = decodeBase64URL(token.substr(first + 1, second - first - 1));
  if (!payload) return std::nullopt;
  Json claims = Json::parse(*payload, nullptr, false);
  if (claims.is_discarded() || !claims.is_object()) return std::nullopt;
  return claims;
}

// Seconds (or milliseconds) since 1970 within the years a sign-in can name.
std::optional<Date> epochDate(const Json& value, double unitSeconds) {
  if (!value.is_number()) return std::nullopt;
  const double seconds = value.get<double>() * unitSeconds;
  if (!std::isfinite(seconds) || seconds < 0 || seconds > 32503680000.0) return std::nullopt;  // year 3000
  return dateFromSecondsSinceEpoch(seconds);
}

constexpr std::string_view claudeWhose = "Claude Code's";
constexpr std::string_view codexWhose = "Codex's";

UsageLogin::Failure failure(const fs::path& file, std::string_view whose, std::string_view what) {
  return UsageLogin::Failure{file, fmt::format("{} sign-in file {} {}.", whose, file.string(), what)};
}

}  // namespace

UsageLogin::Secret& UsageLogin::Secret::operator=(const Secret& other) {
  if (this != &other) {
    wipe();
    value_ = other.value_;
  }
  return *this;
}

UsageLogin::Secret& UsageLogin::Secret::operator=(Secret&& other) noexcept {
  if (this != &other) {
    wipe();
    value_ = std::move(other.value_);
    other.value_.clear();
  }
  return *this;
}

UsageLogin::Secret::~Secret() { wipe(); }

void UsageLogin::Secret::wipe() { wipeText(value_); }

bool UsageLogin::isUsable(Date at) const { return !expiresAt || *expiresAt > at; }

bool UsageLogin::findsSignIns(UsageTool tool) { return tool == UsageTool::claude || tool == UsageTool::codex; }

Result<std::optional<UsageLogin>, UsageLogin::Failure> UsageLogin::readClaude(const fs::path& file) {
  auto text = readSmallFile(file, claudeWhose);
  if (!text) return fail(text.error());
  if (!text->has_value()) return std::optional<UsageLogin>();
  auto json = parseSignIn(std::move(**text), file, claudeWhose);
  if (!json) return fail(json.error());

  // Claude Code keeps the sign-ins of MCP servers in the same file; without its own
  // "claudeAiOauth" there is simply no Claude sign-in.
  const Json* oauth = member(*json, "claudeAiOauth");
  if (oauth == nullptr) return std::optional<UsageLogin>();
  if (!oauth->is_object()) return fail(failure(file, claudeWhose, "has a sign-in of an unknown shape"));
  auto accessToken = nonEmptyString(*oauth, "accessToken");
  if (!accessToken) return fail(failure(file, claudeWhose, "has a sign-in without an access token"));

  UsageLogin login;
  login.tool = UsageTool::claude;
  login.file = file;
  login.method = Method::account;
  login.credential = Secret(std::move(*accessToken));
  login.canRenew = nonEmptyString(*oauth, "refreshToken").has_value();
  login.plan = nonEmptyString(*oauth, "subscriptionType");
  if (const Json* expires = member(*oauth, "expiresAt")) {
    login.expiresAt = epochDate(*expires, 0.001);
    if (!login.expiresAt) return fail(failure(file, claudeWhose, "has an expiry that is not a time"));
  }
  return std::optional<UsageLogin>(std::move(login));
}

Result<std::optional<UsageLogin>, UsageLogin::Failure> UsageLogin::readCodex(const fs::path& file) {
  auto text = readSmallFile(file, codexWhose);
  if (!text) return fail(text.error());
  if (!text->has_value()) return std::optional<UsageLogin>();
  auto json = parseSignIn(std::move(**text), file, codexWhose);
  if (!json) return fail(json.error());

  UsageLogin login;
  login.tool = UsageTool::codex;
  login.file = file;
  // Newer versions say which of the two they use; older ones hold only the one in use.
  const bool usesKey = nonEmptyString(*json, "auth_mode") == "apikey";
  if (const Json* tokens = member(*json, "tokens"); tokens != nullptr && !usesKey) {
    if (!tokens->is_object()) return fail(failure(file, codexWhose, "has tokens of an unknown shape"));
    auto accessToken = nonEmptyString(*tokens, "access_token");
    if (!accessToken) return fail(failure(file, codexWhose, "has a sign-in without an access token"));
    login.method = Method::account;
    // The access token is a JSON Web Token; one that is not gives no expiry, which the
    // provider's answer will settle.
    if (auto claims = jwtClaims(*accessToken)) {
      if (const Json* exp = member(*claims, "exp")) login.expiresAt = epochDate(*exp, 1);
    }
    login.credential = Secret(std::move(*accessToken));
    login.canRenew = nonEmptyString(*tokens, "refresh_token").has_value();
    login.accountId = nonEmptyString(*tokens, "account_id");
    if (auto idToken = nonEmptyString(*tokens, "id_token")) {
      if (auto claims = jwtClaims(*idToken)) {
        login.email = nonEmptyString(*claims, "email");
        if (const Json* profile = member(*claims, "https://api.openai.com/profile"); !login.email && profile) {
          login.email = nonEmptyString(*profile, "email");
        }
        if (const Json* auth = member(*claims, "https://api.openai.com/auth")) {
          login.plan = nonEmptyString(*auth, "chatgpt_plan_type");
          if (!login.accountId) login.accountId = nonEmptyString(*auth, "chatgpt_account_id");
        }
      }
    }
    return std::optional<UsageLogin>(std::move(login));
  }
  if (auto key = nonEmptyString(*json, "OPENAI_API_KEY")) {
    login.method = Method::apiKey;
    login.credential = Secret(std::move(*key));
    return std::optional<UsageLogin>(std::move(login));
  }
  if (const Json* key = member(*json, "OPENAI_API_KEY"); key != nullptr && !key->is_string()) {
    return fail(failure(file, codexWhose, "has an API key of an unknown shape"));
  }
  return std::optional<UsageLogin>();
}

UsageLogin::Found UsageLogin::find(const std::vector<UsageTool>& tools, const Environment& environment) {
  Found found;
  std::set<fs::path> seen;  // two homes may name one folder
  for (const UsageTool tool : tools) {
    if (!findsSignIns(tool)) continue;
    const bool claude = tool == UsageTool::claude;
    const auto homes = claude ? UsageLogins::claudeHomes(environment) : UsageLogins::codexHomes(environment);
    for (const auto& home : homes) {
      const fs::path file = home / (claude ? ".credentials.json" : "auth.json");
      std::error_code error;
      fs::path key = fs::weakly_canonical(file, error);
      if (error) key = file.lexically_normal();
      if (!seen.insert(key).second) continue;
      auto login = claude ? readClaude(file) : readCodex(file);
      if (!login) {
        found.failures.push_back(login.error());
      } else if (login->has_value()) {
        found.logins.push_back(std::move(**login));
      }
    }
  }
  return found;
}

}  // namespace omnira
