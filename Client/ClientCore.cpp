#include "Client/ClientCore.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ServerAddress.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ValidationUtils.h"
#include "Client/ClientLog.h"
#include "Client/ClientTransport.h"
#include "Client/Failures.h"
#include "Client/ServiceAuthorizer.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Network/HeaderRules.h"

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
  if (options.connectTimeout.count() <= 0) return wrong("connectTimeout is not positive");
  if (options.stallTimeout.count() <= 0) return wrong("stallTimeout is not positive");
  for (const auto& [name, value] : options.headers) {
    if (auto checked = platform::checkHeader(name, value); !checked) {
      return wrong("headers: " + checked.error()->localizedDescription());
    }
  }
  std::error_code none;
  if (!options.tls.caFile.empty() && !std::filesystem::is_regular_file(options.tls.caFile, none)) {
    return wrong(fmt::format("tls.caFile is no file: \"{}\"", options.tls.caFile.string()));
  }
  return std::nullopt;
}

platform::NetworkConfiguration configurationOf(const Options& options) {
  platform::NetworkConfiguration configuration;
  configuration.connectTimeout = options.connectTimeout;
  configuration.stallTimeout = options.stallTimeout;
  configuration.caFile = options.tls.caFile.string();
  return configuration;
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
      places_(std::make_shared<Places>(static_cast<std::size_t>(options_.parallel),
                                       logContextOf(options_))),
      transport_(makeClientTransport(configurationOf(options_))) {}

std::shared_ptr<HeldCredentials> ClientCore::holdCredentials() const {
  return std::make_shared<HeldCredentials>(credentials_);
}

Outcome<Dictionary> ClientCore::headers(platform::RequestSettings& settings) const {
  Dictionary headers;
  for (const auto& [name, value] : options_.headers) headers.set(name, value);
  const auto held = holdCredentials();
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
  return settings;
}

Dictionary optionsWith(const std::shared_ptr<OperationSettings>& settings) {
  return {{binary::kOperationSettings, OperationSettings::value(settings)}};
}

}  // namespace varo::detail
