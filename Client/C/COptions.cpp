#include "Client/C/COptions.h"

#include "Client/C/CValues.h"
#include "Client/C/GivenStruct.h"
#include "Client/C/Guarded.h"
#include "Client/Failures.h"

#include <chrono>
#include <string>
#include <utility>

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
  options.credentials = providerOf(given.credentials, made.user);
  options.log = logOf(given.log, made.user);
  if (given.log_level < VARO_LOG_DEFAULT || given.log_level > VARO_LOG_FATAL) {
    return invalid("varo_options::log_level is none of varo_log_level");
  }
  if (given.log_level != VARO_LOG_DEFAULT) {
    options.logLevel = static_cast<LogLevel>(given.log_level - 1);
  }
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
