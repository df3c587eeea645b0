#pragma once

#include "Cli/Run/Output.h"

#include <ostream>

namespace varo::cli {

/// One JSON object a line, flushed as it happens; see `eventLine` for the form of values.
class JsonOutput final : public Output {
 public:
  /// `stream` outlives this object and is written by nobody else.
  explicit JsonOutput(std::ostream& stream) : stream_(stream) {}

  /// The line of a failure for which there was no memory.
  static void writeFixedFailure(std::ostream& stream);

 private:
  void writeBegin(const std::string&) override {}
  void writeProgress(const platform::Value& progress) override;
  void writeStarted(const std::string& id) override;
  void writeChunk(const std::string& id, std::int64_t bytesWritten,
                  std::int64_t totalSize) override;
  void writeMoved(std::uint64_t, std::uint64_t) override {}
  void writeBeginItems(std::size_t, std::optional<std::uint64_t>) override {}
  void writeItemProgress(const Item& item, std::uint64_t done, std::uint64_t total) override;
  void writeItemSucceeded(const Item& item, const platform::Value& result,
                          const HumanText& text) override;
  void writeItemFailed(const Item& item, const platform::Value& error,
                       const Explain& explain) override;
  void writeTick() override {}
  void writeEvent(const std::string& name, const platform::Dictionary& details,
                  const HumanText& text) override;
  void writeNote(const std::string&) override {}
  void writeWarning(const std::string&) override {}
  void writeSuccess(const platform::Value& result, const HumanText& text) override;
  void writeFailure(const platform::Value& error, const Explain& explain) override;
  void writePaused(const platform::Dictionary& state, const HumanText&) override;
  void writeFixedFailure() override { writeFixedFailure(stream_); }
  [[nodiscard]] bool streamsAreGood() const override { return stream_.good(); }

  void writeLine(std::string_view event, const platform::Dictionary& details);

  std::ostream& stream_;
};

}  // namespace varo::cli
