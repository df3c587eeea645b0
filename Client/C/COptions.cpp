#include "Client/C/COptions.h"

#include "Client/C/CFailure.h"
#include "Client/C/CValues.h"
#include "Client/C/GivenStruct.h"
#include "Client/C/Guarded.h"
#include "Client/Failures.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace varo::capi {

namespace {

std::function<Outcome<Credentials>()> providerOf(varo_credentials_fn ask,
                                                 std::shared_ptr<UserData> user) {
  if (ask == nullptr) return {};
  return [ask, user = std::move(user)]() -> Outcome<Credentials> {
    varo_credentials answer;
    const int refused = ask(user->pointer(), &answer);
    if (refused == 0) return std::move(answer.credentials);
    if (answer.refusal.empty()) {
      answer.refusal = "varo_options::credentials returned " + std::to_string(refused);
    }
    return detail::failureOf(Kind::kUnauthorized, std::move(answer.refusal));
  };
}

std::function<void(const LogRecord&)> logOf(varo_log_fn log, std::shared_ptr<UserData> user) {
  if (log == nullptr) return {};
  return [log, user = std::move(user)](const LogRecord& record) {
    varo_log_record shown = {};
    shown.size = sizeof shown;
    shown.level = static_cast<varo_log_level>(static_cast<int>(record.level) + 1);
    shown.line = record.line;
    shown.file = record.file;
    shown.message = record.message.c_str();
    shown.logger = record.logger.c_str();
    log(user->pointer(), &shown);
  };
}

std::int64_t unixTime(std::chrono::system_clock::time_point time) {
  return std::chrono::floor<std::chrono::microseconds>(time.time_since_epoch()).count();
}

std::int64_t orUnknown(const std::optional<std::chrono::microseconds>& time) {
  return time ? static_cast<std::int64_t>(time->count()) : -1;
}

varo_code orOk(const std::optional<Kind>& kind) { return kind ? codeOf(*kind) : VARO_OK; }

/// Refers to the texts of `event`.
varo_request_event cEventOf(const RequestEvent& event) {
  varo_request_event shown = {};
  shown.size = sizeof shown;
  shown.operation = event.operation;
  shown.kind = static_cast<varo_operation_kind>(event.kind);
  shown.attempt = event.attempt;
  shown.http_status = event.status.value_or(0);
  shown.error = orOk(event.error);
  shown.method = event.method.c_str();
  shown.url = event.url.c_str();
  shown.bytes_sent = event.sent.count;
  shown.bytes_received = event.received.count;
  shown.begun_us = unixTime(event.begun);
  shown.queue_us = orUnknown(event.queue);
  shown.connect_us = orUnknown(event.connect);
  shown.first_byte_us = orUnknown(event.firstByte);
  shown.total_us = event.total.count();
  return shown;
}

varo_operation_event cOperationOf(const OperationEvent& event) {
  varo_operation_event shown = {};
  shown.size = sizeof shown;
  shown.id = event.id;
  shown.kind = static_cast<varo_operation_kind>(event.kind);
  shown.outcome = orOk(event.failure);
  shown.attempts = event.attempts;
  shown.bytes_done = event.done.count;
  shown.bytes_sent = event.sent.count;
  shown.bytes_received = event.received.count;
  shown.begun_us = unixTime(event.begun);
  shown.duration_us = event.duration.count();
  return shown;
}

template <typename Event, typename Shown>
std::function<void(const Event&)> observerOf(void (*tell)(void*, const Shown*),
                                             std::shared_ptr<UserData> user,
                                             Shown (*show)(const Event&)) {
  if (tell == nullptr) return {};
  return [tell, user = std::move(user), show](const Event& event) {
    const Shown shown = show(event);
    tell(user->pointer(), &shown);
  };
}

static_assert(static_cast<int>(OperationKind::kFileList) == VARO_FILE_LIST);
static_assert(static_cast<int>(OperationKind::kObjectRemove) == VARO_OBJECT_REMOVE);

Outcome<std::vector<std::string>> textsFrom(const char* const* texts, std::size_t count,
                                            const char* name) {
  std::vector<std::string> copied;
  if (count == 0) return copied;
  if (texts == nullptr) return invalid(std::string(name) + " is NULL, its count is not 0");
  for (std::size_t i = 0; i < count; ++i) {
    if (texts[i] == nullptr) return invalid(std::string(name) + " has a NULL");
    copied.emplace_back(texts[i]);
  }
  return copied;
}

/// Null, or what is wrong with how servers are to be reached.
std::optional<Failure> takeLine(const varo_options& given, Options& options) {
  auto bypass =
      textsFrom(given.proxy_bypass, given.proxy_bypass_count, "varo_options::proxy_bypass");
  if (!bypass) return std::move(bypass).error();
  auto pins = textsFrom(given.pinned_keys, given.pinned_key_count, "varo_options::pinned_keys");
  if (!pins) return std::move(pins).error();
  const bool hasProxy = given.proxy != nullptr || given.proxy_user != nullptr ||
                        given.proxy_password != nullptr || !bypass->empty() ||
                        given.proxy_from_environment != 0;
  if (hasProxy) {
    options.proxy = Proxy{.url = textFrom(given.proxy),
                          .user = textFrom(given.proxy_user),
                          .password = textFrom(given.proxy_password),
                          .bypass = *std::move(bypass),
                          .fromEnvironment = given.proxy_from_environment != 0};
  }
  options.tls.caDirectory = textFrom(given.ca_directory);
  options.tls.clientCertificate = textFrom(given.client_certificate);
  options.tls.clientKey = textFrom(given.client_key);
  options.tls.clientKeyPassword = textFrom(given.client_key_password);
  options.tls.pinnedKeys = *std::move(pins);
  if (given.minimum_tls < VARO_TLS_DEFAULT || given.minimum_tls > VARO_TLS_1_3) {
    return invalid("varo_options::minimum_tls is none of varo_tls_version");
  }
  if (given.minimum_tls == VARO_TLS_1_3) options.tls.minimumVersion = TlsVersion::k13;
  if (given.bytes_per_second != 0) options.perSecond = Bytes(given.bytes_per_second);
  options.userAgent = textFrom(given.user_agent);
  return std::nullopt;
}

void setRetry(const varo_options& given, Retry& retry) {
  const auto set = [](std::int64_t milliseconds, std::chrono::milliseconds& wait) {
    if (milliseconds != 0) wait = std::chrono::milliseconds(milliseconds);
  };
  if (given.retry_attempts != 0) {
    using Limits = std::numeric_limits<int>;
    retry.attempts = static_cast<int>(
        std::clamp<std::int64_t>(given.retry_attempts, Limits::min(), Limits::max()));
  }
  set(given.retry_first_wait_ms, retry.firstWait);
  set(given.retry_longest_wait_ms, retry.longestWait);
  set(given.retry_longest_retry_after_ms, retry.longestRetryAfter);
  set(given.retry_budget_ms, retry.budget);
}

// Where the first version of the structure ended: a smaller member would lie in its padding, of
// which nobody knows what it holds.
static_assert(offsetof(varo_options, retry_attempts) % alignof(varo_options) == 0);

static_assert(static_cast<int>(LogLevel::kTrace) + 1 == VARO_LOG_TRACE);
static_assert(static_cast<int>(LogLevel::kFatal) + 1 == VARO_LOG_FATAL);

}  // namespace

