#include "Sandbox/Faults/FaultInjector.h"

#include "Platform/Foundation/Text.h"
#include "Sandbox/Faults/RangeFault.h"

#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>

#include <functional>
#include <string>
#include <utility>

namespace varo::sandbox {
namespace {

// Targets that a rule counts apart; further ones share a count.
constexpr std::size_t kMostTargets = 65'536;

bool matches(const FaultMatch& match, std::string_view listener, const HttpRequest& request) {
  return (match.method.empty() || match.method == request.method) &&
         (match.listener.empty() || match.listener == listener) &&
         (!match.ranged || request.header("Range") != nullptr) &&
         request.path.find(match.path) != std::string::npos &&
         request.query.find(match.query) != std::string::npos;
}

std::size_t targetOf(const FaultMatch& match, const HttpRequest& request) {
  return match.perTarget ? std::hash<std::string>()(request.path + "?" + request.query) : 0;
}

}  // namespace

void FaultInjector::add(FaultRule rule) {
  const platform::MutexLock lock(mutex_);
  entries_.push_back({std::move(rule), {}});
}

void FaultInjector::clear() {
  {
    const platform::MutexLock lock(mutex_);
    entries_.clear();
  }
  release();
}

void FaultInjector::release() {
  auto removed = std::make_shared<StopSignal>();
  {
    const platform::MutexLock lock(mutex_);
    removed.swap(removed_);
  }
  removed->raise();
}

void FaultInjector::wait(const FaultHit& hit, std::chrono::milliseconds duration,
                         StopSignal& stopSignal) {
  if (duration >= std::chrono::milliseconds::zero()) return stopSignal.waitFor(duration);
  // Hit after the server that stops has released all others: then it was raised before.
  if (stopSignal.raised()) return;
  ++held_;
  hit.removed->waitFor(duration);
  --held_;
}

std::size_t FaultInjector::size() const {
  const platform::MutexLock lock(mutex_);
  return entries_.size();
}

std::optional<FaultHit> FaultInjector::hit(std::string_view listener, const HttpRequest& request) {
  // Looking and counting are one step, so that of many requests at once exactly `count` are hit.
  const platform::MutexLock lock(mutex_);
  std::optional<FaultHit> found;
  for (Entry& entry : entries_) {
    const FaultMatch& match = entry.rule.match;
    if (!matches(match, listener, request)) continue;
    // A hash and not the text: it bounds the memory, and two targets
    // that share one only share a count.
    std::size_t target = targetOf(match, request);
    if (entry.seen.size() >= kMostTargets && !entry.seen.contains(target)) target = 0;
    const std::uint64_t index = entry.seen[target]++;
    // The rules behind the one that hits count the request all the same: `skip` means requests that
    // came, not requests that other rules left over.
    if (found || index < match.skip) continue;
    if (match.count && index - match.skip >= *match.count) continue;
    found = FaultHit{entry.rule.action, removed_};
  }
  return found;
}

std::optional<HttpResponse> replacementFor(const FaultAction& action) {
  HttpResponse response;
  response.status = action.status.value_or(200);
  if (!action.location.empty()) {
    response.status = action.status.value_or(302);
    response.headers.emplace_back("Location", action.location);
    response.text = action.body.value_or("");
    return response;
  }
  if (action.noBody) {
    response.status = action.status.value_or(204);
    return response;
  }
  if (action.opstatus) {
    response.text = boost::json::serialize(
        boost::json::value{{"opstatus", *action.opstatus}, {"errmsg", action.errmsg}});
    return response;
  }
  if (action.invalidJson) {
    response.text = R"({"opstatus":0,"records":[{"file_id":)";
    return response;
  }
  if (!action.status && !action.body) return std::nullopt;
  response.contentType = action.contentType;
  response.text = action.body.value_or("");
  return response;
}

void spoil(HttpResponse& response, const FaultAction& action) {
  bendTotal(response, action);
  // All old ones go before the first new one comes. In one pass, a second value for a name would
  // take away the first.
  for (const auto& [name, value] : action.headers) {
    std::erase_if(response.headers, [&name = name](const auto& field) {
      return platform::equalIgnoringCase(field.first, name);
    });
  }
  for (const auto& [name, value] : action.headers) {
    if (value) response.headers.emplace_back(name, *value);
  }
  response.delivery = {action.cutAfter, action.stallAfter, action.stallFor, action.endlessHeaders,
                       action.drop || action.cutRequestAfter};
}

}  // namespace varo::sandbox
