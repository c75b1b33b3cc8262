// The texts that tell which app a process belongs to: /proc/PID/cgroup (containers and
// the session's units), unit names, desktop entries and their Exec lines, and a Flatpak
// sandbox's /.flatpak-info.

#include <cstdint>
#include <string>

#include "OmniraCore/platform/linux/ContainerCgroup.h"
#include "OmniraCore/platform/linux/DesktopEntry.h"
#include "OmniraCore/platform/linux/FlatpakInfo.h"
#include "OmniraCore/platform/linux/SystemdUnit.h"
#include "fuzz/FuzzInput.h"

using namespace omnira;
using namespace omnira::platform;

namespace {

bool isHex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto input = fuzz::split(data, size, 6);
  const auto text = input.text;
  switch (input.selector) {
    case 0: {
      if (auto container = containerOfCgroups(text)) {
        // The id is what the engines' APIs are asked about: always 64 hex digits.
        if (container->id.size() != 64) __builtin_trap();
        for (char c : container->id)
          if (!isHex(c)) __builtin_trap();
      }
      break;
    }
    case 1: {
      if (auto path = systemdCgroupPath(text)) {
        // A view into the text it came from.
        if (!fuzz::within(*path, text)) __builtin_trap();
        fuzz::keep(sessionUnitOf(*path));
      }
      break;
    }
    case 2: fuzz::keep(sessionUnitOf(text)); break;
    case 3: {
      fuzz::keep(appIDOfUnit(text));
      // Unescaping only ever shortens a name.
      if (unescapeUnitName(text).size() > text.size()) __builtin_trap();
      break;
    }
    case 4: {
      auto entry = parseDesktopEntry(text);
      if (entry && entry->exec) {
        if (auto arguments = splitExec(*entry->exec)) {
          auto target = launchTarget(*arguments);
          if (target.program) fuzz::keep(isSharedInterpreter(*target.program));
        }
      }
      // Exec lines straight from the input too, without an entry around them.
      if (auto arguments = splitExec(text)) fuzz::keep(launchTarget(*arguments));
      break;
    }
    case 5: fuzz::keep(parseFlatpakAppID(text)); break;
  }
  return 0;
}
