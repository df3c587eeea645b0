#pragma once

#include "Cli/Terminal/ProgressBar.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace varo::cli {

/// What people see of several transfers: a line for each that runs, and one for all together.
class TransferList {
 public:
  using Clock = ProgressBar::Clock;

  /// So many transfers, of so many bytes where that is known.
  TransferList(std::size_t count, std::optional<std::uint64_t> bytes, Clock::time_point now);

  /// How far the transfer of this number is, in bytes.
  void update(std::size_t number, const std::string& name, std::uint64_t done,
              std::optional<std::uint64_t> total, Clock::time_point now);
  enum class End { kSucceeded, kFailed };
  void end(std::size_t number, End how, Clock::time_point now);

  /// The lines, with newlines between them, each of at most `width` columns. Of very many transfers
  /// the first ones.
  [[nodiscard]] std::string text(std::size_t width, Clock::time_point now) const;

 private:
  struct Running {
    ProgressBar bar;
    std::uint64_t first = 0;  // bytes that were there before
    std::uint64_t done = 0;
  };

  void updateAll(Clock::time_point now);

  const std::size_t count_;
  const std::optional<std::uint64_t> bytes_;
  std::map<std::size_t, Running> running_;
  std::uint64_t movedBefore_ = 0;  // by those that have ended
  std::size_t succeeded_ = 0;
  std::size_t failed_ = 0;
  ProgressBar all_;
};

}  // namespace varo::cli
