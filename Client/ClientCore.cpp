#include "Client/ClientCore.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ServerAddress.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ValidationUtils.h"
#include "Client/ClientLog.h"
#include "Client/ClientTransport.h"
#include "Client/Failures.h"
#include "Client/Retries.h"
#include "Client/ServiceAuthorizer.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Network/ConfigurationRules.h"
#include "Platform/Network/HeaderRules.h"
#include "varo/version.h"

#include <fmt/format.h>

#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace varo::detail {

using binary::OperationSettings;
using platform::Dictionary;

namespace {

constexpr int kMostParallel = 256;
constexpr std::uint64_t kMostChunk = std::uint64_t{1} << 40;

std::string withoutSlashes(std::string url) {
  while (!url.empty() && url.back() == '/') url.pop_back();
  return url;
}

platform::NetworkConfiguration configurationOf(const Options& options) {
  platform::NetworkConfiguration configuration;
  configuration.connectTimeout = options.connectTimeout;
  configuration.stallTimeout = options.stallTimeout;
  const Tls& tls = options.tls;
  configuration.caFile = tls.caFile.string();
  configuration.caDirectory = tls.caDirectory.string();
  configuration.clientCertificate = tls.clientCertificate.string();
  configuration.clientKey = tls.clientKey.string();
  configuration.clientKeyPassword = tls.clientKeyPassword;
  configuration.pinnedKeys = tls.pinnedKeys;
  if (tls.minimumVersion == TlsVersion::k13) configuration.minimumTls = platform::TlsVersion::k13;
  if (const auto& proxy = options.proxy) {
    configuration.proxy = platform::ProxyConfiguration{.url = proxy->url,
                                                       .user = proxy->user,
                                                       .password = proxy->password,
                                                       .bypass = proxy->bypass,
                                                       .fromEnvironment = proxy->fromEnvironment};
  }
  if (options.perSecond) configuration.bytesPerSecond = options.perSecond->count;
  configuration.userAgent = options.userAgent;
  if (configuration.userAgent.empty()) configuration.userAgent = "varobinary/" VARO_VERSION;
  return configuration;
}

/// None, or what is wrong with how servers are reached.
std::optional<std::string> mistakeInLine(const Options& options) {
  if (options.perSecond && options.perSecond->count == 0) return "perSecond is 0 bytes";
  if (const auto mistake = platform::mistakeIn(configurationOf(options))) {
    const bool isOfTls = mistake->field != "userAgent" && mistake->field.rfind("proxy.", 0) != 0;
    return fmt::format("{}{} {}", isOfTls ? "tls." : "", mistake->field, mistake->what);
  }
  const Tls& tls = options.tls;
  const struct {
    const char* field;
    const std::filesystem::path& path;
  } files[] = {{"caFile", tls.caFile},
               {"clientCertificate", tls.clientCertificate},
               {"clientKey", tls.clientKey}};
  std::error_code none;
  for (const auto& [field, path] : files) {
    if (!path.empty() && !std::filesystem::is_regular_file(path, none)) {
      return fmt::format("tls.{} is no file: \"{}\"", field, path.string());
    }
  }
  if (!tls.caDirectory.empty() && !std::filesystem::is_directory(tls.caDirectory, none)) {
    return fmt::format("tls.caDirectory is no directory: \"{}\"", tls.caDirectory.string());
  }
  return std::nullopt;
}

std::shared_ptr<const Observers> observersIn(const Options& options) {
  if (options.onRequest == nullptr && options.onOperation == nullptr) return nullptr;
  return std::make_shared<const Observers>(Observers{options.onRequest, options.onOperation});
}

constexpr int kMostAttempts = 100;
/// Sums of such waits stay far within the clock.
constexpr std::chrono::hours kMostWait{24};

/// None, or what is wrong with it.
std::optional<std::string> mistakeIn(const Retry& retry) {
  if (retry.attempts < 1 || retry.attempts > kMostAttempts) {
    return fmt::format("retry.attempts is {}, not from 1 to {}", retry.attempts, kMostAttempts);
  }
  if (retry.firstWait.count() < 0) return "retry.firstWait is negative";
  if (retry.longestWait < retry.firstWait || retry.longestWait > kMostWait) {
    return "retry.longestWait is not from retry.firstWait to 24 h";
  }
  if (retry.longestRetryAfter.count() < 0 || retry.longestRetryAfter > kMostWait) {
    return "retry.longestRetryAfter is not from 0 to 24 h";
  }
  if (retry.budget.count() < 0) return "retry.budget is negative";
  return std::nullopt;
}

/// None, or what is wrong with the options.
std::optional<Failure> mistakeIn(const Options& options) {
  const auto wrong = [](std::string what) {
    return failureOf(Kind::kInvalidArgument, "Options::" + std::move(what));
  };
  if (options.url.empty()) return wrong("url is empty");
  const std::string url = platform::redactUrl(options.url);
  if (!binary::ServerAddress::of(options.url) ||
      !binary::ValidationUtils::isValidUrl(options.url, nullptr)) {
    return wrong(fmt::format("url is no http or https URL: \"{}\"", url));
  }
  if (options.url.find_first_of("?#") != std::string::npos) {
    return wrong(fmt::format("url has a query or a fragment: \"{}\"", url));
  }
  if (options.parallel < 1 || options.parallel > kMostParallel) {
    return wrong(fmt::format("parallel is {}, not from 1 to {}", options.parallel, kMostParallel));
  }
  if (options.chunkSize.count == 0 || options.chunkSize.count > kMostChunk) {
    return wrong(
        fmt::format("chunkSize is {} bytes, not from 1 to 1 TiB", options.chunkSize.count));
  }
  if (options.memory && options.memory->count == 0) return wrong("memory is 0 bytes");
  if (options.connectTimeout.count() <= 0) return wrong("connectTimeout is not positive");
  if (options.stallTimeout.count() <= 0) return wrong("stallTimeout is not positive");
  if (auto mistake = mistakeIn(options.retry)) return wrong(*std::move(mistake));
  for (const auto& [name, value] : options.headers) {
    if (auto checked = platform::checkHeader(name, value); !checked) {
      return wrong("headers: " + checked.error()->localizedDescription());
    }
  }
  if (auto mistake = mistakeInLine(options)) return wrong(*std::move(mistake));
  return std::nullopt;
}

}  // namespace

