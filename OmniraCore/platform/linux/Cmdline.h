#pragma once
// /proc/PID/cmdline: a process's arguments.

#include <string>
#include <string_view>
#include <vector>

namespace omnira::platform {

// https://man7.org/linux/man-pages/man5/proc_pid_cmdline.5.html
// Arguments are NUL-separated; the last NUL may be missing and kernel threads have
// none at all. Trailing NULs are padding and are dropped.
// A process may rewrite its argument area as one title ("chrome --type=renderer ..."
// with spaces and no NULs, as Chromium's setproctitle does); a single argument that
// holds " --" or " -" options is split at its spaces so that argument rules still apply.
std::vector<std::string> parseCmdline(std::string_view text);

}  // namespace omnira::platform
