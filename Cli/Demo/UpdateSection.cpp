#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Demo/DemoSections.h"
#include "Cli/Demo/DemoStage.h"

#include <optional>
#include <string>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;
using platform::Value;

namespace {

constexpr const char* kDescriptionKey = "description";
constexpr const char* kDescription = "a summer evening";

/// The ids of the records whose description is the new one, when there is exactly one.
std::optional<std::string> findByDescription(DemoStage& stage, const std::string& what) {
  const std::string criteria = std::string(kDescriptionKey) + " eq '" + kDescription + "'";
  const Outcome outcome = stage.operate("Listing", [&](const Session::Blocks& blocks) {
    BinaryFileStorageInterface::getFilesWithUrl(stage.url(), criteria, DemoStage::headers(),
                                                blocks.onSuccess, blocks.onFailure, Dictionary());
  });
  const std::optional<Dictionary> result = stage.expectSuccess(outcome, what);
  if (!result) return std::nullopt;
  const Value& records = (*result)[binary::keys::kRecords];
  if (!records.isArray() || records.array()->size() != 1) return std::string();
  return (*records.array())[0].dictionaryValue()[binary::keys::kFileId].textValue();
}

}  // namespace

void showUpdates(DemoStage& stage) {
  stage.beginSection("Metadata", "A file's metadata change; its bytes stay as they are.");
  if (stage.uploaded().empty()) return;
  const UploadedFile& target = stage.uploaded().back();
  const Dictionary metadata{{binary::keys::kFileId, target.id}, {kDescriptionKey, kDescription}};
  const Outcome outcome = stage.operate("Updating", [&](const Session::Blocks& blocks) {
    BinaryFileStorageInterface::updateWithUrl(
        stage.url(),
        Dictionary{{binary::keys::kHeaders, DemoStage::headers()},
                   {binary::keys::kMetadata, metadata}},
        blocks.onSuccess, blocks.onFailure, Dictionary());
  });
  const std::string what = "description of " + target.file.name;
  if (!stage.expectSuccess(outcome, what)) return;
  stage.record(true, what, std::string("now '") + kDescription + "'");

  const std::string found = "found by its new description";
  const std::optional<std::string> id = findByDescription(stage, found);
  if (id) stage.record(*id == target.id, found, *id);
}

}  // namespace varo::cli