Outcome<std::shared_ptr<ClientCore>> ClientCore::create(Options options) {
  if (auto mistake = mistakeIn(options)) return *std::move(mistake);
  if (platform::Runtime::shared().isShutDown()) {
    return failureOf(Kind::kShutDown, "The library has been shut down");
  }
  return std::make_shared<ClientCore>(std::move(options));
}

ClientCore::ClientCore(Options options)
    : options_(std::move(options)),
      url_(withoutSlashes(options_.url)),
      credentials_(std::make_shared<CredentialsCache>(options_.credentials)),
      observers_(observersIn(options_)),
      places_(std::make_shared<Places>(
          static_cast<std::size_t>(options_.parallel),
          options_.memory ? options_.memory->count : platform::MemoryBudget::kUnlimited,
          logContextOf(options_))),
      transport_(makeClientTransport(configurationOf(options_))) {}

std::shared_ptr<OperationWatch> ClientCore::watch(OperationKind kind) const {
  return observers_ == nullptr ? nullptr : std::make_shared<OperationWatch>(observers_, kind);
}

std::shared_ptr<HeldCredentials> ClientCore::holdCredentials(std::stop_token stop) const {
  return std::make_shared<HeldCredentials>(credentials_, std::move(stop));
}

Outcome<Dictionary> ClientCore::headers(platform::RequestSettings& settings,
                                        const std::shared_ptr<HeldCredentials>& held) const {
  Dictionary headers;
  for (const auto& [name, value] : options_.headers) headers.set(name, value);
  const auto shown = held->current();
  if (!shown) return shown.error();
  if ((*shown)->token.empty()) return headers;
  headers.set(binary::kVaroAuthorization, (*shown)->token);
  settings.authorizer = std::make_shared<ServiceAuthorizer>(held);
  return headers;
}

std::shared_ptr<OperationSettings> ClientCore::settings() const {
  auto settings = std::make_shared<OperationSettings>();
  settings->policy = binary::TransferPolicy::kSafe;
  settings->transport = transport_;
  settings->observer = nullptr;  // those of the operation, not that of the process
  settings->retry = policyFrom(options_.retry);
  settings->retryBudget = std::make_shared<platform::RetryBudget>(options_.retry.budget);
  return settings;
}

Dictionary optionsWith(const std::shared_ptr<OperationSettings>& settings) {
  return {{binary::kOperationSettings, OperationSettings::value(settings)}};
}

}  // namespace varo::detail
