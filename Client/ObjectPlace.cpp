#include "Client/ObjectPlace.h"

#include "Binary/BinaryFileAdapterWithMetadata/Utils/ServerAddress.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ValidationUtils.h"
#include "Client/Failures.h"
#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace varo::detail {

using binary::ServerAddress;

namespace {

constexpr std::size_t kLongestKey = 1024;
constexpr std::size_t kShortestBucket = 3;
constexpr std::size_t kLongestBucket = 63;
/// Of a key that is shown in a message.
constexpr std::size_t kShownKey = 200;
constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kCapitals = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view kDigits = "0123456789";

Failure wrong(std::string what) { return failureOf(Kind::kInvalidArgument, std::move(what)); }

/// Where the URL leads; its path not encoded, without slashes at its end.
Outcome<ObjectPlace::Address> addressIn(std::string_view name, const std::string& url) {
  const auto server = ServerAddress::of(url);
  if (!server || !binary::ValidationUtils::isValidUrl(url, nullptr)) {
    return wrong(fmt::format("{} is no http or https URL: \"{}\"", name, platform::redactUrl(url)));
  }
  if (url.find('@') != std::string::npos) return wrong(fmt::format("{} has a user", name));
  if (url.find_first_of("?#") != std::string::npos) {
    return wrong(
        fmt::format("{} has a query or a fragment: \"{}\"", name, platform::redactUrl(url)));
  }
  const bool isUsualPort = server->port == (server->scheme == "https" ? "443" : "80");
  std::string host = server->host + (isUsualPort ? "" : ":" + server->port);
  std::string path = platform::percentDecode(url.substr(binary::endOfAuthority(url)));
  while (path.ends_with('/')) path.pop_back();
  return ObjectPlace::Address{server->scheme + "://" + host, std::move(host), std::move(path)};
}

bool consistsOf(std::string_view text, std::initializer_list<std::string_view> sets) {
  return std::all_of(text.begin(), text.end(), [sets](char c) {
    return std::any_of(sets.begin(), sets.end(),
                       [c](std::string_view set) { return set.find(c) != std::string_view::npos; });
  });
}

Outcome<void> checkedBucket(const S3& store) {
  const std::string& bucket = store.bucket;
  if (bucket.empty()) return wrong("S3::bucket is empty");
  const bool isHost = store.addressing == S3::Addressing::kVirtualHost;
  const bool isGood = bucket.size() >= kShortestBucket && bucket.size() <= kLongestBucket &&
                      (isHost ? consistsOf(bucket, {kLetters, kDigits, "-."})
                              : consistsOf(bucket, {kLetters, kDigits, "-._", kCapitals})) &&
                      consistsOf({&bucket.front(), 1}, {kLetters, kDigits, kCapitals}) &&
                      consistsOf({&bucket.back(), 1}, {kLetters, kDigits, kCapitals}) &&
                      bucket.find("..") == std::string::npos;
  if (isGood) return {};
  return wrong(fmt::format("S3::bucket is no name of a bucket{}: \"{}\"",
                           isHost ? " that a host can have" : "", bucket));
}

Outcome<ObjectPlace::Address> addressOf(const S3& store) {
  if (store.endpoint.empty()) return wrong("S3::endpoint is empty");
  auto address = addressIn("S3::endpoint", store.endpoint);
  if (!address) return address;
  if (!address->path.empty()) {
    return wrong(fmt::format("S3::endpoint has a path: \"{}\"", store.endpoint));
  }
  if (store.region.empty()) return wrong("S3::region is empty");
  if (!consistsOf(store.region, {kLetters, kDigits, kCapitals, "-_."})) {
    return wrong(fmt::format("S3::region is no region: \"{}\"", store.region));
  }
  if (auto good = checkedBucket(store); !good) return std::move(good).error();
  if (store.addressing == S3::Addressing::kPath) {
    address->path = "/" + store.bucket;
    return address;
  }
  const std::size_t host = address->origin.size() - address->host.size();
  address->origin.insert(host, store.bucket + ".");
  address->host.insert(0, store.bucket + ".");
  return address;
}

Outcome<ObjectPlace::Address> addressOf(const TemplateService& service) {
  if (service.templates.empty()) return wrong("TemplateService::templates is empty");
  if (!ServerAddress::of(service.templates) ||
      !binary::ValidationUtils::isValidUrl(service.templates, nullptr)) {
    return wrong(fmt::format("TemplateService::templates is no http or https URL: \"{}\"",
                             platform::redactUrl(service.templates)));
  }
  if (service.store.empty()) return wrong("TemplateService::store is empty");
  return addressIn("TemplateService::store", service.store);
}

/// None, or the header of the options that would contradict a signature.
Outcome<void> checkedHeaders(const Options& options) {
  static constexpr std::array<std::string_view, 5> kOurs = {
      "authorization", "host", "x-amz-date", "x-amz-content-sha256", "x-amz-security-token"};
  for (const auto& [name, value] : options.headers) {
    if (std::find(kOurs.begin(), kOurs.end(), platform::lowerCase(name)) != kOurs.end()) {
      return wrong(fmt::format("Options::headers: \"{}\" is part of the signature", name));
    }
  }
  return {};
}

bool hasDotSegment(std::string_view key) {
  for (;;) {
    const std::size_t slash = key.find('/');
    const std::string_view segment = key.substr(0, slash);
    if (segment == "." || segment == "..") return true;
    if (slash == std::string_view::npos) return false;
    key.remove_prefix(slash + 1);
  }
}

}  // namespace

