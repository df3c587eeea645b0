#include "Sandbox/RequestPipeline.h"

#include "Sandbox/Control/ControlRoute.h"
#include "Sandbox/Faults/RangeFault.h"
#include "Sandbox/ServiceProtocol.h"

#include <exception>
#include <utility>

namespace varo::sandbox {
namespace {

/// Counts what is read of a body.
class CountingBody final : public RequestBody {
 public:
  explicit CountingBody(RequestBody& inner) : inner_(inner) {}

  End readInto(const Sink& sink) override {
    return inner_.readInto([this, &sink](std::string_view piece) {
      count_ += piece.size();
      return sink(piece);
    });
  }
  [[nodiscard]] std::uint64_t count() const { return count_; }

 private:
  RequestBody& inner_;
  std::uint64_t count_ = 0;
};

}  // namespace

RequestPipeline::RequestPipeline(std::string listener, Token token, Shared shared, Stamp stamp)
    : listener_(std::move(listener)), token_(token), shared_(shared), stamp_(std::move(stamp)) {}

HttpResponse RequestPipeline::handle(HttpRequest& request, RequestBody& body) const {
  // Before anything else: a rule that hits every request could not be removed again.
  if (request.path.starts_with(kControlPath)) return router_.route(request, body);

  // Before the token check, so that faults hit, and count, requests that the service would refuse.
  const auto hit = shared_.faults.hit(listener_, request);
  const FaultAction* fault = hit ? &hit->action : nullptr;
  // No wait holds up the end of a test: a stop ends them all.
  if (fault) shared_.faults.wait(*hit, fault->latency, shared_.stopSignal);
  if (fault && fault->newToken) token_.wanted.replace(*fault->newToken);
  if (fault && fault->cutRequestAfter) body.cutAfter(*fault->cutRequestAfter);
  CountingBody counted(body);
  auto replacement = fault ? replacementFor(*fault) : std::nullopt;
  HttpResponse response;
  try {
    // The service sees the bent request, as if the client had asked for other bytes.
    auto bent = fault ? bentRequest(request, *fault) : std::nullopt;
    response =
        replacement ? *std::move(replacement) : authorizedResponse(bent ? *bent : request, counted);
  } catch (const std::exception& exception) {
    // The database failed, say. The response is one like others: logged, and spoilt where a fault
    // asks for that.
    response = errorResponse(kInternal, exception.what(), 500);
  }
  if (fault) shared_.faults.wait(*hit, fault->delay, shared_.stopSignal);
  // Before the fault, which may take a header away.
  if (stamp_) stamp_(response);
  if (fault) spoil(response, *fault);
  // As it came, and not as a fault bent it: tests ask what the client sent.
  shared_.log.record(listener_, request, counted.count(), response.status);
  return response;
}

HttpResponse RequestPipeline::authorizedResponse(HttpRequest& request, RequestBody& body) const {
  if (token_.isCheckedHere) {
    const std::string* token = request.header(kTokenHeader);
    const auto verdict = token_.wanted.judge(token != nullptr ? *token : "");
    if (verdict == WantedToken::Verdict::kExpired) {
      return errorResponse(kUnauthorized, "the token has expired", 401);
    }
    if (verdict == WantedToken::Verdict::kWrong) {
      return errorResponse(kUnauthorized, "the token is missing or wrong", 401);
    }
  }
  return router_.route(request, body);
}

}  // namespace varo::sandbox
