#include "Platform/Network/CurlEngine.h"

#include "Platform/Crypto/OpenSslLibrary.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Network/ConfigurationRules.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/NetworkTuning.h"
#include "Platform/System/OpenFileLimit.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <pthread.h>
#include <system_error>
#include <utility>
#include <variant>

namespace varo::platform {
namespace {

bool initialiseCurl() {
  static const bool done = [] {
    initializeOpenSsl();
    return curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK;
  }();
  return done;
}

CurlMulti makeMulti() {
  if (!initialiseCurl()) return nullptr;
  CurlMulti multi(curl_multi_init());
  if (multi == nullptr) return nullptr;
  // Every connection of the active transfers may be kept.
  const auto most = static_cast<long>(system::shareOfOpenFiles(tuning::kMaxActiveTransfers));
  if (curl_multi_setopt(multi.get(), CURLMOPT_MAXCONNECTS, most) != CURLM_OK) return nullptr;
  // An HTTP/2 connection takes as many streams as its server allows.
  if (curl_multi_setopt(multi.get(), CURLMOPT_MAX_CONCURRENT_STREAMS, most) != CURLM_OK) {
    return nullptr;
  }
  return multi;
}

NetworkConfiguration withDefaults(NetworkConfiguration configuration) {
  configuration.connectTimeout =
      boundedTimeout(configuration.connectTimeout, tuning::kConnectTimeout);
  configuration.stallTimeout = boundedTimeout(configuration.stallTimeout, tuning::kStallTimeout);
  configuration.maxActiveTransfers = std::clamp<std::size_t>(
      configuration.maxActiveTransfers, 1, system::shareOfOpenFiles(tuning::kMaxActiveTransfers));
  return configuration;
}

/// What each buffer of one more transfer may take while `active` run.
std::size_t bufferSizeFor(std::size_t active) {
  constexpr std::size_t kLargest =
      std::max({tuning::kReceiveBuffer, tuning::kUploadBuffer, tuning::kWriteSize});
  return std::clamp(tuning::kBufferBudget / (active + 1), tuning::kSmallestBuffer, kLargest);
}

/// A used handle made like new, so that nothing of one exchange reaches the next. Null where
/// libcurl has kept its receive buffer (after a stream of an HTTP/2 connection that others still
/// used): such a handle would refuse another size.
CurlEasy renew(CurlEasy easy) {
  // libcurl 7.88 loses the list of cookie files at a reset. Clearing it cannot fail.
  static_cast<void>((curl_easy_setopt)(easy.get(), CURLOPT_COOKIEFILE, nullptr));
  curl_easy_reset(easy.get());
  const auto size = static_cast<long>(tuning::kReceiveBuffer);
  if ((curl_easy_setopt)(easy.get(), CURLOPT_BUFFERSIZE, size) != CURLE_OK) return nullptr;
  return easy;
}

CurlProxies proxiesOf(const NetworkConfiguration& configuration) {
  auto read = CurlProxies::of(configuration.proxy);
  auto* const proxies = std::get_if<CurlProxies>(&read);
  return proxies != nullptr ? std::move(*proxies) : CurlProxies();
}

ErrorPtr mistakeErrorOf(const NetworkConfiguration& configuration) {
  const auto mistake = mistakeIn(configuration);
  if (!mistake) return nullptr;
  return makeTransportError(
      HttpTransportError::kInvalidConfiguration,
      fmt::format("NetworkConfiguration::{} {}.", mistake->field, mistake->what));
}

ErrorPtr resourceError(const char* text) {
  return makeTransportError(HttpTransportError::kNoResources, text);
}

ThreadPool::Job completionJob(HttpCompletion completion, CurlTransfer::End end) {
  return [completion = std::move(completion), end = std::move(end)]() mutable {
    completion(std::move(end.response), std::move(end.error));
  };
}

}  // namespace

CurlEngine::CurlEngine(const NetworkConfiguration& configuration, ThreadPool& pool,
                       HttpCookieStore& cookies)
    : pool_(pool),
      shutDown_(makeTransportError(HttpTransportError::kShutDown, "The network is shut down.")),
      outOfMemory_(resourceError("The network has run out of memory.")),
      multi_(makeMulti()),
      common_{.configuration = withDefaults(configuration),
              .proxies = proxiesOf(configuration),
              .cookies = &cookies,
              .shares = &shares_,
              .sockets = &sockets_,
              .pacer = &pacer_,
              .buffers = BufferPool::create(tuning::kSpoolThreshold, tuning::kMaxIdleBuffers)},
      mistake_(mistakeErrorOf(configuration)),
      pacer_(configuration.bytesPerSecond) {}

CurlEngine::~CurlEngine() { stop(); }

ErrorPtr CurlEngine::startLocked() {
  if (started_) return nullptr;
  if (multi_ == nullptr) return resourceError("libcurl could not be started.");
  // With the first request: a process that only makes a transport has no thread, and may fork.
  try {
    thread_ = std::thread([this] { run(); });
  } catch (const std::system_error& failure) {
    return resourceError(failure.what());
  }
  started_ = true;
  return nullptr;
}

void CurlEngine::submit(const TransferPtr& transfer) {
  ErrorPtr refusal = mistake_;
  if (refusal == nullptr) {
    const MutexLock lock(mutex_);
    refusal = requests_.stopping ? shutDown_ : startLocked();
    if (refusal == nullptr) requests_.incoming.push_back(transfer);
  }
  if (refusal == nullptr) {
    wake();  // after it was queued: a wake-up that comes before the wait is not lost
  } else {
    refuse(transfer->takeCompletion(), std::move(refusal));
  }
}

void CurlEngine::refuse(HttpCompletion completion, ErrorPtr error) {
  pool_.postOrRun(completionJob(std::move(completion), {std::nullopt, std::move(error)}));
}

void CurlEngine::cancel(const TransferPtr& transfer) {
  // First: what libcurl hands out right now is refused, before the thread comes to the request.
  transfer->markCancelled();
  {
    const MutexLock lock(mutex_);
    // One that is stopping ends all of them, and one that never started has none.
    if (!started_ || requests_.stopping) return;
    requests_.cancelled.push_back(transfer);
  }
  wake();
}

void CurlEngine::wake() {
  // Fails where the pipe is full, and then the thread wakes anyway.
  static_cast<void>(curl_multi_wakeup(multi_.get()));
}

void CurlEngine::stop() {
  std::vector<Job> undelivered;
  {
    // Held while the thread is waited for. Not `mutex_`, which it needs before it can end.
    const MutexLock stopLock(stopMutex_);
    bool started = false;
    {
      const MutexLock lock(mutex_);
      requests_.stopping = true;
      started = started_;
    }
    if (!started || !thread_.joinable()) return;
    wake();
    thread_.join();
    undelivered.swap(undelivered_);
  }
  // Without a lock: the pool is shut down, so these run here, and may call this again.
  for (Job& job : undelivered) pool_.postOrRun(std::move(job));
}

void CurlEngine::run() {
  // A TLS connection that the peer has closed raises it; libcurl is told to leave signals alone.
  sigset_t brokenPipe;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);

