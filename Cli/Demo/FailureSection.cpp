#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Demo/DemoDownload.h"
#include "Cli/Demo/DemoSections.h"
#include "Cli/Demo/DemoStage.h"
#include "Cli/Failures/FailureText.h"
#include "Platform/Foundation/File.h"
#include "Sandbox/SandboxServer.h"

#include <filesystem>
#include <string>

namespace varo::cli {

using platform::Dictionary;

namespace {

/// What an operation that had to fail said; a success is recorded as the failure that it is.
void expectFailure(DemoStage& stage, const Outcome& outcome, const std::string& what, bool clean) {
  const bool failed = outcome.kind == Outcome::Kind::kFailure;
  const std::string said =
      failed ? describeFailure(outcome.value).message : "went through, which it should not have";
  stage.record(failed && clean, what, clean ? said : said + " (and something was left behind)");
}

void showWrongToken(DemoStage& stage, const UploadedFile& file) {
  const Outcome outcome =
      downloadFile(stage, file.id, Dictionary{{binary::kVaroAuthorization, "wrong"}});
  expectFailure(stage, outcome, "a wrong token", true);
}

void showUnknownFile(DemoStage& stage) {
  expectFailure(stage, downloadFile(stage, "no-such-file"), "a file that is not there", true);
}

/// The connection breaks in the middle of the bytes: nothing is stored, and the next try works.
void showCutBody(DemoStage& stage, const UploadedFile& file) {
  const std::string path = stage.downloads() + "/" + file.file.name;
  std::error_code ignored;
  std::filesystem::remove(path, ignored);

  sandbox::FaultRule rule;
  rule.match.path = file.id;
  rule.match.count = 1;
  rule.action.cutAfter = file.file.size / 2;
  stage.sandbox().addFault(rule);
  const Outcome broken = downloadFile(stage, file.id);
  stage.sandbox().clearFaults();
  const bool nothingThere = platform::fileKindAt(path) == platform::FileKind::kNothing;
  expectFailure(stage, broken, "a connection that breaks half-way", nothingThere);

  const std::string again = "the same download, tried again";
  if (!stage.expectSuccess(downloadFile(stage, file.id), again)) return;
  const bool same = sameBytes(path, file.file.path);
  stage.record(same, again, same ? "identical" : "DIFFERENT", file.file.size);
}

}  // namespace

void showFailures(DemoStage& stage) {
  stage.beginSection("Failures",
                     "What goes wrong is said clearly, and nothing is left half-written. Here\n"
                     "things go wrong on purpose: ok means that the failure was reported.");
  if (stage.uploaded().empty()) return;
  const UploadedFile& largest = stage.uploaded().back();
  showWrongToken(stage, largest);
  showUnknownFile(stage);
  showCutBody(stage, largest);
}

}  // namespace varo::cli
