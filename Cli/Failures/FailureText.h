#pragma once

#include "Cli/Failures/Hints.h"
#include "Platform/Foundation/Value.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace varo::cli {

/// What a program decides by.
struct FailureFacts {
  /// As `nameOf(Kind)`: "notFound".
  std::string kind;
  /// Of the response, where there was one.
  std::optional<int> httpStatus = {};
  /// Whether the same command may succeed later, and a repeat does no harm.
  bool isRetryable = false;
  /// How long the server wants to be left alone.
  std::optional<std::chrono::seconds> retryAfter = {};
};

/// A failure as people read it.
struct FailureText {
  std::string domain;
  std::int64_t code = 0;
  /// What went wrong, in one line.
  std::string message;
  /// What to do next; empty where nothing useful can be said.
  std::string hint;
  FailureFacts facts;
};

/// Reads a failure block's value in each of the shapes that the library delivers: the dictionary of
/// "code", "domain" and "localizedDescription", a caught exception or a download's contexts under
/// "error", or an error itself. The hint is the one for operations on files.
[[nodiscard]] FailureText describeFailure(const platform::Value& failure);

/// The same without a hint, for a command whose items or steps have each had their own.
[[nodiscard]] FailureText describeWithoutHint(const platform::Value& failure);
/// The same with the hint for `topic`.
[[nodiscard]] FailureText describeFailureOf(Topic topic, const platform::Value& failure);

/// Whether the proxy was what failed, which no kind of failure says: only the library's words do.
[[nodiscard]] bool isAboutProxy(const FailureText& text);

}  // namespace varo::cli
