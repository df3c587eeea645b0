#pragma once

#include "Client/FileDestination.h"
#include "Client/ObjectOperation.h"
#include "Client/PartPlan.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/File.h"
#include "varo/objects.h"
#include "varo/source.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varo::detail {

/// Gets an object, part by part: the first tells its size and version, the others have to be of the
/// same version.
///
/// Parts for a file come side by side, into one nameless file that gets its name at the end. Parts
/// for a sink come one after another. What a run has got stays for the next one.
class ObjectGet final : public ObjectWork<ObjectInfo> {
 public:
  ObjectGet(ObjectKey key, Destination to, GetOptions options);

  [[nodiscard]] std::string about() const override { return aboutObject("get of", key_); }
  [[nodiscard]] OperationKind kind() const override { return OperationKind::kObjectGet; }
  [[nodiscard]] std::uint64_t memory() const override;
  void run(const ObjectRunPtr& run, End end) override;

 private:
  using Done = std::function<void(Outcome<void>)>;

  /// Looks at the arguments and at the destination, at the first run.
  [[nodiscard]] Outcome<void> prepare();
  void askFirst(const ObjectRunPtr& run, const End& end);
  void askWhole(const ObjectRunPtr& run, const End& end);
  void takeFirst(const ObjectRunPtr& run, const platform::HttpResponse& response, const End& end);
  /// What the first answer says: the size, the version, the parts.
  [[nodiscard]] Outcome<void> planFrom(const platform::HttpResponse& response);
  void askOthers(const ObjectRunPtr& run, const End& end);
  void askPart(const ObjectRunPtr& run, std::size_t index, const std::stop_token& stop, Done done);
  /// None, or why this is not the part.
  [[nodiscard]] Outcome<void> checkPart(const platform::HttpResponse& response,
                                        std::size_t index) const;
  /// Stores the part, or hands it to the sink.
  [[nodiscard]] Outcome<void> take(RunningBase& running, std::size_t index,
                                   const platform::Data& bytes);
  [[nodiscard]] Outcome<void> store(std::size_t index, const platform::Data& bytes);
  [[nodiscard]] Outcome<void> handOver(RunningBase& running, const platform::Data& bytes);
  /// Where bytes are received; empty: the directory for temporary files.
  [[nodiscard]] std::string directory() const { return prepared_ ? prepared_->directory : ""; }
  void finish(const ObjectRunPtr& run, const End& end);
  [[nodiscard]] ObjectRequest request(std::uint64_t first, std::uint64_t length) const;

  const ObjectKey key_;
  const GetOptions options_;

  // Set by the first run, before its first request.
  std::optional<Destination> to_;
  /// Either of them.
  Sink sink_;
  std::optional<PreparedFile> prepared_;

  // Set with the answer to the first request, before the second.
  std::optional<PartPlan> plan_;
  ObjectInfo info_;
  /// With its quotes; empty where the store names no version.
  std::string entityTag_;
  std::shared_ptr<platform::File> file_;
  /// Of an object of one part, which needs no copy.
  std::optional<platform::Data> onlyPart_;

  platform::Mutex mutex_;
  std::vector<bool> isThere_ VARO_GUARDED_BY(mutex_);
  std::uint64_t got_ VARO_GUARDED_BY(mutex_) = 0;  // bytes
};

}  // namespace varo::detail
