#include "Platform/TaskEngine/DeliveryHold.h"

#include "Platform/Foundation/LinkedQueue.h"
#include "Platform/Foundation/Runtime.h"

#include <cstddef>
#include <utility>

namespace varo::platform {
namespace {

// Of the thread: others go on delivering what they cause.
thread_local std::size_t holds = 0;

LinkedQueue<ThreadPool::Work>& heldBack() noexcept {
  static thread_local LinkedQueue<ThreadPool::Work> queue;
  return queue;
}

}  // namespace

DeliveryHold::DeliveryHold(Then then) noexcept : then_(then) { ++holds; }

DeliveryHold::~DeliveryHold() {
  // Holds may stand within each other; the outermost one delivers.
  if (--holds != 0) return;
  // What a listener causes here is no longer held back, so this comes to an end.
  while (auto delivery = heldBack().pop()) {
    if (then_ == Then::kHere) {
      delivery->run();  // throws nothing: a task's listeners are guarded
    } else {
      Runtime::shared().pool().postOrRun(std::move(delivery));
    }
  }
}

void DeliveryHold::deliver(std::shared_ptr<ThreadPool::Work> delivery) noexcept {
  if (holds != 0) return heldBack().push(std::move(delivery));
  Runtime::shared().pool().postOrRun(std::move(delivery));
}

}  // namespace varo::platform
