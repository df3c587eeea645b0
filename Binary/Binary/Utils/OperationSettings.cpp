#include "Binary/Binary/Utils/OperationSettings.h"

#include "Binary/Binary/SourceNames.h"
#include "Platform/Foundation/Cancellation.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/NeverDestroyed.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <utility>

namespace varo::binary {

using platform::ResponseLimits;

namespace {

std::shared_ptr<OperationSettings> given(const Dictionary& context) {
  return context[kOperationSettings].objectAs<OperationSettings>();
}

/// The process's defaults, shared by the operations that start while they stay the same: thousands
/// may wait for their turn.
class Defaults {
 public:
  OperationSettings::Ptr now() {
    const TransferPolicy policy = transferPolicy();
    const auto transport = platform::VRONetworkUtility::transport();
    const auto observer = platform::VRONetworkUtility::observer();
    OperationSettings::Ptr settings = last();
    if (settings == nullptr || settings->policy != policy || settings->transport != transport ||
        settings->observer != observer) {
      settings = std::make_shared<OperationSettings>();
      const platform::MutexLock lock(mutex_);
      last_ = settings;
    }
    return settings;
  }

 private:
  OperationSettings::Ptr last() {
    const platform::MutexLock lock(mutex_);
    return last_.lock();
  }

  platform::Mutex mutex_;
  /// Weak: a transport that has been replaced lives no longer than the operations that use it.
  std::weak_ptr<const OperationSettings> last_ VARO_GUARDED_BY(mutex_);
};

}  // namespace

OperationSettings::OperationSettings() : policy(transferPolicy()) {
  transport = platform::VRONetworkUtility::transport();
  observer = platform::VRONetworkUtility::observer();
}

OperationSettings::Ptr OperationSettings::take(const Dictionary& options) {
  OperationSettings::Ptr settings = of(options);
  const auto cancellation = options[kCancellation].objectAs<platform::Cancellation>();
  if (cancellation == nullptr) return settings;
  // A copy: other operations may share the settings, while the cancellation is of this one alone.
  auto cancellable = std::make_shared<OperationSettings>(*settings);
  cancellable->cancellation = cancellation->token();
  return cancellable;
}

OperationSettings::Ptr OperationSettings::of(const Dictionary& inputContext) {
  if (auto settings = given(inputContext)) return settings;
  static platform::NeverDestroyed<Defaults> defaults;
  return defaults.get().now();
}

platform::Value OperationSettings::value(const Ptr& settings) {
  // A value holds objects that may change; nobody changes this one.
  return std::const_pointer_cast<OperationSettings>(settings);
}

Dictionary OperationSettings::forRequest(const Ptr& settings, Dictionary options,
                                         const ResponseLimits& limits) {
  options.set(kOperationSettings, value(settings));
  options.set(platform::kResponseLimits, std::make_shared<platform::ResponseLimitsValue>(limits));
  return options;
}

ResponseLimits OperationSettings::limitsOf(std::uint64_t success) const noexcept {
  return {.success = success, .partial = success, .error = limits.errorPage};
}

}  // namespace varo::binary
