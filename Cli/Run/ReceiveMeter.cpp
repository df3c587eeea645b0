#include "Cli/Run/ReceiveMeter.h"

#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/NetworkTuning.h"
#include "Platform/Network/ResponseSink.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::cli {

using platform::HttpHeader;
using platform::Result;

namespace {

/// Stores a body as the transport would, and counts its bytes.
class CountedBody final : public platform::BodyReceiver {
 public:
  CountedBody(const std::string& spoolDirectory, std::shared_ptr<ByteCount> count)
      : sink_(spoolDirectory, platform::tuning::kWriteSize), count_(std::move(count)) {}

  Result<void> begin(int /*status*/, const std::vector<HttpHeader>& /*headers*/,
                     std::optional<std::uint64_t> expected) override {
    count_->done = 0;
    count_->total = expected.value_or(0);
    return expected ? sink_.expect(*expected) : Result<void>();
  }

  Result<void> write(std::string_view bytes) override {
    auto written = sink_.write(bytes);
    count_->done = sink_.size();
    return written;
  }

  /// The whole body, when the transport has called for the last time.
  Result<platform::Data> take() { return sink_.take(); }

 private:
  platform::ResponseSink sink_;
  const std::shared_ptr<ByteCount> count_;
};

}  // namespace

std::shared_ptr<platform::HttpTransfer> ReceiveMeter::send(platform::HttpRequest request,
                                                           platform::HttpCompletion completion) {
  if (request.receiver != nullptr || request.spoolDirectory.empty()) {
    return next_->send(std::move(request), std::move(completion));
  }
  const auto body = std::make_shared<CountedBody>(request.spoolDirectory, count_);
  request.receiver = body;
  return next_->send(std::move(request), [body, completion = std::move(completion)](
                                             std::optional<platform::HttpResponse> response,
                                             platform::ErrorPtr error) {
    if (response && response->bodyWasReceived) {
      auto bytes = body->take();
      if (!bytes) {
        return completion(std::nullopt, platform::makeTransportError(
                                            platform::HttpTransportError::kResponseBodyNotStored,
                                            bytes.error()->localizedDescription()));
      }
      response->body = std::move(bytes).value();
      response->bodyWasReceived = false;
    }
    completion(std::move(response), std::move(error));
  });
}

}  // namespace varo::cli
