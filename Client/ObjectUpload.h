#pragma once

#include "Client/ObjectRun.h"
#include "Platform/Foundation/Data.h"
#include "varo/objects.h"
#include "varo/outcome.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

/// The requests of an upload in parts. Each function sends one request, or one after another, and
/// calls its last argument once, from any thread.
namespace varo::detail::upload {

/// Of which object, in which upload.
struct Named {
  ObjectKey key;
  UploadId id = {};
};

/// A part that the store has.
struct StoredPart {
  /// From 0; the store counts from 1.
  std::size_t index = 0;
  std::uint64_t size = 0;
  /// With its quotes.
  std::string entityTag;
};

/// Begins one, whose id the store chooses. Cannot be stopped: nobody would know what to abort.
void create(const ObjectRun& run, const ObjectKey& key, const std::string& contentType,
            std::function<void(Outcome<UploadId>)> end);

/// The bytes of a part, and who is told of their way: see `ObjectRequest`.
struct PartBody {
  platform::Data bytes;
  std::function<void(std::uint64_t sent)> onSent;
  std::function<void()> onRetry;
};

/// The entity tag of the part, with its quotes.
void sendPart(const ObjectRun& run, const Named& named, std::size_t index, PartBody body,
              const std::stop_token& stop, std::function<void(Outcome<std::string>)> end);

/// The parts that the store has.
void listParts(const ObjectRunPtr& run, const Named& named,
               std::function<void(Outcome<std::vector<StoredPart>>)> end);

/// Makes the object of all parts, whose entity tags these are, in their order. Cannot be stopped:
/// nobody would know whether it is there.
void complete(const ObjectRun& run, const Named& named, const std::vector<std::string>& entityTags,
              std::function<void(Outcome<ObjectInfo>)> end);

/// Removes its parts. Good too where there is no such upload any more.
void abort(const ObjectRun& run, const Named& named, std::function<void(Outcome<void>)> end);

}  // namespace varo::detail::upload
