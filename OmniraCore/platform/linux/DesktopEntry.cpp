#include "OmniraCore/platform/linux/DesktopEntry.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <set>

#include "OmniraCore/foundation/Parse.h"

namespace omnira::platform {

namespace {

bool startsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

std::string_view lastComponent(std::string_view path) {
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// The string escapes of desktop files; anything else (the Exec key's own "\"") stays.
std::string unescapeValue(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  for (size_t i = 0; i < value.size(); ++i) {
    if (value[i] != '\\' || i + 1 == value.size()) {
      out += value[i];
      continue;
    }
    switch (const char next = value[++i]) {
      case 's': out += ' '; break;
      case 'n': out += '\n'; break;
      case 't': out += '\t'; break;
      case 'r': out += '\r'; break;
      case '\\': out += '\\'; break;
      default:
        out += '\\';
        out += next;
    }
  }
  return out;
}

}  // namespace

Result<DesktopEntry, DesktopEntryFailure> parseDesktopEntry(std::string_view text) {
  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
  if (startsWith(text, byteOrderMark)) text.remove_prefix(byteOrderMark.size());

  DesktopEntry entry;
  bool sawGroup = false;
  bool inGroup = false;
  bool hasType = false;
  bool hasName = false;
  std::set<std::string, std::less<>> seen;
  forEachLine(text, [&](std::string_view raw) {
    const auto line = trim(raw);
    if (line.empty() || line.front() == '#') return;
    if (line.front() == '[') {
      inGroup = line == "[Desktop Entry]";
      sawGroup = sawGroup || inGroup;
      return;
    }
    const auto equals = line.find('=');
    if (!inGroup || equals == std::string_view::npos) return;
    const auto key = trim(line.substr(0, equals));
    if (key.empty() || key.find('[') != std::string_view::npos) return;
    if (!seen.emplace(key).second) return;
    auto value = unescapeValue(trim(line.substr(equals + 1)));
    if (key == "Type") {
      entry.type = std::move(value);
      hasType = true;
    } else if (key == "Name") {
      entry.name = std::move(value);
      hasName = true;
    } else if (key == "Exec") {
      entry.exec = std::move(value);
    } else if (key == "TryExec") {
      entry.tryExec = std::move(value);
    } else if (key == "Icon") {
      entry.icon = std::move(value);
    } else if (key == "StartupWMClass") {
      entry.startupWMClass = std::move(value);
    } else if (key == "X-Flatpak") {
      entry.flatpakID = std::move(value);
    } else if (key == "NoDisplay") {
      entry.noDisplay = value == "true";
    } else if (key == "Hidden") {
      entry.hidden = value == "true";
    } else if (key == "Terminal") {
      entry.terminal = value == "true";
    }
  });
  if (!sawGroup) return fail(DesktopEntryFailure{DesktopEntryFailure::Kind::noEntryGroup});
  if (entry.hidden) return entry;
  if (!hasType) return fail(DesktopEntryFailure{DesktopEntryFailure::Kind::missingType});
  if (!hasName) return fail(DesktopEntryFailure{DesktopEntryFailure::Kind::missingName});
  return entry;
}

Result<std::vector<std::string>, ExecFailure> splitExec(std::string_view exec) {
  std::vector<std::string> arguments;
  std::string current;
  bool inArgument = false;  // a lone field code makes no argument, but "" does
  const auto finish = [&] {
    if (inArgument) arguments.push_back(std::move(current));
    current.clear();
    inArgument = false;
  };
  for (size_t i = 0; i < exec.size(); ++i) {
    const char c = exec[i];
    if (c == ' ' || c == '\t' || c == '\n') {
      finish();
    } else if (c == '"') {
      inArgument = true;
      bool closed = false;
      for (++i; i < exec.size(); ++i) {
        if (exec[i] == '\\' && i + 1 < exec.size()) {
          current += exec[++i];
        } else if (exec[i] == '"') {
          closed = true;
          break;
        } else {
          current += exec[i];
        }
      }
      if (!closed) return fail(ExecFailure{ExecFailure::Kind::unterminatedQuote});
    } else if (c == '%' && i + 1 < exec.size()) {
      if (exec[++i] == '%') {
        current += '%';
        inArgument = true;
      }
    } else {
      current += c;
      inArgument = true;
    }
  }
  finish();
  if (arguments.empty()) return fail(ExecFailure{ExecFailure::Kind::empty});
  return arguments;
}

LaunchTarget launchTarget(const std::vector<std::string>& arguments) {
  const size_t count = arguments.size();
  size_t i = 0;
  while (i < count) {
    const std::string& argument = arguments[i];
    const auto base = lastComponent(argument);
    if (base == "env") {
      for (++i; i < count; ++i) {
        const std::string& a = arguments[i];
        if (a == "--") {
          ++i;
          break;
        }
        if (a == "-u" || a == "--unset" || a == "-C" || a == "--chdir") {
          ++i;  // the option's value
          continue;
        }
        const auto equals = a.find('=');
        const bool assignment = equals != std::string::npos && equals > 0 && a.find('/') > equals;
        if (!startsWith(a, "-") && !assignment) break;
      }
      continue;
    }
    const bool runs = i + 1 < count && arguments[i + 1] == "run";
    if ((base == "flatpak" || base == "snap") && runs) {
      size_t j = i + 2;
      while (j < count && startsWith(arguments[j], "-")) ++j;
      if (j == count) return {};
      const std::string_view target = arguments[j];
      if (base == "flatpak") return {std::nullopt, std::string(target.substr(0, target.find("//"))), std::nullopt};
      return {std::nullopt, std::nullopt, std::string(target.substr(0, target.find('.')))};
    }
    if (startsWith(argument, "/snap/bin/")) {
      const auto command = std::string_view(argument).substr(std::string_view("/snap/bin/").size());
      return {std::nullopt, std::nullopt, std::string(command.substr(0, command.find('.')))};
    }
    return {argument, std::nullopt, std::nullopt};
  }
  return {};
}

bool isSharedInterpreter(std::string_view program) {
  static constexpr std::array<std::string_view, 30> shared = {
      "sh",      "bash",   "dash",     "zsh",     "ksh",     "fish",     "csh",     "tcsh",
      "env",     "python", "pypy",     "perl",    "ruby",    "node",     "nodejs",  "java",
      "mono",    "wine",   "gjs",      "lua",     "luajit",  "php",      "electron", "pkexec",
      "sudo",    "xdg-open", "gio",    "gtk-launch", "x-terminal-emulator", "xdg-terminal-exec"};
  auto base = lastComponent(program);
  // python3, python3.11, electron25, perl5.36
  while (!base.empty() && (std::isdigit(static_cast<unsigned char>(base.back())) || base.back() == '.')) {
    base.remove_suffix(1);
  }
  return std::find(shared.begin(), shared.end(), base) != shared.end();
}

}  // namespace omnira::platform