  bool goesOn = true;
  while (goesOn) {
    try {
      goesOn = step();
    } catch (const std::exception&) {
      endAllWithLittleMemory(outOfMemory_);
    }
  }
  endAllWithLittleMemory(shutDown_);
  idle_.clear();
}

bool CurlEngine::step() {
  if (takeRequests()) return false;
  admit();
  resumePaused();
  // What is admitted now starts in this round; what ends in it makes room for the next.
  int running = 0;
  CURLMcode code = curl_multi_perform(multi_.get(), &running);
  collectEnded();
  endStalled();
  // Then there is work already: waiting would leave it until a socket moves.
  const bool canAdmit =
      !waiting_.empty() && active_.size() < common_.configuration.maxActiveTransfers;
  if (code == CURLM_OK && !canAdmit) {
    const auto wait = static_cast<int>(longestWait().count());
    code = curl_multi_poll(multi_.get(), nullptr, 0, wait, nullptr);
  }
  if (code != CURLM_OK) {
    endAll(resourceError(curl_multi_strerror(code)));
    std::this_thread::sleep_for(tuning::kFailureBackoff);
  }
  return true;
}

/// Whether the engine is to stop. What was taken is gone on return: while the thread waits for the
/// next request, nobody but the caller may hold the body of one that was cancelled.
bool CurlEngine::takeRequests() {
  Requests requests;
  {
    // Only swapped under the lock: whoever sends waits for nothing that happens below.
    const MutexLock lock(mutex_);
    std::swap(requests, requests_);
    requests_.stopping = requests.stopping;
  }
  for (TransferPtr& transfer : requests.incoming) waiting_.push_back(std::move(transfer));
  for (const TransferPtr& transfer : requests.cancelled) {
    // One that has completed is no longer among the active ones; one that waits is skipped when its
    // turn comes.
    if (transfer->handle() != nullptr) {
      transfer->giveUpConnection();  // while it has its handle
      endActive(transfer->handle(), transfer->cancelledError());
    } else if (!transfer->isCompleted()) {
      complete(*transfer, {std::nullopt, transfer->cancelledError()});
    }
  }
  return requests.stopping;
}

