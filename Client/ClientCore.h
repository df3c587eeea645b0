#pragma once

#include "Binary/Binary/Utils/OperationSettings.h"
#include "Client/CredentialsCache.h"
#include "Client/OperationWatch.h"
#include "Client/Places.h"
#include "Platform/Foundation/Cancellation.h"
#include "Platform/Foundation/Value.h"
#include "varo/options.h"
#include "varo/outcome.h"

#include <memory>
#include <stop_token>
#include <string>

namespace varo::detail {

/// What the copies of one client share, whatever it is a client of: its options, connections and
/// credentials and places. Immutable, but for the latter two; thread-safe.
class ClientCore {
 public:
  /// The first option that is wrong, by its name.
  [[nodiscard]] static Outcome<std::shared_ptr<ClientCore>> create(Options options);

  explicit ClientCore(Options options);

  [[nodiscard]] const std::string& url() const noexcept { return url_; }
  [[nodiscard]] const Options& options() const noexcept { return options_; }
  [[nodiscard]] const std::shared_ptr<Places>& places() const noexcept { return places_; }

  [[nodiscard]] const std::shared_ptr<CredentialsCache>& credentials() const noexcept {
    return credentials_;
  }

  /// Who is told of an operation of this kind that begins now; null where nobody wants to hear.
  [[nodiscard]] std::shared_ptr<OperationWatch> watch(OperationKind kind) const;
  /// The credentials of one operation; nobody is asked yet. Empty ones where there is nobody.
  /// `stop` ends the waits for them.
  [[nodiscard]] std::shared_ptr<HeldCredentials> holdCredentials(std::stop_token stop) const;
  /// The headers of the requests of one operation; asks for the credentials. `settings`, which are
  /// the operation's, renew them.
  [[nodiscard]] Outcome<platform::Dictionary> headers(
      platform::RequestSettings& settings, const std::shared_ptr<HeldCredentials>& held) const;
  /// A copy of the settings of every operation, to be completed.
  [[nodiscard]] std::shared_ptr<binary::OperationSettings> settings() const;

 private:
  const Options options_;
  /// Without a slash at its end.
  const std::string url_;
  const std::shared_ptr<CredentialsCache> credentials_;
  const std::shared_ptr<const Observers> observers_;  // null: nobody observes
  const std::shared_ptr<Places> places_;
  const std::shared_ptr<platform::HttpTransport> transport_;
};

/// `settings` as the options of an operation.
[[nodiscard]] platform::Dictionary optionsWith(
    const std::shared_ptr<binary::OperationSettings>& settings);

}  // namespace varo::detail
