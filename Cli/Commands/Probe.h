#pragma once

#include "Cli/Commands/Checkup.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Value.h"

#include <chrono>
#include <optional>
#include <string>

namespace varo::cli {

/// One request, to see whether a server can be reached at all.
struct Probe {
  std::string url;
  platform::Dictionary headers = {};
  /// Posted as JSON; none: a GET.
  std::optional<platform::Dictionary> body = {};
};

/// What a server has answered.
struct Reply {
  int status = 0;
  /// None where it says no time.
  std::optional<std::chrono::system_clock::time_point> date;
  /// When the answer came.
  std::chrono::system_clock::time_point received;
  /// The beginning of the body, text.
  std::string body;
};

/// Sends the request through the transport and with the options of all commands, and tells what
/// that says of the steps up to TLS. None where one of them is wrong, or the user has interrupted.
[[nodiscard]] std::optional<Reply> reach(Session& session, Checkup& checkup, const Probe& probe);

/// Whether the clocks of this machine and of the server agree, as far as signatures need it.
void checkClock(Checkup& checkup, const Reply& reply);

/// "https://host:port" of an address; empty where it is none of http or https.
[[nodiscard]] std::string originOf(const std::string& url);

}  // namespace varo::cli
