#include "Platform/Network/CurlHttpTransport.h"

#include "Platform/Network/CurlEngine.h"
#include "Platform/Network/HeaderRules.h"

#include <utility>

namespace varo::platform {
namespace {

class CurlHandle final : public HttpTransfer {
 public:
  CurlHandle(std::weak_ptr<CurlEngine> engine, std::weak_ptr<CurlTransfer> transfer)
      : engine_(std::move(engine)), transfer_(std::move(transfer)) {}

  void cancel() override {
    const auto engine = engine_.lock();
    const auto transfer = transfer_.lock();
    if (engine != nullptr && transfer != nullptr) engine->cancel(transfer);
  }

 private:
  // Weak: a caller that keeps the handle keeps no body and no connection.
  const std::weak_ptr<CurlEngine> engine_;
  const std::weak_ptr<CurlTransfer> transfer_;
};

}  // namespace

CurlHttpTransport::CurlHttpTransport(const NetworkConfiguration& configuration, ThreadPool& pool,
                                     HttpCookieStore& cookies)
    : engine_(std::make_shared<CurlEngine>(configuration, pool, cookies)) {}

CurlHttpTransport::~CurlHttpTransport() { engine_->stop(); }

std::shared_ptr<HttpTransfer> CurlHttpTransport::send(HttpRequest request,
                                                      HttpCompletion completion) {
  auto url = CurlUrl::parse(request.url);
  ErrorPtr refusal = url ? checkHeaders(request.headers).error() : url.error();
  if (refusal != nullptr) {
    // Told like every other end, so that a caller has one place for failures.
    engine_->refuse(std::move(completion), std::move(refusal));
    return std::make_shared<CurlHandle>(std::weak_ptr<CurlEngine>(), std::weak_ptr<CurlTransfer>());
  }
  const auto transfer = std::make_shared<CurlTransfer>(std::move(request), std::move(url).value(),
                                                       std::move(completion));
  auto handle = std::make_shared<CurlHandle>(engine_, transfer);
  engine_->submit(transfer);
  return handle;
}

void CurlHttpTransport::shutdown() { engine_->stop(); }

}  // namespace varo::platform
