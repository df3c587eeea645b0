#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"
#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"
#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Cli/Demo/DemoSections.h"
#include "Cli/Demo/DemoStage.h"
#include "Cli/Failures/ObjectFailure.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Sandbox/Online/SignedStoreOptions.h"
#include "Sandbox/SandboxServer.h"

#include <fmt/format.h>

#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace varo::cli {

using binary::OnlineBinaryDataManager;
using binary::OnlineBinaryUploadManager;
using platform::Data;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::Value;

namespace {

constexpr std::uint64_t kMiB = 1 << 20;

/// Of the names in the store. Signed names are written as they stand in an address.
struct Object {
  std::string_view file;
  std::string_view name;
  std::uint64_t size;
};

constexpr Object kObjects[] = {
    {"signed-one-byte.bin", "album/one-byte.bin", 1},
    {"signed-evening.bin", "album/a%20summer%20evening.bin", 2'500'000},
    {"signed-twenty-MiB.bin", "album/2026/twenty-MiB.bin", 20 * kMiB},
};

Dictionary keysWith(const std::string& secret) {
  const sandbox::SignedStoreOptions store;
  return {
      {"accessKeyID", store.accessKey}, {"secretAccessKey", secret}, {"regionName", store.region}};
}

std::string rightSecret() { return sandbox::SignedStoreOptions().secretKey; }

Outcome put(DemoStage& stage, const DemoFile& file, std::string_view name,
            const std::string& secret) {
  Dictionary uploadParams{{"objectName", name}};
  uploadParams.addEntries(keysWith(secret));
  const Dictionary configuration{{binary::kURL, stage.sandbox().templateUrl()},
                                 {binary::keys::kHeaders, DemoStage::headers()},
                                 {binary::kFilePath, file.path},
                                 {binary::keys::kUploadParams, uploadParams}};
  return stage.operate(file.name, [&](const Session::Blocks& blocks) {
    OnlineBinaryUploadManager::sharedInstance()->createAndStartOnlineUploadTaskFor(
        configuration, {}, {},
        [blocks](const std::string& id, const std::string&, const Value&) {
          blocks.onSuccess(Dictionary{{"id", id}});
        },
        [blocks](const std::string&, const Value& error, const Value&) { blocks.onFailure(error); },
        std::nullopt);
  });
}

/// The placeholder is filled with the file parameters of each download.
Dictionary downloadConfiguration(DemoStage& stage, const std::string& secret) {
  const std::string store = stage.sandbox().storeUrl();
  Dictionary keys = keysWith(secret);
  keys.addEntries({{"objectName", "${fileId}"}, {"serviceName", "s3"}});
  return {{"endpointUrl", store + "/${fileId}"},
          {"Host", store.substr(store.find("//") + 2)},
          {"method", "GET"},
          {"Auth", "HMACDigest"},
          {"AuthParameters", keys}};
}

/// Without `onChunk`, into a file.
Outcome get(DemoStage& stage, std::string_view name, const std::string& secret,
            binary::OnStreamDownloadCompleted::Function onChunk = {}) {
  const bool streams = static_cast<bool>(onChunk);
  return stage.operate(std::string(name), [&](const Session::Blocks& blocks) {
    OnlineBinaryDataManager::sharedInstance()->createAndStartOnlineDownloadTaskFor(
        Dictionary{{"fileId", name}}, streams, downloadConfiguration(stage, secret), {}, {},
        std::move(onChunk),
        [blocks](const std::string&, const std::string& path, const Value&) {
          blocks.onSuccess(Dictionary{{binary::kFilePath, path}});
        },
        [blocks](const std::string&, const ErrorPtr& error, const Value&) {
          blocks.onFailure(Value(error));
        },
        std::nullopt);
  });
}

void recordRefusal(DemoStage& stage, const Outcome& outcome, const std::string& what) {
  const std::string reason = outcome.kind == Outcome::Kind::kFailure
                                 ? storeErrorCode(outcome.value)
                                 : "went through, which it should not have";
  stage.record(reason == "SignatureDoesNotMatch", what,
               fmt::format("the store says {}", reason.empty() ? "nothing" : reason));
}

std::string label(const Object& object) {
  return fmt::format("{:<31} {:>9}", object.name, formatBytes(object.size));
}

bool putUp(DemoStage& stage, const Object& object, const DemoFile& file) {
  const std::string what = label(object);
  if (!stage.expectSuccess(put(stage, file, object.name, rightSecret()), what)) return false;
  stage.record(true, what, "put, signed by its template", object.size);
  return true;
}

void getBack(DemoStage& stage, const Object& object, const DemoFile& file) {
  const std::string what = label(object);
  const auto result = stage.expectSuccess(get(stage, object.name, rightSecret()), what);
  if (!result) return;
  const bool same = sameBytes((*result)[binary::kFilePath].textValue(), file.path);
  stage.record(same, what, same ? "got back, identical" : "DIFFERENT", object.size);
}

/// What a stream hands out, compared with the file that it should be.
struct Comparison {
  Data expected;
  std::uint64_t bytes = 0;
  bool same = true;
};

void streamBack(DemoStage& stage, const Object& object, const DemoFile& file) {
  const std::string what = label(object);
  const auto expected = Data::fromFile(file.path);
  if (!expected) return stage.record(false, what, expected.error()->localizedDescription());
  const auto seen = std::make_shared<Comparison>(Comparison{*expected});
  const Outcome outcome =
      get(stage, object.name, rightSecret(),
          [seen](const std::string&, const std::shared_ptr<binary::Chunk>& chunk, const Value&) {
            const Data bytes = chunk->data().value_or(Data());
            seen->same = seen->same && bytes == seen->expected.slice(seen->bytes, bytes.size());
            seen->bytes += bytes.size();
          });
  if (!stage.expectSuccess(outcome, what)) return;
  const bool same = seen->same && seen->bytes == object.size;
  stage.record(same, what, same ? "streamed back, identical" : "DIFFERENT", object.size);
}

/// `file` once more, with keys that do not fit.
void useAWrongSecret(DemoStage& stage, const Object& object, const DemoFile& file) {
  recordRefusal(stage, put(stage, file, object.name, "wrong"), "a put with a wrong secret");
  recordRefusal(stage, get(stage, object.name, "wrong"), "a get with a wrong secret");
}

}  // namespace

void showSignedTransfers(DemoStage& stage) {
  stage.beginSection(
      "Signed transfers with the object store",
      "Objects go straight to and from a store that knows no token. For each upload the service\n"
      "hands out a template; the requests are signed (AWS Signature Version 4), and the store\n"
      "checks every one.");
  std::optional<DemoFile> last;
  for (const Object& object : kObjects) {
    const auto file = makeDemoFile(stage.directory(), std::string(object.file), object.size);
    if (!file) {
      return stage.record(false, std::string(object.file), file.error()->localizedDescription());
    }
    if (stage.interrupted() || !putUp(stage, object, *file)) return;
    getBack(stage, object, *file);
    last = *file;
  }
  const Object& largest = *std::rbegin(kObjects);
  streamBack(stage, largest, *last);
  useAWrongSecret(stage, largest, *last);
}

}  // namespace varo::cli
