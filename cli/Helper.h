#pragma once
// `omnira helper install|uninstall|status`: the privileged helper, installed at the
// person's request.
//
// install and uninstall run `pkexec <libexec>/omnira-helper --install --user UID` (or
// --uninstall), so polkit asks for an administrator's password once; the helper itself
// writes /etc/omnira/helper.conf and enables or disables its systemd unit. Without pkexec
// the command says what to type with sudo instead. status says in one sentence whether the
// helper is installed, running and answering (a hello round trip), or why not.

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "OmniraCore/sensors/HelperClient.h"

namespace omnira::cli {

struct HelperCommandRequest {
  enum class Command { install, uninstall, status };
  Command command = Command::status;
  std::string socket = HelperClient::kDefaultSocket;
};

// The helper program: the installed one (libexec beside this program's prefix, then the
// configured libexec folder), else the one beside this program in a build tree.
std::optional<std::filesystem::path> findHelper(std::vector<std::filesystem::path>* searched = nullptr);

// One sentence about the helper as `person` sees it; `answering` tells whether it is usable.
std::string helperStatus(HelperClient& client, uid_t person, bool* answering = nullptr);

// Returns 0 when done (status: when the helper answers), 1 otherwise.
int runHelper(const HelperCommandRequest& request, std::FILE* out, std::FILE* err);

}  // namespace omnira::cli
