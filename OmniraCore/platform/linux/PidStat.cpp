#include "OmniraCore/platform/linux/PidStat.h"

#include <fmt/format.h>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

namespace {

// Next space-separated field; empty at the end of the text.
std::string_view nextField(std::string_view& rest) {
  size_t i = 0;
  while (i < rest.size() && (rest[i] == ' ' || rest[i] == '\n')) ++i;
  size_t end = i;
  while (end < rest.size() && rest[end] != ' ' && rest[end] != '\n') ++end;
  auto field = rest.substr(i, end - i);
  rest.remove_prefix(end);
  return field;
}

}  // namespace

Result<PidStat, ParseFailure> parsePidStat(std::string_view text) {
  const auto open = text.find('(');
  const auto close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
    return fail(ParseFailure{"stat: no name in parentheses"});
  }
  PidStat stat;
  auto pid = parseNumber<int32_t>(trim(text.substr(0, open)));
  if (!pid) return fail(ParseFailure{"stat: no pid before the name"});
  stat.pid = *pid;
  stat.name = text.substr(open + 1, close - open - 1);

  std::string_view rest = text.substr(close + 1);
  // Fields are numbered from 1 (pid) as in proc_pid_stat(5); the walk starts at 3.
  for (int number = 3; number <= 22; ++number) {
    const auto field = nextField(rest);
    if (field.empty()) return fail(ParseFailure{fmt::format("stat: ends before field {}", number)});
    bool parsed = true;
    switch (number) {
      case 3:
        parsed = field.size() == 1;
        stat.state = field[0];
        break;
      case 4: {
        auto v = parseNumber<int32_t>(field);
        parsed = v.has_value();
        stat.parentPID = v.value_or(0);
        break;
      }
      case 7: {
        auto v = parseNumber<int64_t>(field);
        parsed = v.has_value();
        stat.ttyNumber = v.value_or(0);
        break;
      }
      case 9: {
        auto v = parseNumber<uint32_t>(field);
        parsed = v.has_value();
        stat.flags = v.value_or(0);
        break;
      }
      case 20: {
        auto v = parseNumber<uint32_t>(field);
        parsed = v.has_value();
        stat.threads = v.value_or(0);
        break;
      }
      case 14:
      case 15:
      case 22: {
        auto v = parseNumber<uint64_t>(field);
        parsed = v.has_value();
        (number == 14 ? stat.userTicks : number == 15 ? stat.systemTicks : stat.startTicks) = v.value_or(0);
        break;
      }
      default:
        break;
    }
    if (!parsed) return fail(ParseFailure{fmt::format("stat: field {} is \"{}\"", number, field)});
  }
  return stat;
}

}  // namespace omnira::platform
