#include "Platform/Foundation/Error.h"

#include <fmt/format.h>

#include <system_error>

namespace varo::platform {

Error::Error(std::string domain, std::int64_t code, Dictionary userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

Error::~Error() = default;

ErrorPtr Error::make(std::string_view domain, std::int64_t code, std::string description) {
  return std::make_shared<const Error>(
      std::string(domain), code,
      Dictionary{{std::string(kLocalizedDescriptionKey), std::move(description)}});
}

ErrorPtr Error::fromErrno(int errorNumber, std::string_view what, std::string_view path) {
  // The library's own strerror is not thread-safe; this category's message is.
  const std::string message = std::system_category().message(errorNumber);
  return std::make_shared<const Error>(std::string(kPosixErrorDomain), errorNumber,
                                       Dictionary{{std::string(kLocalizedDescriptionKey),
                                                   fmt::format("{} {}: {}", what, path, message)},
                                                  {"path", std::string(path)}});
}

std::string Error::localizedDescription() const {
  for (const std::string_view key : {kLocalizedDescriptionKey, kErrorMessageKey}) {
    if (const std::string* text = userInfo_[key].text()) return *text;
  }
  return fmt::format("{} (code {})", domain_, code_);
}

std::string Error::description() const {
  return fmt::format("{} {}: {}", domain_, code_, localizedDescription());
}

const Error& firstCause(const Error& error) noexcept {
  // Errors are immutable, so the chain has an end, and each keeps the next.
  const Error* cause = &error;
  while (const ErrorPtr next = cause->userInfo()[kUnderlyingError].error()) cause = next.get();
  return *cause;
}

}  // namespace varo::platform
