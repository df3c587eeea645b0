#pragma once

#include "Client/FileOperation.h"
#include "Client/PartialFile.h"
#include "Client/SinkFeed.h"
#include "Platform/Foundation/Value.h"
#include "varo/files.h"
#include "varo/source.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace varo::detail {

/// A download over all its runs. What has been received stays over a pause and over a failure of
/// the connection; each run looks the file up and asks for what is missing.
class FileDownload final : public FileCall<std::filesystem::path> {
 public:
  FileDownload(std::string url, FileId id, Destination to, const DownloadOptions& options);

  [[nodiscard]] const std::string& about() const override { return about_; }
  [[nodiscard]] OperationKind kind() const override { return OperationKind::kFileDownload; }
  /// Its look-up is parsed in memory; the bytes go to a file as they come, and from there to a
  /// sink.
  [[nodiscard]] std::uint64_t memory() const override { return memory::kRequest + memory::kPiece; }
  [[nodiscard]] std::optional<Bytes> perSecond() const override { return options_.perSecond; }
  [[nodiscard]] Outcome<void> send(const FileRun& run) override;
  [[nodiscard]] Outcome<std::filesystem::path> read(const platform::Dictionary& result) override;
  [[nodiscard]] Failure explain(Failure failure, const platform::Value& told) override;
  [[nodiscard]] bool canGoOn() const override { return file_ != nullptr && file_->canGoOn(); }
  [[nodiscard]] bool canPause() const override { return true; }

 private:
  using Store = std::function<platform::Result<std::string>(const platform::Data& bytes)>;

  [[nodiscard]] Outcome<void> sendTo(const std::filesystem::path& path, const FileRun& run);
  [[nodiscard]] Outcome<void> sendTo(const Sink& sink, const FileRun& run);
  void request(const FileRun& run, const std::string& directory, Store store);

  const std::string url_;
  const FileId id_;
  const Destination to_;
  const DownloadOptions options_;
  const std::string about_;

  // Owned by the run; made in the first one.
  std::shared_ptr<PartialFile> file_;
  std::shared_ptr<SinkFeed> feed_;  // null for a path
  std::stop_token stop_;
};

}  // namespace varo::detail