void CurlEngine::admit() {
  while (!waiting_.empty() && active_.size() < common_.configuration.maxActiveTransfers) {
    TransferPtr transfer = std::move(waiting_.front());
    waiting_.pop_front();
    if (!transfer->isCompleted()) begin(std::move(transfer), takeHandle());
  }
}

void CurlEngine::begin(TransferPtr transfer, CurlEasy easy) {
  CURL* const handle = easy.get();
  if (handle == nullptr) {
    complete(*transfer, {std::nullopt, resourceError("libcurl has no more handles.")});
    return;
  }
  ErrorPtr error = transfer->prepare(handle, common_, bufferSizeFor(active_.size()));
  if (error == nullptr) {
    const CURLMcode code = curl_multi_add_handle(multi_.get(), handle);
    if (code != CURLM_OK) error = resourceError(curl_multi_strerror(code));
  }
  if (error == nullptr) {
    shortestStall_ = std::min(shortestStall_, transfer->stallTimeout());
    nextStallCheck_ = std::min(nextStallCheck_, Clock::now() + stallCheckInterval());
    active_.emplace(handle, Active{std::move(transfer), std::move(easy)});
  } else {
    transfer->release();
    keepHandle(std::move(easy));
    complete(*transfer, {std::nullopt, std::move(error)});
  }
}

void CurlEngine::collectEnded() {
  int remaining = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &remaining)) {
    if (message->msg != CURLMSG_DONE) continue;
    // Copied: libcurl frees the message with the handle's removal.
    const CURLcode code = message->data.result;
    endExchange(message->easy_handle, code);
  }
}

void CurlEngine::endExchange(CURL* easy, CURLcode code) {
  const auto found = active_.find(easy);
  if (found == active_.end()) return;
  Active ended = std::move(found->second);
  active_.erase(found);
  pacer_.forget(easy);
  // Fails only for handles that are not attached; this one is.
  static_cast<void>(curl_multi_remove_handle(multi_.get(), easy));
  const bool goesOn = ended.transfer->goesOnAfter(code);
  ended.transfer->release();
  keepHandle(std::move(ended.easy));
  // A redirect goes on with a handle that is like new, so that it takes nothing of the exchange
  // before with it, credentials above all. It keeps its place among the active ones.
  if (goesOn) {
    begin(std::move(ended.transfer), takeHandle());
  } else {
    complete(*ended.transfer, ended.transfer->takeEnd());
  }
}

