#pragma once

#include "Client/BlobStoreCore.h"
#include "Client/Operation.h"
#include "Client/Running.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"
#include "varo/blobs.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

namespace varo::binary {
class BlobDownload;
}  // namespace varo::binary

namespace varo::detail {

/// One fetch of a blob. Each run is a `BlobDownload` of its own, with new credentials, which goes
/// on with what the file has; a pause or cancel halts it.
class BlobFetch final : public Operation {
 public:
  using Fetching = Running<std::filesystem::path>;

  /// `rested`, which may be empty, is called after each run that was stopped, with no lock held.
  BlobFetch(std::shared_ptr<BlobStoreCore> core, BlobRef blob, std::shared_ptr<Fetching> running,
            std::function<void()> rested = {});

  /// For messages: 'fetch of the blob ...'.
  [[nodiscard]] const std::string& about() const noexcept { return about_; }

 private:
  using Stop = std::stop_callback<std::function<void()>>;

  void launch(std::uint64_t run,
              const std::shared_ptr<platform::Cancellation>& cancellation) override;
  [[nodiscard]] std::shared_ptr<binary::BlobDownload> makeDownload(
      const std::string& id, const platform::Dictionary& headers,
      const std::shared_ptr<binary::OperationSettings>& settings);
  void told(std::uint64_t run, const std::stop_token& stop, const platform::ErrorPtr& error,
            const std::optional<platform::Dictionary>& result);
  [[nodiscard]] Failure failureIn(const platform::ErrorPtr& error) const;
  void haltOn(std::uint64_t run, const std::stop_token& stop,
              const std::shared_ptr<binary::BlobDownload>& download);

  [[nodiscard]] bool canPause() const override { return true; }
  void finish(const platform::Value& result) override;
  void finish(Failure failure) override;
  [[nodiscard]] RunningBase& running() override { return *running_; }

  const std::shared_ptr<BlobStoreCore> core_;
  const BlobRef blob_;
  const std::string about_;
  const std::shared_ptr<Fetching> running_;
  const std::function<void()> rested_;

  platform::Mutex stopMutex_;
  /// Halts the download of this run.
  std::unique_ptr<Stop> stop_ VARO_GUARDED_BY(stopMutex_);
  std::uint64_t stopRun_ VARO_GUARDED_BY(stopMutex_) = 0;
};

}  // namespace varo::detail
