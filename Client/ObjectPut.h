#pragma once

#include "Client/ObjectOperation.h"
#include "Client/ObjectSteps.h"
#include "Client/ObjectUpload.h"
#include "Client/PartPlan.h"
#include "Client/PartsProgress.h"
#include "Platform/Foundation/Data.h"
#include "varo/objects.h"
#include "varo/source.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace varo::detail {

/// Puts an object into a store: with one request where it is small, else in parts.
///
/// What a run has reached stays for the next one: the source is opened once, and the store keeps
/// the upload and its parts. Given up, it aborts the upload unless that is to be kept.
class ObjectPut final : public ObjectWork<ObjectInfo> {
 public:
  ObjectPut(std::shared_ptr<const ObjectPlace> place, ObjectKey key, Source source,
            PutOptions options);

  [[nodiscard]] std::string about() const override { return aboutObject("put of", key_); }
  [[nodiscard]] OperationKind kind() const override { return OperationKind::kObjectPut; }
  [[nodiscard]] std::uint64_t memory() const override;
  [[nodiscard]] std::optional<Bytes> perSecond() const override { return options_.perSecond; }
  void run(const ObjectRunPtr& run, End end) override;
  void giveUp(Failure failure, const std::function<void(Failure)>& done) override;

 private:
  /// Opens the source, at the first run.
  [[nodiscard]] Outcome<void> prepare(const ObjectRun& run);
  [[nodiscard]] bool isOneRequest() const;
  void sendWhole(const ObjectRunPtr& run, const End& end);
  void beginUpload(const ObjectRunPtr& run, const End& end);
  void findParts(const ObjectRunPtr& run, const End& end);
  /// Takes those of the parts that the store has which are of these bytes, for certain.
  [[nodiscard]] Outcome<void> takeParts(const ObjectRun& run,
                                        std::vector<upload::StoredPart> found);
  [[nodiscard]] Outcome<bool> isOfTheseBytes(const upload::StoredPart& part,
                                             const std::stop_token& stop) const;
  void sendParts(const ObjectRunPtr& run, const End& end);
  void sendPart(const ObjectRunPtr& run, const ObjectSteps::Step& step);
  void complete(const ObjectRunPtr& run, const End& end);
  /// Whether the store has parts other than those that were noted; true once.
  [[nodiscard]] bool asksAgainAfter(const Failure& failure);
  /// Notes how much of a part is on its way, and shows how far it is.
  void handedOver(RunningBase& running, std::size_t index, std::uint64_t bytes);
  /// Notes that the store has a part, and shows how far it is.
  void took(RunningBase& running, std::size_t index, std::string entityTag);
  [[nodiscard]] ObjectInfo whole(ObjectInfo info) const;
  [[nodiscard]] std::optional<UploadId> begun() const;

  const std::shared_ptr<const ObjectPlace> place_;
  const ObjectKey key_;
  const PutOptions options_;

  // Set by the first run before its first request, read by whatever follows from that.
  std::optional<Source> source_;
  std::optional<platform::Data> data_;
  PartPlan plan_;

  mutable platform::Mutex mutex_;
  /// Of the last run; before it, nobody was asked for them.
  std::shared_ptr<HeldCredentials> credentials_ VARO_GUARDED_BY(mutex_);
  /// Of the upload that the store has begun and not ended.
  std::optional<UploadId> upload_ VARO_GUARDED_BY(mutex_);
  /// Whether the parts of an upload that goes on are still to be asked for.
  bool asksForParts_ VARO_GUARDED_BY(mutex_) = false;
  bool hasAskedAgain_ VARO_GUARDED_BY(mutex_) = false;
  /// The tags before that; empty at other times.
  std::vector<std::string> noted_ VARO_GUARDED_BY(mutex_);
  /// With their quotes; empty for parts that the store does not have.
  std::vector<std::string> entityTags_ VARO_GUARDED_BY(mutex_);

  PartsProgress progress_;
};

}  // namespace varo::detail
