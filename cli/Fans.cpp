#include "cli/Fans.h"

#include <signal.h>

#include <cerrno>
#include <cmath>
#include <ctime>

#include <fmt/format.h>

#include "OmniraCore/foundation/Parse.h"
#include "OmniraCore/foundation/SafeText.h"

namespace omnira::cli {

namespace {

// Well inside the helper's 10 s idle time-out.
constexpr time_t kKeepAliveSeconds = 4;

}  // namespace

std::optional<FanSpeed> parseFanSpeed(const std::string& speed) {
  if (lowered(speed) == "auto") return FanSpeed{std::nullopt};
  auto rpm = parseNumber<double>(speed);
  if (!rpm || !std::isfinite(*rpm) || *rpm < 0 || *rpm > HelperProtocol::kMaxRPM) return std::nullopt;
  return FanSpeed{*rpm};
}

int runFanSet(const FanSetRequest& request, std::FILE* out, std::FILE* err) {
  const auto speed = parseFanSpeed(request.speed);
  if (!speed) {
    fmt::print(err, "omnira: a fan speed is a number of rpm from 0 to {} or \"auto\", not \"{}\".\n",
               HelperProtocol::kMaxRPM, terminalText(request.speed));
    return 2;
  }
  HelperClient::Options options;
  options.socket = request.socket;
  HelperClient client(options);

  if (!speed->rpm) {
    if (auto done = client.setFanAutomatic(request.index); !done) {
      fmt::print(err, "omnira: {}\n", done.error().message);
      return 1;
    }
    fmt::print(out, "Fan {} is back under automatic control.\n", request.index);
    return 0;
  }

  // Blocked before the fan is set, so a Ctrl-C at any moment still gives it back.
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGINT);
  sigaddset(&stop, SIGTERM);
  sigaddset(&stop, SIGHUP);
  sigset_t before;
  ::sigprocmask(SIG_BLOCK, &stop, &before);

  auto set = client.setFan(request.index, *speed->rpm);
  if (!set) {
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    fmt::print(err, "omnira: {}\n", set.error().message);
    return 1;
  }
  fmt::print(out, "Fan {} is set to {:.0f} rpm while this command runs; press Ctrl-C to give it back.\n", request.index,
             *set);
  std::fflush(out);

  int status = 0;
  while (true) {
    const timespec wait{kKeepAliveSeconds, 0};
    const int signal = ::sigtimedwait(&stop, nullptr, &wait);
    if (signal > 0) break;
    if (signal < 0 && errno != EAGAIN && errno != EINTR) break;
    if (signal < 0 && errno == EAGAIN) {
      if (auto alive = client.hello(); !alive) {
        fmt::print(err, "omnira: the helper let go of the connection ({}); fan {} is back under its own control.\n",
                   alive.error().message, request.index);
        status = 1;
        break;
      }
    }
  }
  client.close();
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  if (status == 0) fmt::print(out, "Fan {} is back under automatic control.\n", request.index);
  return status;
}

}  // namespace omnira::cli