void CurlEngine::resumePaused() {
  for (const auto& [easy, code] : pacer_.resume()) endExchange(easy, code);
}

void CurlEngine::endStalled() {
  const auto now = Clock::now();
  if (now < nextStallCheck_) return;
  shortestStall_ = tuning::kStallTimeout;
  // Collected first: ending one changes the map that is walked through.
  std::vector<std::pair<CURL*, ErrorPtr>> stalled;
  for (const auto& [easy, active] : active_) {
    shortestStall_ = std::min(shortestStall_, active.transfer->stallTimeout());
    if (auto error = active.transfer->checkStall(now)) stalled.emplace_back(easy, std::move(error));
  }
  nextStallCheck_ = now + stallCheckInterval();
  for (const auto& [easy, error] : stalled) endActive(easy, error);
}

void CurlEngine::endAll(const ErrorPtr& error) {
  (void)takeRequests();
  while (!active_.empty()) endActive(active_.begin()->first, error);
  for (const TransferPtr& transfer : std::exchange(waiting_, {})) {
    complete(*transfer, {std::nullopt, error});
  }
}

void CurlEngine::endAllWithLittleMemory(const ErrorPtr& error) noexcept {
  while (true) {
    try {
      return endAll(error);
    } catch (const std::exception&) {
      std::this_thread::sleep_for(tuning::kFailureBackoff);  // each attempt ends some of them
    }
  }
}

void CurlEngine::endActive(CURL* easy, const ErrorPtr& error) {
  const auto found = active_.find(easy);
  Active ended = std::move(found->second);
  active_.erase(found);
  pacer_.forget(easy);
  // It is attached, so this cannot fail. In the middle of an exchange libcurl closes the connection
  // with it (over HTTP/2, the stream).
  static_cast<void>(curl_multi_remove_handle(multi_.get(), easy));
  ended.transfer->release();
  keepHandle(std::move(ended.easy));
  complete(*ended.transfer, {std::nullopt, error});
}

void CurlEngine::complete(CurlTransfer& transfer, CurlTransfer::End end) {
  lastEnd_ = Clock::now();
  HttpCompletion completion = transfer.takeCompletion();
  if (completion == nullptr) return;
  Job job = completionJob(std::move(completion), std::move(end));
  if (pool_.post(std::move(job))) return;
  // It must not run on this thread.
  undelivered_.push_back(std::move(job));  // NOLINT(bugprone-use-after-move): refused, as it was
}

std::chrono::milliseconds CurlEngine::stallCheckInterval() const {
  return std::clamp(shortestStall_ / 4, std::chrono::milliseconds(1), tuning::kLongestPoll);
}

/// Until something has to be done without a socket that moves.
std::chrono::milliseconds CurlEngine::longestWait() {
  if (active_.empty()) return longestIdleWait();
  const auto turn = pacer_.untilNext();
  if (!turn) return stallCheckInterval();
  return std::min(stallCheckInterval(), std::chrono::ceil<std::chrono::milliseconds>(*turn));
}

std::chrono::milliseconds CurlEngine::longestIdleWait() {
  const auto idle = Clock::now() - lastEnd_;
  if (idle < tuning::kIdleBufferTime) {
    return std::chrono::ceil<std::chrono::milliseconds>(tuning::kIdleBufferTime - idle);
  }
  common_.buffers->dropIdle();
  return tuning::kIdlePoll;
}

CurlEasy CurlEngine::takeHandle() {
  if (idle_.empty()) return CurlEasy(curl_easy_init());
  CurlEasy easy = std::move(idle_.back());
  idle_.pop_back();
  return easy;
}

void CurlEngine::keepHandle(CurlEasy easy) {
  if (idle_.size() >= tuning::kMaxIdleHandles) return;
  if (CurlEasy renewed = renew(std::move(easy))) idle_.push_back(std::move(renewed));
}

}  // namespace varo::platform