Outcome<std::shared_ptr<const ObjectPlace>> ObjectPlace::create(Where where, Options options) {
  auto address = std::visit([](const auto& one) { return addressOf(one); }, where);
  if (!address) return std::move(address).error();
  if (!options.url.empty()) {
    return wrong("Options::url is given, but the store's address is said elsewhere");
  }
  if (auto good = checkedHeaders(options); !good) return std::move(good).error();
  const auto* service = std::get_if<TemplateService>(&where);
  if (service != nullptr && !service->region.empty() && options.credentials == nullptr) {
    return wrong("TemplateService::region is given, but Options::credentials is not");
  }
  options.url = address->origin;
  auto core = ClientCore::create(std::move(options));
  if (!core) return std::move(core).error();
  return std::make_shared<const ObjectPlace>(std::move(where), *std::move(address),
                                             *std::move(core));
}

ObjectPlace::ObjectPlace(Where where, Address address, std::shared_ptr<ClientCore> core)
    : where_(std::move(where)), address_(std::move(address)), core_(std::move(core)) {}

const std::string& ObjectPlace::region() const noexcept {
  return std::visit([](const auto& where) -> const std::string& { return where.region; }, where_);
}

bool ObjectPlace::signs() const noexcept {
  return core_->options().credentials != nullptr && !region().empty();
}

Outcome<binary::S3Keys> ObjectPlace::keysIn(const Credentials& shown) {
  for (const auto& [name, key] : {std::pair("accessKey", &Credentials::accessKey),
                                  std::pair("secretKey", &Credentials::secretKey)}) {
    if ((shown.*key).empty()) {
      return failureOf(Kind::kUnauthorized,
                       fmt::format("Options::credentials gave no Credentials::{}", name));
    }
  }
  return binary::S3Keys{shown.accessKey, shown.secretKey, shown.sessionToken};
}

Outcome<ObjectAccess> ObjectPlace::access(const Credentials& shown) const {
  ObjectAccess access;
  access.token = shown.token;
  for (const auto& [name, value] : core_->options().headers) access.headers.set(name, value);
  if (!signs()) return access;
  auto keys = keysIn(shown);
  if (!keys) return std::move(keys).error();
  access.keys = *std::move(keys);
  return access;
}

Outcome<void> checked(const ObjectKey& key) {
  const std::string& text = key.text();
  if (text.empty()) return wrong("The object's key is empty");
  if (text.size() > kLongestKey) {
    return wrong(fmt::format("{} is too long: its key has {} bytes, {} at most",
                             aboutObject("Name of", key), text.size(), kLongestKey));
  }
  if (text.find('\0') != std::string::npos) {
    return wrong(fmt::format("{} has a NUL", aboutObject("Key of", key)));
  }
  // Addresses are shortened by them on their way, encoded or not.
  if (hasDotSegment(text)) {
    return wrong(fmt::format("{} has \".\" or \"..\" between slashes", aboutObject("Key of", key)));
  }
  return {};
}

std::string aboutObject(std::string_view operation, const ObjectKey& key) {
  std::string shown = platform::sanitizeUtf8(platform::utf8Prefix(key.text(), kShownKey));
  if (key.text().size() > kShownKey) shown += "...";
  std::replace(shown.begin(), shown.end(), '\0', '?');
  return fmt::format("{} the object \"{}\"", operation, shown);
}

}  // namespace varo::detail
