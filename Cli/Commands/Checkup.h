#pragma once

#include "Cli/Failures/FailureText.h"
#include "Cli/Run/Session.h"
#include "varo/failure.h"

#include <string>
#include <string_view>
#include <vector>

namespace varo::cli {

/// The steps of a check of a configuration, in the order in which they build on each other.
namespace steps {
inline constexpr std::string_view kConfiguration = "configuration";
inline constexpr std::string_view kName = "name";
inline constexpr std::string_view kConnection = "connection";
inline constexpr std::string_view kTls = "tls";
inline constexpr std::string_view kService = "service";
inline constexpr std::string_view kToken = "token";
inline constexpr std::string_view kTemplate = "template";
inline constexpr std::string_view kStore = "store";
inline constexpr std::string_view kClock = "clock";
}  // namespace steps

/// What a check has found wrong itself, and what to do about it.
[[nodiscard]] FailureText problem(Kind kind, std::string message, std::string hint);

/// Tells of each step what was found, and what is wrong and what to do. Used on the main thread.
class Checkup {
 public:
  explicit Checkup(Session& session) : session_(session) {}

  void good(std::string_view step, const std::string& found);
  void wrong(std::string_view step, const FailureText& failure);
  /// Of a step that there is no way to try, or nothing to try of.
  void notTried(std::string_view step, const std::string& why);

  [[nodiscard]] bool isGood() const noexcept { return wrong_.empty(); }
  /// Writes the outcome of all steps, and returns the exit status.
  [[nodiscard]] int finish();

 private:
  void tell(std::string_view step, const platform::Value& isGood, const std::string& found,
            const std::string& advice);

  Session& session_;
  std::vector<std::string> wrong_;  // the steps
  std::string kind_;                // of the first failure
  bool isRetryable_ = true;
  std::size_t good_ = 0;
};

}  // namespace varo::cli
