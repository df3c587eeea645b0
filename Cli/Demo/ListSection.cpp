#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Demo/DemoSections.h"
#include "Cli/Demo/DemoStage.h"

#include <fmt/format.h>

#include <optional>
#include <string>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;
using platform::Value;

namespace {

void listExpecting(DemoStage& stage, const std::string& what,
                   const std::optional<std::string>& criteria, std::size_t expected) {
  const Outcome outcome = stage.operate("Listing", [&](const Session::Blocks& blocks) {
    BinaryFileStorageInterface::getFilesWithUrl(stage.url(), criteria, DemoStage::headers(),
                                                blocks.onSuccess, blocks.onFailure, Dictionary());
  });
  const std::optional<Dictionary> result = stage.expectSuccess(outcome, what);
  if (!result) return;
  const Value& records = (*result)[binary::keys::kRecords];
  const std::size_t found = records.isArray() ? records.array()->size() : 0;
  const bool ok = found == expected;
  stage.record(ok, what,
               fmt::format("{} found{}", found, ok ? "" : fmt::format(", not {}", expected)));
}

}  // namespace

void showLists(DemoStage& stage) {
  stage.beginSection("Lists", "The service's records, all of them and those that match criteria.");
  if (stage.uploaded().empty()) return;
  const std::string& name = stage.uploaded().front().file.name;
  listExpecting(stage, "all files", std::nullopt, stage.uploaded().size());
  listExpecting(stage, "one file by its name", fmt::format("file_name eq '{}'", name), 1);
  listExpecting(stage, "by name and namespace",
                fmt::format("file_name eq '{}' and file_namespace eq 'demo'", name), 1);
  listExpecting(stage, "in a namespace that has none", "file_namespace eq 'elsewhere'", 0);
}

}  // namespace varo::cli
