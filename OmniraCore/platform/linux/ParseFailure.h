#pragma once
// Why the text of one kernel file could not be parsed. Readers turn it into an
// absent value; the message is for debug logs.

#include <string>

namespace omnira::platform {

struct ParseFailure {
  std::string message;
};

}  // namespace omnira::platform