Outcome<GivenOptions> optionsFrom(const varo_options* from) {
  if (from == nullptr) return missing("options");
  const auto copied = givenStruct(from, "varo_options");
  if (!copied) return copied.error();
  const varo_options& given = *copied;
  auto headers = pairsFrom(given.headers, given.header_count, "varo_options::headers");
  if (!headers) return std::move(headers).error();

  GivenOptions made;
  made.user = std::make_shared<UserData>(given.user, given.free_user);
  Options& options = made.options;
  options.url = textFrom(given.url);
  options.headers = *std::move(headers);
  options.tls.caFile = textFrom(given.ca_file);
  if (given.chunk_size != 0) options.chunkSize = Bytes(given.chunk_size);
  if (given.parallel != 0) options.parallel = given.parallel;
  if (given.connect_timeout_ms != 0) {
    options.connectTimeout = std::chrono::milliseconds(given.connect_timeout_ms);
  }
  if (given.stall_timeout_ms != 0) {
    options.stallTimeout = std::chrono::milliseconds(given.stall_timeout_ms);
  }
  setRetry(given, options.retry);
  options.credentials = providerOf(given.credentials, made.user);
  options.log = logOf(given.log, made.user);
  if (given.log_level < VARO_LOG_DEFAULT || given.log_level > VARO_LOG_FATAL) {
    return invalid("varo_options::log_level is none of varo_log_level");
  }
  if (given.log_level != VARO_LOG_DEFAULT) {
    options.logLevel = static_cast<LogLevel>(given.log_level - 1);
  }
  if (auto mistake = takeLine(given, options)) return *std::move(mistake);
  options.onRequest = observerOf(given.on_request, made.user, cEventOf);
  options.onOperation = observerOf(given.on_operation, made.user, cOperationOf);
  if (given.memory != 0) options.memory = Bytes(given.memory);
  return made;
}

}  // namespace varo::capi

varo_code varo_credentials_set_token(varo_credentials* credentials, const char* token) {
  if (credentials == nullptr || token == nullptr) return VARO_INVALID_ARGUMENT;
  return varo::capi::guarded([&] {
    credentials->credentials.token = token;
    return VARO_OK;
  });
}

varo_code varo_credentials_set_keys(varo_credentials* credentials, const char* access_key,
                                    const char* secret_key, const char* session_token) {
  if (credentials == nullptr || access_key == nullptr || secret_key == nullptr) {
    return VARO_INVALID_ARGUMENT;
  }
  return varo::capi::guarded([&] {
    credentials->credentials.accessKey = access_key;
    credentials->credentials.secretKey = secret_key;
    credentials->credentials.sessionToken = varo::capi::textFrom(session_token);
    return VARO_OK;
  });
}

varo_code varo_credentials_set_expires(varo_credentials* credentials, int64_t unix_ms) {
  using Time = std::chrono::system_clock::time_point;
  constexpr auto kMost =
      std::chrono::floor<std::chrono::milliseconds>(Time::max().time_since_epoch());
  if (credentials == nullptr || unix_ms < 0 || unix_ms > kMost.count())
    return VARO_INVALID_ARGUMENT;
  return varo::capi::guarded([&] {
    credentials->credentials.expires = Time(std::chrono::milliseconds(unix_ms));
    return VARO_OK;
  });
}

varo_code varo_credentials_refuse(varo_credentials* credentials, const char* why) {
  if (credentials == nullptr || why == nullptr) return VARO_INVALID_ARGUMENT;
  return varo::capi::guarded([&] {
    credentials->refusal = why;
    return VARO_OK;
  });
}

const char* varo_operation_kind_name(varo_operation_kind kind) {
  if (kind < VARO_FILE_LIST || kind > VARO_OBJECT_REMOVE) return "other";
  return varo::nameOf(static_cast<varo::OperationKind>(kind)).data();  // of a literal, so it ends
}
