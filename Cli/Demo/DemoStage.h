#pragma once

#include "Cli/Demo/DemoFile.h"
#include "Cli/Run/Session.h"
#include "Platform/Foundation/Value.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace varo::sandbox {
class SandboxServer;
}

namespace varo::cli {

/// A file of the tour that is on the service.
struct UploadedFile {
  DemoFile file;
  std::string id;
};

/// Where the tour plays: the sandbox, the files, the way to say and check things, and the account
/// that becomes the summary. Used by one section after the other, on the main thread.
class DemoStage {
 public:
  /// What the sandbox asks for, and what the tour sends.
  static constexpr const char* kToken = "demo-token";

  /// How one step went.
  struct Step {
    std::string section;
    std::string what;
    bool ok = false;
    std::uint64_t bytes = 0;  // moved; 0 where that is not the point
    std::chrono::milliseconds duration{0};
  };

  /// `directory` is the tour's own. All outlive the stage.
  DemoStage(Session& session, sandbox::SandboxServer& sandbox, std::string directory);

  [[nodiscard]] sandbox::SandboxServer& sandbox() noexcept { return sandbox_; }
  [[nodiscard]] const std::string& directory() const noexcept { return directory_; }
  [[nodiscard]] std::string downloads() const { return directory_ + "/home/Downloads"; }
  [[nodiscard]] std::string url() const;
  /// The request headers of every operation: the token.
  [[nodiscard]] static platform::Dictionary headers();

  /// The files that went up, for the sections that come after.
  [[nodiscard]] std::vector<UploadedFile>& uploaded() noexcept { return uploaded_; }

  /// Begins a section: its title, and what it is about in plain words.
  void beginSection(const std::string& title, const std::string& explanation);

  /// Runs an operation of the library, with its progress under the name `activity`. Remembers how
  /// long it took for the step that follows.
  [[nodiscard]] Outcome operate(const std::string& activity, const Session::Start& start);

  /// Enters a step in the account and says it. `detail` stands behind it: a result, or why it
  /// failed.
  void record(bool ok, const std::string& what, const std::string& detail, std::uint64_t bytes = 0);
  /// The same of an operation that should have succeeded. Returns its result, or nothing after it
  /// failed, which is recorded with the reason.
  [[nodiscard]] std::optional<platform::Dictionary> expectSuccess(const Outcome& outcome,
                                                                  const std::string& what);

  /// Whether the user wants to stop: sections return early then.
  [[nodiscard]] bool interrupted() const { return session_.interrupts().raised(); }
  [[nodiscard]] const std::vector<Step>& steps() const noexcept { return steps_; }

 private:
  Session& session_;
  sandbox::SandboxServer& sandbox_;
  const std::string directory_;
  std::string section_;
  std::vector<UploadedFile> uploaded_;
  std::vector<Step> steps_;
  std::chrono::milliseconds lastDuration_{0};
};

}  // namespace varo::cli
