#include "Binary/BinaryFileAdapterWithMetadata/Manager/UploadAdmission.h"

#include "Platform/Foundation/Runtime.h"

#include <memory>
#include <utility>

namespace varo::binary {

using platform::JobContext;
using platform::MutexLock;
using platform::Runtime;

/// One upload, and its place once it has one.
class UploadAdmission::Upload : public platform::ThreadPool::Work,
                                public std::enable_shared_from_this<Upload> {
 public:
  Upload(UploadAdmission& admission, Start start)
      : admission_(admission), start_(std::move(start)) {}
  Upload(const Upload&) = delete;
  Upload& operator=(const Upload&) = delete;
  ~Upload() override {
    if (hasPlace_) admission_.placeIsFree();
  }

  void givePlace() noexcept { hasPlace_ = true; }
  void leavesWhen(const std::stop_token& cancelled, std::uint64_t ticket) {
    if (!cancelled.stop_possible()) return;
    onCancel_ = std::make_unique<OnCancel>(cancelled, Leaving{admission_, ticket});
  }
  void run() override {
    const JobContext::Scope scope(context_);
    // A cancel that comes now finds it gone from those that wait; its task hears of it itself.
    onCancel_.reset();
    const Start start = std::exchange(start_, nullptr);
    start(shared_from_this());
  }

 private:
  struct Leaving {
    void operator()() const { admission.leave(ticket); }
    UploadAdmission& admission;
    std::uint64_t ticket;
  };
  using OnCancel = std::stop_callback<Leaving>;

  UploadAdmission& admission_;
  const JobContext::Ptr context_ = JobContext::current();
  Start start_;
  std::unique_ptr<OnCancel> onCancel_;  // apart, since most cannot be cancelled
  bool hasPlace_ = false;               // set before it runs
};

void UploadAdmission::enter(Start start, const std::stop_token& cancelled) {
  const auto upload = std::make_shared<Upload>(*this, std::move(start));
  std::uint64_t ticket = 0;
  {
    const MutexLock lock(mutex_);
    ticket = ++lastTicket_;
  }
  // Before others can see it: whoever starts it takes this back.
  upload->leavesWhen(cancelled, ticket);
  bool runsNow = true;
  {
    const MutexLock lock(mutex_);
    if (!isShutDown_) {
      waiting_.emplace(ticket, upload);
      // Where there is a place, nobody else waits.
      runsNow = takeNext() != nullptr;
    }
  }
  if (runsNow) return upload->run();
  // What was cancelled before it waited has been told in vain.
  if (cancelled.stop_requested()) leave(ticket);
}

UploadAdmission::UploadPtr UploadAdmission::takeNext() {
  if (free_ == 0 || waiting_.empty()) return nullptr;
  UploadPtr next = std::move(waiting_.begin()->second);
  waiting_.erase(waiting_.begin());
  --free_;
  next->givePlace();
  return next;
}

void UploadAdmission::leave(std::uint64_t ticket) {
  UploadPtr upload;
  {
    const MutexLock lock(mutex_);
    const auto found = waiting_.find(ticket);
    if (found == waiting_.end()) return;
    upload = std::move(found->second);
    waiting_.erase(found);
  }
  Runtime::shared().pool().postOrRun(std::move(upload));
}

void UploadAdmission::placeIsFree() noexcept {
  UploadPtr next;
  {
    const MutexLock lock(mutex_);
    ++free_;
    next = takeNext();
  }
  // Not here: whoever drops the last of an upload may be in the middle of anything.
  if (next != nullptr) Runtime::shared().pool().postOrRun(std::move(next));
}

void UploadAdmission::shutDown() {
  std::map<std::uint64_t, UploadPtr> waiting;
  {
    const MutexLock lock(mutex_);
    isShutDown_ = true;
    waiting.swap(waiting_);
  }
  for (auto& [ticket, upload] : waiting) Runtime::shared().pool().postOrRun(std::move(upload));
}

}  // namespace varo::binary
