#pragma once

#include "Cli/Run/Output.h"
#include "Cli/Terminal/Console.h"
#include "Cli/Terminal/ProgressBar.h"
#include "Cli/Terminal/TransferList.h"

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

namespace varo::cli {

/// Results on standard output; messages, and on a terminal a progress line, on standard error.
class HumanOutput final : public Output {
 public:
  /// Progress and notes.
  enum class Asides { kShown, kNone };

  /// `results` and `console` outlive this object. `width` tells the columns of the terminal that
  /// the progress line is on, each time anew.
  HumanOutput(std::ostream& results, Console& console, std::function<std::size_t()> width,
              Asides asides = Asides::kShown);

 private:
  void writeBegin(const std::string& activity) override;
  void writeProgress(const platform::Value& progress) override;
  void writeStarted(const std::string&) override {}
  void writeChunk(const std::string& id, std::int64_t bytesWritten,
                  std::int64_t totalSize) override;
  void writeMoved(std::uint64_t done, std::uint64_t total) override;
  void writeBeginItems(std::size_t count, std::optional<std::uint64_t> bytes) override;
  void writeItemProgress(const Item& item, std::uint64_t done, std::uint64_t total) override;
  void writeItemSucceeded(const Item& item, const platform::Value& result,
                          const HumanText& text) override;
  void writeItemFailed(const Item& item, const platform::Value& error,
                       const Explain& explain) override;
  void writeTick() override;
  void writeEvent(const std::string& name, const platform::Dictionary& details,
                  const HumanText& text) override;
  void writeNote(const std::string& text) override;
  void writeWarning(const std::string& text) override;
  void writeSuccess(const platform::Value& result, const HumanText& text) override;
  void writeFailure(const platform::Value& error, const Explain& explain) override;
  void writePaused(const platform::Dictionary& state, const HumanText& text) override;
  void writeFixedFailure() override;
  [[nodiscard]] bool streamsAreGood() const override { return results_.good(); }

  void printFailure(const FailureText& failure);
  void takeProgressAway();
  void endItem(const Item& item, TransferList::End how);
  void showBar(ProgressBar::Clock::time_point now, bool isLast);

  std::ostream& results_;
  Console& console_;
  const std::function<std::size_t()> width_;
  const Asides asides_;

  // Called one at a time by the base class, whose lock guards these.
  std::optional<ProgressBar> bar_;
  std::optional<TransferList> items_;  // instead of the bar
  ProgressBar::Clock::time_point lastShown_{};
};

}  // namespace varo::cli
