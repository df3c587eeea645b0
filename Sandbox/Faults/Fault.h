#pragma once

#include <boost/json/fwd.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace varo::sandbox {

/// Which requests a fault concerns. Empty texts match everything.
struct FaultMatch {
  std::string method{};
  std::string path{};                    ///< A part of the path.
  std::string query{};                   ///< A part of the query, as it was sent.
  std::string listener{};                ///< "service" or "store".
  std::uint64_t skip = 0;                ///< So many matching requests pass first.
  std::optional<std::uint64_t> count{};  ///< So many are hit then; absent: all.
  bool ranged = false;                   ///< Only requests with a Range header.
  bool perTarget = false;  ///< `skip` and `count` hold for each path with query separately.
};

/// What happens to a request that is hit:
/// - `latency` comes first, `delay` when the service has done its work.
/// - A status, body, opstatus, invalid JSON or redirect replaces the service's response, which is
///   then never computed.
/// - The range faults make the service believe that other bytes were asked for.
/// - The others spoil the delivery of whatever the response is.
struct FaultAction {
  /// Negative: the request is held until the rules are removed or the server stops.
  std::chrono::milliseconds latency{0};
  std::chrono::milliseconds delay{0};  ///< Negative: as `latency`.
  /// What the token must be from this request on, of the store the session token: the one before
  /// has expired.
  std::optional<std::string> newToken{};
  /// Bytes of the request's body after which the connection is closed, without a response. The
  /// service sees a body that broke off.
  std::optional<std::uint64_t> cutRequestAfter{};

  std::optional<int> status{};  ///< Also the status of the other replacements; 200 to 999.
  std::optional<std::string> body{};
  std::string contentType = "text/plain";
  std::optional<std::int64_t> opstatus{};  ///< Body {"opstatus": n, "errmsg": ...}.
  std::string errmsg = "injected fault";
  bool invalidJson = false;
  std::string location{};  ///< A redirect to there, 302 unless `status` says otherwise.
  bool noBody = false;     ///< 204 unless `status` says otherwise, without any entity.

  std::int64_t shiftRange = 0;                  ///< The range begins and ends so many bytes later.
  std::optional<std::uint64_t> shortenRange{};  ///< It has so many bytes at most; from 1.
  bool ignoreRange = false;                     ///< There is none, so all bytes come, with 200.

  std::optional<std::string> total{};  ///< What "Content-Range" says behind the "/"; any text.
  /// Replace the response's own headers of the same names; without a value, these only go.
  std::vector<std::pair<std::string, std::optional<std::string>>> headers{};
  std::optional<std::uint64_t> cutAfter{};    ///< Body bytes sent before the connection is closed.
  std::optional<std::uint64_t> stallAfter{};  ///< Body bytes sent before nothing moves
  std::chrono::milliseconds stallFor{0};      ///< for so long; negative: until the server stops.
  bool drop = false;                          ///< The connection is closed without a response.
  bool endlessHeaders = false;
};

struct FaultRule {
  FaultMatch match{};
  FaultAction action{};
};

/// Reads one rule, `{"match": {...}, "action": {...}}` with the keys of docs/sandbox.md, or says
/// which entry is wrong. Unknown keys are refused, so that a misspelt fault is noticed.
[[nodiscard]] std::variant<FaultRule, std::string> faultRuleFrom(const boost::json::object& object);

}  // namespace varo::sandbox
