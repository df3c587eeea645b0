#include "Client/CredentialsSources.h"

#include "Client/CredentialsCommand.h"
#include "Client/Failures.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/TimeText.h"
#include "Platform/Network/HeaderRules.h"
#include "varo/credentials.h"

#include <fmt/format.h>

#include <cstdlib>
#include <optional>
#include <span>
#include <string_view>
#include <sys/stat.h>
#include <utility>

namespace varo {

namespace detail {

using platform::Dictionary;

namespace {

Failure unusable(std::string_view source, std::string_view what) {
  return failureOf(Kind::kUnauthorized, fmt::format("The credentials of {}: {}", source, what));
}

/// Sets what has a value; nothing of it goes into a failure.
Outcome<void> setExpires(Credentials& credentials, std::string_view text, std::string_view source,
                         std::string_view name) {
  if (text.empty()) return {};
  credentials.expires = platform::isoTime(text);
  if (credentials.expires) return {};
  return unusable(source, fmt::format("\"{}\" is no time such as 2026-01-31T12:00:00Z", name));
}

Outcome<Credentials> checked(Credentials credentials, std::string_view source) {
  if (credentials.accessKey.empty() != credentials.secretKey.empty()) {
    return unusable(source, "of access key and secret key there is only one");
  }
  if (credentials.token.empty() && credentials.accessKey.empty()) {
    return unusable(source, "there is neither a token nor an access key");
  }
  for (const std::string* sent : {&credentials.token, &credentials.sessionToken}) {
    if (!platform::checkHeader("token", *sent)) {
      return unusable(source, "a token has characters that no header can have");
    }
  }
  return credentials;
}

Outcome<Credentials> fromJson(std::string_view text, std::string_view source) {
  const auto parsed = platform::json::parse(text, {.bytes = kLongestCredentials});
  if (!parsed || !parsed->isDictionary()) return unusable(source, "they are no JSON object");
  const Dictionary entries = parsed->dictionaryValue();
  Credentials credentials;
  std::string expires;
  for (const auto& [name, target] :
       {std::pair("token", &credentials.token), std::pair("accessKey", &credentials.accessKey),
        std::pair("secretKey", &credentials.secretKey),
        std::pair("sessionToken", &credentials.sessionToken), std::pair("expires", &expires)}) {
    const platform::Value& value = entries[name];
    if (value.isMissing() || value.isNull()) continue;
    const std::string* given = value.text();
    if (given == nullptr) return unusable(source, fmt::format("\"{}\" is no text", name));
    *target = *given;
  }
  if (auto good = setExpires(credentials, expires, source, "expires"); !good) {
    return std::move(good).error();
  }
  return checked(std::move(credentials), source);
}

Outcome<Credentials> fromFile(const std::filesystem::path& path, ReadableBy readable) {
  const std::string source = fmt::format("the file \"{}\"", path.string());
  const auto file = platform::File::openForReading(path.string());
  if (!file) return unusable(source, file.error()->localizedDescription());
  struct stat status = {};
  const bool isKnown = ::fstat((*file)->descriptor(), &status) == 0;
  if (readable == ReadableBy::kOwnerAndGroup &&
      (!isKnown || (status.st_mode & (S_IROTH | S_IWOTH)) != 0)) {
    return unusable(source, "all users can read or change it; chmod o= makes it private");
  }
  std::string text(kLongestCredentials + 1, '\0');
  const auto length = (*file)->readAt(0, text);
  if (!length) return unusable(source, length.error()->localizedDescription());
  text.resize(*length);
  return credentialsIn(text, source);
}

Outcome<Credentials> fromEnvironment(const CredentialsVariables& names) {
  const auto read = [](const std::string& name) {
    const char* value = std::getenv(name.c_str());
    return std::string(value != nullptr ? value : "");
  };
  const std::string source = "the environment";
  Credentials credentials{.token = read(names.token),
                          .accessKey = read(names.accessKey),
                          .secretKey = read(names.secretKey),
                          .sessionToken = read(names.sessionToken)};
  if (auto good = setExpires(credentials, read(names.expires), source, names.expires); !good) {
    return std::move(good).error();
  }
  return checked(std::move(credentials), source);
}

}  // namespace

Outcome<Credentials> credentialsIn(std::string_view text, std::string_view source) {
  if (text.size() > kLongestCredentials) return unusable(source, "they have more than 64 KiB");
  const std::string_view content = platform::trimmed(text);
  if (content.starts_with('{')) return fromJson(content, source);
  return checked({.token = std::string(content)}, source);
}

}  // namespace detail

CredentialsProvider credentialsFromFile(std::filesystem::path file, ReadableBy readable) {
  return [file = std::move(file), readable] { return detail::fromFile(file, readable); };
}

CredentialsProvider credentialsFromEnvironment(CredentialsVariables names) {
  return [names = std::move(names)] { return detail::fromEnvironment(names); };
}

CredentialsProvider credentialsFromCommand(std::vector<std::string> command,
                                           std::chrono::milliseconds timeout) {
  return [command = std::move(command), timeout]() -> Outcome<Credentials> {
    if (command.empty() || command.front().empty()) {
      return detail::failureOf(Kind::kInvalidArgument, "credentialsFromCommand has no command");
    }
    auto output = detail::outputOf(command, timeout);
    if (!output) return std::move(output).error();
    return detail::credentialsIn(*output, fmt::format("the command \"{}\"", command.front()));
  };
}

}  // namespace varo
