#pragma once

#include "Client/FileDestination.h"
#include "Client/FirstPart.h"
#include "Client/ObjectOperation.h"
#include "Client/ObjectSteps.h"
#include "Client/OrderedSink.h"
#include "Client/PartPlan.h"
#include "Client/PartReceiver.h"
#include "Client/PartsFile.h"
#include "Client/PartsProgress.h"
#include "Client/PartsRecord.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Network/ParallelismControl.h"
#include "varo/objects.h"
#include "varo/source.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varo::detail {

/// Gets an object, part by part: the first tells its size and version, the others have to be of the
/// same version, and come side by side as far as that pays. They begin when the first is there; or
/// where its head was long in coming, beside it.
///
/// Parts for a file go to their places in one file that gets its name at the end. Parts for a sink
/// wait for those before them. What a run has got stays for the next one; what a kept file has got,
/// for the next get.
class ObjectGet final : public ObjectWork<ObjectInfo> {
 public:
  ObjectGet(std::shared_ptr<const ObjectPlace> place, ObjectKey key, Destination to,
            GetOptions options);

  [[nodiscard]] std::string about() const override { return aboutObject("get of", key_); }
  [[nodiscard]] OperationKind kind() const override { return OperationKind::kObjectGet; }
  [[nodiscard]] std::uint64_t memory() const override;
  [[nodiscard]] std::optional<Bytes> perSecond() const override { return options_.perSecond; }
  void run(const ObjectRunPtr& run, End end) override;
  void giveUp(Failure failure, const std::function<void(Failure)>& done) override;

 private:
  using Control = platform::ParallelismControl;
  using FirstPartPtr = std::shared_ptr<FirstPart>;
  using HeadTaker = std::function<void(int, const std::vector<platform::HttpHeader>&)>;

  /// Looks at the arguments and at the destination, at the first run.
  [[nodiscard]] Outcome<void> prepare();
  [[nodiscard]] Outcome<void> prepareFile(std::filesystem::path path);
  /// What an earlier get has left, if it is of this one's bytes.
  [[nodiscard]] std::optional<PartsRecord> found() const;
  [[nodiscard]] std::shared_ptr<PartsFile> parts() const;
  /// What was there before. Whoever is told the end may get into the same file at once: at the end
  /// there is none.
  std::shared_ptr<PartsFile> setParts(std::shared_ptr<PartsFile> parts);
  /// Records what is there, for the next get.
  void keepParts() const;

  void askFirst(const ObjectRunPtr& run, const End& end);
  void askWhole(const ObjectRunPtr& run, const End& end);
  void takeFirst(const ObjectRunPtr& run, const platform::HttpResponse& response, Control control,
                 const End& end);
  /// Takes the head of the first part: where that is late, has `askBeside` called.
  [[nodiscard]] HeadTaker headTaker(const ObjectRunPtr& run, const FirstPartPtr& first,
                                    const ObjectSteps::Pace& pace, const End& end);
  /// The head of the first part has come: asks for the others beside it, if there are any.
  void askBeside(const ObjectRunPtr& run, const FirstPartPtr& first,
                 const platform::HttpResponse& head, const ObjectSteps::Pace& pace, const End& end);
  /// What the first answer says: the size, the version, the parts. `bytes` come with it.
  [[nodiscard]] Outcome<void> planFrom(const platform::HttpResponse& response, std::uint64_t bytes);
  /// Makes the file for parts, where one is needed, or empties that of an earlier get.
  [[nodiscard]] Outcome<void> beginFile();
  /// Takes the plan of an earlier get over; false where the answer to its first part that is
  /// missing is not of the same version.
  [[nodiscard]] bool goesOnWith(const PartsRecord& found, const platform::HttpResponse& response);
  /// `first`: null, or the part that is on its way.
  void askOthers(const ObjectRunPtr& run, ObjectSteps::Pace pace, const FirstPartPtr& first,
                 const End& end);
  void askPart(const ObjectRunPtr& run, const ObjectSteps::Step& step);
  /// Null where the bytes have to wait for those before them.
  [[nodiscard]] std::shared_ptr<PartReceiver> receiverOf(std::size_t index);
  /// None, or why a response with this head and so many bytes is not the part.
  [[nodiscard]] Outcome<void> checkPart(const platform::HttpResponse& head, std::uint64_t bytes,
                                        std::size_t index) const;
  /// What has come of a part is there, or it failed. Returns its bytes.
  [[nodiscard]] Outcome<std::uint64_t> takePart(const ObjectRunPtr& run,
                                                const ObjectSteps::Step& step,
                                                const platform::HttpResponse& response,
                                                PartReceiver* receiver);
  /// Stores the part, or hands it to the sink.
  [[nodiscard]] Outcome<void> take(RunningBase& running, std::size_t index,
                                   const platform::Data& bytes, const std::stop_token& stop);
  [[nodiscard]] Outcome<void> store(std::size_t index, const platform::Data& bytes);
  [[nodiscard]] Control newControl() const;
  /// Where bytes are received; empty: the directory for temporary files.
  [[nodiscard]] std::string directory() const { return prepared_ ? prepared_->directory : ""; }
  void finish(const ObjectRunPtr& run, const End& end);
  [[nodiscard]] Outcome<std::filesystem::path> nameFile();
  [[nodiscard]] ObjectRequest request(std::uint64_t first, std::uint64_t length) const;
  [[nodiscard]] std::uint64_t begin() const { return options_.range ? options_.range->first : 0; }

  const std::shared_ptr<const ObjectPlace> place_;
  const ObjectKey key_;
  const GetOptions options_;

  // Set by the first run, before its first request.
  std::optional<Destination> to_;
  /// Either of them.
  std::unique_ptr<OrderedSink> sink_;
  std::optional<PreparedFile> prepared_;
  /// Digest of the object's address, for parts that are kept.
  std::string object_;

  // Set with the answer to the first request or its head, before the second.
  std::optional<PartPlan> plan_;
  ObjectInfo info_;
  /// With its quotes; empty where the store names no version.
  std::string entityTag_;
  /// Of an object of one part, which needs no copy.
  std::optional<platform::Data> onlyPart_;

  mutable platform::Mutex mutex_;
  /// Null for a sink, for a file of one part that is not kept, and at the end.
  std::shared_ptr<PartsFile> parts_ VARO_GUARDED_BY(mutex_);

  PartsProgress progress_;
};

}  // namespace varo::detail
