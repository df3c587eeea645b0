#include "varo/transfer.h"

#include "Client/Running.h"
#include "varo/blobs.h"
#include "varo/files.h"
#include "varo/objects.h"

#include <filesystem>
#include <utility>
#include <vector>

namespace varo {

namespace {

Failure noOperation() {
  Failure failure;
  failure.kind = Kind::kInvalidArgument;
  failure.message = "The transfer was moved from or detached, so it has no outcome";
  return failure;
}

}  // namespace

template <typename T>
Transfer<T>::Transfer(std::shared_ptr<detail::Running<T>> running) noexcept
    : running_(std::move(running)) {}

template <typename T>
Transfer<T>::Transfer(Transfer&& other) noexcept = default;

template <typename T>
Transfer<T>& Transfer<T>::operator=(Transfer&& other) noexcept {
  // The one that goes closes with its destructor.
  Transfer former(std::exchange(running_, std::move(other.running_)));
  return *this;
}

template <typename T>
Transfer<T>::~Transfer() {
  if (running_ != nullptr) running_->close();
}

template <typename T>
Transfer<T>& Transfer<T>::onProgress(std::function<void(const Progress&)> callback) & {
  if (running_ != nullptr) running_->setOnProgress(std::move(callback));
  return *this;
}

template <typename T>
Transfer<T>& Transfer<T>::onDone(std::function<void(const Outcome<T>&)> callback) & {
  if (running_ != nullptr) running_->setOnDone(std::move(callback));
  return *this;
}

template <typename T>
Transfer<T>& Transfer<T>::cancelWith(std::stop_token token) & {
  if (running_ != nullptr) running_->cancelWith(token);
  return *this;
}

template <typename T>
void Transfer<T>::cancel() {
  if (running_ != nullptr) running_->cancel();
}

template <typename T>
void Transfer<T>::pause() {
  if (running_ != nullptr) running_->pause();
}

template <typename T>
void Transfer<T>::resume() {
  if (running_ != nullptr) running_->resume();
}

template <typename T>
State Transfer<T>::state() const {
  return running_ != nullptr ? running_->state() : State::kDone;
}

template <typename T>
Progress Transfer<T>::progress() const {
  return running_ != nullptr ? running_->progress() : Progress{};
}

template <typename T>
Outcome<T> Transfer<T>::get() const {
  if (running_ == nullptr) return noOperation();
  running_->wait();
  return running_->outcome();
}

template <typename T>
std::optional<Outcome<T>> Transfer<T>::waitFor(std::chrono::milliseconds most) const {
  if (running_ == nullptr) return noOperation();
  if (!running_->waitFor(most)) return std::nullopt;
  return running_->outcome();
}

template <typename T>
void Transfer<T>::detach() && {
  running_.reset();
}

template <typename T>
bool Transfer<T>::Awaiter::await_ready() const {
  return running == nullptr || running->state() == State::kDone;
}

template <typename T>
bool Transfer<T>::Awaiter::await_suspend(std::coroutine_handle<> waiting) const {
  return running->resumeAtEnd(waiting);
}

template <typename T>
Outcome<T> Transfer<T>::Awaiter::await_resume() const {
  if (running == nullptr) return noOperation();
  return running->outcome();
}

template class Transfer<FileRecord>;
template class Transfer<std::vector<FileRecord>>;
template class Transfer<std::filesystem::path>;
template class Transfer<std::uint64_t>;
template class Transfer<std::vector<BlobState>>;
template class Transfer<ObjectInfo>;
template class Transfer<std::vector<ObjectInfo>>;
template class Transfer<ObjectKey>;

}  // namespace varo
