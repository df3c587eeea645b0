#pragma once

#include "Binary/Binary/Utils/S3RequestSigner.h"
#include "Client/CredentialsCache.h"
#include "Client/ObjectPlace.h"
#include "Client/Running.h"
#include "Client/StoreAuthorizer.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Network/HttpTransport.h"
#include "varo/objects.h"
#include "varo/outcome.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace varo::detail {

/// One request to a store.
struct ObjectRequest {
  platform::HttpMethod method = platform::HttpMethod::kGet;
  /// None: the bucket.
  std::optional<ObjectKey> key = {};
  binary::S3Request::Query query = {};
  std::vector<platform::HttpHeader> headers = {};
  std::optional<platform::Data> body = {};
  platform::ResponseLimits limits = {};
  /// See `platform::HttpRequest`.
  std::string spoolDirectory = {};
  std::shared_ptr<platform::BodyReceiver> receiver = {};
  /// Status that is no success, but not a failure either; 0 for none.
  int alsoGood = 0;
  /// See `platform::HttpRequest`.
  std::function<void(std::uint64_t sent)> onSent = {};
  std::function<void(std::uint64_t received)> onReceived = {};
  std::function<void(int status, const std::vector<platform::HttpHeader>& headers)> onHead = {};
  /// Told each time that it has failed and will be sent again.
  std::function<void()> onRetry = {};
  /// What it is about, for messages.
  std::string about = {};
};

/// What can stop a run: a pause or a cancel, and the cancel alone.
struct ObjectStops {
  std::stop_token run;
  std::stop_token forGood;
};

/// One run of an operation on objects: sends its requests. Immutable, but for its credentials;
/// thread-safe.
class ObjectRun {
 public:
  using Answer = std::function<void(Outcome<platform::HttpResponse>)>;
  using Direct = std::function<void(platform::RequestSettings& settings)>;

  /// Asks for the first of the `credentials`, which are those of the whole run unless they expire.
  ///
  /// `running` is shown the progress. `fail` ends the run: it is called where what an answer was
  /// told to has thrown, so that there is an end. `direct` completes the settings of each request.
  [[nodiscard]] static Outcome<std::shared_ptr<const ObjectRun>> begin(
      std::shared_ptr<const ObjectPlace> place, std::shared_ptr<HeldCredentials> credentials,
      ObjectStops stops, std::shared_ptr<RunningBase> running, std::function<void(Failure)> fail,
      Direct direct);

  ObjectRun(std::shared_ptr<const ObjectPlace> place, std::shared_ptr<HeldCredentials> credentials,
            ObjectAccess access, ObjectStops stops, std::shared_ptr<RunningBase> running,
            std::function<void(Failure)> fail, Direct direct);

  /// Signs and sends a request, again where it fails for the moment and the run was not stopped;
  /// `cancellation` stops it in the middle, too. `answer` is called once, with a response of status
  /// 2xx or `alsoGood`, or with the failure: here, or on a thread of the pool. Reads the body once
  /// before, for its digest.
  void send(ObjectRequest request, const std::stop_token& cancellation, Answer answer) const;

  /// Those of a request of this run, which `cancellation` stops.
  [[nodiscard]] std::shared_ptr<binary::OperationSettings> settings(
      const std::stop_token& cancellation) const;
  [[nodiscard]] const std::stop_token& cancellation() const noexcept { return stops_.run; }
  /// Not stopped by a pause: for what cannot be begun anew, such as a reader.
  [[nodiscard]] const std::stop_token& givenUp() const noexcept { return stops_.forGood; }
  [[nodiscard]] const ObjectAccess& access() const noexcept { return access_; }
  [[nodiscard]] const std::shared_ptr<HeldCredentials>& credentials() const noexcept {
    return credentials_;
  }
  /// For requests to the service.
  [[nodiscard]] std::shared_ptr<platform::RequestAuthorizer> serviceAuthorizer() const;
  [[nodiscard]] RunningBase& running() const noexcept { return *running_; }

 private:
  struct Encoded {
    platform::HttpRequest request;
    /// Null for a request that is not signed.
    std::shared_ptr<StoreAuthorizer> signer;
  };

  [[nodiscard]] Outcome<Encoded> encoded(ObjectRequest request,
                                         const std::stop_token& cancellation) const;

  const std::shared_ptr<const ObjectPlace> place_;
  const std::shared_ptr<HeldCredentials> credentials_;
  /// Made of the first ones.
  const ObjectAccess access_;
  const ObjectStops stops_;
  const std::shared_ptr<RunningBase> running_;
  const std::function<void(Failure)> fail_;
  const Direct direct_;
};

using ObjectRunPtr = std::shared_ptr<const ObjectRun>;

/// The operation was cancelled before it had anything to cancel.
[[nodiscard]] Failure cancelledObject(std::string_view about);

}  // namespace varo::detail
