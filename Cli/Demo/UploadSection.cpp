#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Demo/DemoSections.h"
#include "Cli/Demo/DemoStage.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Sandbox/SandboxServer.h"

#include <fmt/format.h>

#include <optional>
#include <string>
#include <string_view>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;
using platform::Result;

namespace {

constexpr std::uint64_t kMiB = 1 << 20;

/// One upload: a size, and the way that the service is made to ask for.
struct Way {
  std::string_view name;
  std::uint64_t size;
  std::string_view domain;  // the service itself, or the outside store
  std::string_view mode;
  std::string_view method;
  bool chunked = true;
  bool raw = false;
};

constexpr Way kWays[] = {
    {"one-byte.bin", 1, "service", "binary", "put"},
    {"just-under-64-KiB.bin", 64 * 1024 - 1, "service", "multipart", "post"},
    {"exactly-one-chunk.bin", kMiB, "store", "binary", "put"},
    {"two-and-a-bit-chunks.bin", 2'500'000, "service", "binary", "put"},
    {"parts-to-the-store.bin", 2'500'000, "store", "multipart", "post"},
    {"in-one-piece.bin", 2'500'000, "service", "multipart", "post", false},
    {"in-one-piece-to-the-store.bin", 5 * kMiB, "store", "binary", "put", false},
    {"raw-bytes.bin", 2'500'000, "service", "binary", "put", true, true},
    {"twenty-MiB.bin", 20 * kMiB, "service", "binary", "put"},
    {"twenty-MiB-to-the-store.bin", 20 * kMiB, "store", "binary", "put"},
};

std::string describe(const Way& way) {
  return fmt::format("{} {} {}, {}{}", way.domain == "store" ? "store," : "service,", way.mode,
                     way.method, way.chunked ? "in chunks" : "whole", way.raw ? ", bytes" : "");
}

Dictionary parametersOf(const Way& way, const Dictionary& content) {
  // A wish that only the sandbox understands: which kind of upload template it is to respond with.
  const Dictionary wish{{"domain", way.domain},
                        {"uploadMode", way.mode},
                        {"method", way.method},
                        {"chunkupload", way.chunked}};
  return {{binary::keys::kHeaders, DemoStage::headers()},
          {binary::keys::kMetadata, Dictionary{{binary::keys::kFileName, way.name},
                                               {binary::keys::kFileNamespace, "demo"},
                                               {"sandbox_template", wish}}},
          {binary::keys::kFile, content}};
}

Result<Dictionary> contentOf(const DemoFile& file, bool raw) {
  if (!raw) return Dictionary{{binary::keys::kFilePath, file.path}};
  const Result<platform::Data> data = platform::Data::fromFile(file.path);
  if (!data) return data.error();
  return Dictionary{{binary::keys::kRawBytes, *data}};
}

void upload(DemoStage& stage, const Way& way) {
  const Result<DemoFile> file = makeDemoFile(stage.directory(), std::string(way.name), way.size);
  const Result<Dictionary> content = file ? contentOf(*file, way.raw) : file.error();
  if (!content) {
    stage.record(false, std::string(way.name), content.error()->localizedDescription());
    return;
  }
  const Outcome outcome = stage.operate(file->name, [&](const Session::Blocks& blocks) {
    BinaryFileStorageInterface::uploadBinaryWithUrl(
        stage.url(),
        way.raw ? binary::kUploadInputTypeRawBytes : binary::kUploadInputTypeLocalFilePath,
        parametersOf(way, *content), blocks.onSuccess, blocks.onFailure, blocks.onProgress,
        Dictionary());
  });
  const std::string what = fmt::format("{:<31} {:>9}", file->name, formatBytes(file->size));
  const std::optional<Dictionary> result = stage.expectSuccess(outcome, what);
  if (!result) return;
  const Dictionary sent = (*result)[binary::keys::kRequestContext].dictionaryValue();
  const std::string id = sent[binary::keys::kFileId].textValue();
  stage.record(!id.empty(), what, describe(way), file->size);
  stage.uploaded().push_back({*file, id});
}

}  // namespace

void showUploads(DemoStage& stage) {
  stage.beginSection(
      "Uploads",
      "A file's record is created, its bytes are sent in chunks of 1 MiB, and the upload is\n"
      "committed. The service says where the bytes go: to itself, or straight to an object store.");
  for (const Way& way : kWays) {
    if (stage.interrupted()) return;
    upload(stage, way);
  }
  const auto leaked = stage.sandbox().storeStats().tokenHeaders;
  stage.record(leaked == 0, "the token stayed with the service",
               fmt::format("requests to the store that carried it: {}", leaked));
}

}  // namespace varo::cli
