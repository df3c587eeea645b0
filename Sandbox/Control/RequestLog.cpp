#include "Sandbox/Control/RequestLog.h"

#include "Sandbox/Http/HttpRequest.h"
#include "Sandbox/ServiceProtocol.h"

#include <utility>

namespace varo::sandbox {
namespace {

// Together they bound the memory: a client with huge headers must not fill it.
constexpr std::size_t kKeptRequests = 500;
constexpr std::size_t kKeptCharacters = 2048;

}  // namespace

const std::string* LoggedRequest::header(std::string_view name) const {
  return findField(headers, name);
}

void RequestLog::record(std::string_view listener, const HttpRequest& request,
                        std::uint64_t bodyBytes, int status) {
  LoggedRequest entry{std::string(listener),
                      request.method,
                      request.path,
                      request.query.substr(0, kKeptCharacters),
                      {},
                      bodyBytes,
                      status};
  entry.headers.reserve(request.headers.size());
  for (const auto& [name, value] : request.headers) {
    entry.headers.emplace_back(name, value.substr(0, kKeptCharacters));
  }
  const bool hasToken = request.header(kTokenHeader) != nullptr;

  // The copy is made before: all connections take turns at this lock.
  const platform::MutexLock lock(mutex_);
  ListenerStats& stats = stats_[entry.listener];
  ++stats.requests;
  stats.bodyBytes += bodyBytes;
  stats.tokenHeaders += hasToken ? 1 : 0;
  if (requests_.size() == kKeptRequests) requests_.pop_front();
  requests_.push_back(std::move(entry));
}

void RequestLog::clear() {
  const platform::MutexLock lock(mutex_);
  requests_.clear();
  stats_.clear();
}

std::vector<LoggedRequest> RequestLog::requests() const {
  const platform::MutexLock lock(mutex_);
  return {requests_.begin(), requests_.end()};
}

ListenerStats RequestLog::stats(std::string_view listener) const {
  const platform::MutexLock lock(mutex_);
  const auto found = stats_.find(listener);
  return found == stats_.end() ? ListenerStats{} : found->second;
}

}  // namespace varo::sandbox
