#pragma once
// Listening TCP sockets from /proc/net/tcp and /proc/net/tcp6, and the socket links in
// /proc/PID/fd that tie them to processes.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "OmniraCore/foundation/Result.h"
#include "OmniraCore/platform/linux/ParseFailure.h"
#include "OmniraCore/sampling/ProcessSource.h"

namespace omnira::platform {

// https://docs.kernel.org/networking/proc_net_tcp.html
// One header line, then one line per socket: "sl local rem st tx:rx tr:when retrnsmt uid
// timeout inode ...", addresses as hex "ADDR:PORT". Keeps state 0A (LISTEN) only.
// A data line that does not parse fails the whole file.
Result<std::vector<ListeningSocket>, ParseFailure> parseListeningSockets(std::string_view text);

// "socket:[12345]" → 12345; any other link target (files, pipes, "anon_inode:…") → none.
std::optional<uint64_t> socketInodeOfLink(std::string_view linkTarget);

}  // namespace omnira::platform
