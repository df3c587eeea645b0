#pragma once

#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace varo::platform {

/// Key of the user information under which an error's readable text stands.
inline constexpr std::string_view kLocalizedDescriptionKey = "NSLocalizedDescription";
/// Key of the message of task errors.
inline constexpr std::string_view kErrorMessageKey = "message";
/// Key of the user information under which an error that wraps another one keeps it, unchanged.
/// What the first one knows (its domain and code, "curlCode", "httpStatusCode", "path") is then
/// reached through every wrapping with `firstCause`.
inline constexpr std::string_view kUnderlyingError = "underlyingError";
/// Domain of errors of the operating system; their code is `errno`.
inline constexpr std::string_view kPosixErrorDomain = "POSIX";

/// What went wrong: a domain, a code within it, and a dictionary with the details.
/// Immutable, so shared freely between threads as `ErrorPtr`.
class Error {
 public:
  Error(std::string domain, std::int64_t code, Dictionary userInfo);
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;
  virtual ~Error();

  /// An error whose only detail is its readable text.
  [[nodiscard]] static ErrorPtr make(std::string_view domain, std::int64_t code,
                                     std::string description);
  /// An error of a system call: "`what` `path`: the system's message". The path is also in the user
  /// information, under "path".
  [[nodiscard]] static ErrorPtr fromErrno(int errorNumber, std::string_view what,
                                          std::string_view path);

  [[nodiscard]] const std::string& domain() const noexcept { return domain_; }
  [[nodiscard]] std::int64_t code() const noexcept { return code_; }
  [[nodiscard]] const Dictionary& userInfo() const noexcept { return userInfo_; }

  /// The readable text: the user information's `kLocalizedDescriptionKey`, else its message, else
  /// domain and code.
  [[nodiscard]] std::string localizedDescription() const;

  /// Domain, code and readable text, for logs.
  [[nodiscard]] virtual std::string description() const;

 private:
  const std::string domain_;
  const std::int64_t code_;
  const Dictionary userInfo_;
};

/// The error at the end of the chain of `kUnderlyingError`, or `error` itself where it wraps none.
/// Valid while `error` lives.
[[nodiscard]] const Error& firstCause(const Error& error) noexcept;

}  // namespace varo::platform
