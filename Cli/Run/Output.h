#pragma once

#include "Cli/Failures/FailureText.h"
#include "Cli/Run/Item.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace varo::cli {

/// What people read about a result; called only where people read.
using HumanText = std::function<std::string()>;
using Explain = std::function<FailureText(const platform::Value& failure)>;

/// What a command tells the world: notes and progress on the way, and then one outcome.
///
/// The first outcome counts: after it nothing is written any more. Thread-safe; lines of several
/// threads do not mix.
class Output {
 public:
  virtual ~Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// Names what is being done, for a progress display that has a name in front.
  void begin(const std::string& activity);
  /// A progress dictionary of the library.
  void progress(const platform::Value& progress);
  /// The transfer of an object has begun. Said once, by whichever of its blocks comes first: the
  /// library calls them on several threads.
  void started(const std::string& id);
  /// Bytes of a blob or object were stored: how many are in its file, and of how many (0 while
  /// unknown).
  void chunk(const std::string& id, std::int64_t bytesWritten, std::int64_t totalSize);
  /// The same for people alone.
  void moved(std::uint64_t done, std::uint64_t total);
  /// So many things are moved side by side from now on, of so many bytes where that is known.
  void beginItems(std::size_t count, std::optional<std::uint64_t> bytes);
  /// How far one of them is, in bytes; 0 while the total is unknown.
  void itemProgress(const Item& item, std::uint64_t done, std::uint64_t total);
  /// The outcome of one of them, which is none of the command. Secrets in a failure are replaced.
  void itemSucceeded(const Item& item, const platform::Value& result, const HumanText& text);
  void itemFailed(const Item& item, const platform::Value& error, const Explain& explain);
  /// Time passed: keeps a progress display alive.
  void tick();
  /// An event of its own, like "ready", that is not an outcome.
  void event(const std::string& name, const platform::Dictionary& details, const HumanText& text);
  /// A remark for people; printable text.
  void note(const std::string& text);
  /// The same about what may go wrong, which --quiet does not leave out.
  void warning(const std::string& text);

  /// The outcome: what the success or the failure block received, or the "id" and the "result" of a
  /// pause. False when there was an outcome already. Also false when memory ran out or an exception
  /// arrived while it was written: a failure in fixed words is then written instead.
  bool success(const platform::Value& result, const HumanText& text);
  /// Secrets in the failure are replaced.
  bool failure(const platform::Value& error, const Explain& explain = describeFailure);
  bool paused(const platform::Dictionary& state, const HumanText& text);
  /// A failure in fixed words, for which nothing is allocated, unless there was an outcome.
  void failWithFixedWords() noexcept;

  /// Whether everything could be written where it belongs. A full disk or a closed pipe behind
  /// standard output makes it false.
  [[nodiscard]] bool allWritten() const;

 protected:
  Output() = default;

  // Called one at a time.
  virtual void writeBegin(const std::string& activity) = 0;
  virtual void writeProgress(const platform::Value& progress) = 0;
  virtual void writeStarted(const std::string& id) = 0;
  virtual void writeChunk(const std::string& id, std::int64_t bytesWritten,
                          std::int64_t totalSize) = 0;
  virtual void writeMoved(std::uint64_t done, std::uint64_t total) = 0;
  virtual void writeBeginItems(std::size_t count, std::optional<std::uint64_t> bytes) = 0;
  virtual void writeItemProgress(const Item& item, std::uint64_t done, std::uint64_t total) = 0;
  virtual void writeItemSucceeded(const Item& item, const platform::Value& result,
                                  const HumanText& text) = 0;
  virtual void writeItemFailed(const Item& item, const platform::Value& error,
                               const Explain& explain) = 0;
  virtual void writeTick() = 0;
  virtual void writeEvent(const std::string& name, const platform::Dictionary& details,
                          const HumanText& text) = 0;
  virtual void writeNote(const std::string& text) = 0;
  virtual void writeWarning(const std::string& text) = 0;
  virtual void writeSuccess(const platform::Value& result, const HumanText& text) = 0;
  virtual void writeFailure(const platform::Value& error, const Explain& explain) = 0;
  virtual void writePaused(const platform::Dictionary& state, const HumanText& text) = 0;
  /// Allocates nothing.
  virtual void writeFixedFailure() = 0;
  [[nodiscard]] virtual bool streamsAreGood() const = 0;

 private:
  bool finish(const std::function<void()>& write);
  void writeFixedFailureLocked() noexcept VARO_REQUIRES(mutex_);

  mutable platform::Mutex mutex_;
  bool started_ VARO_GUARDED_BY(mutex_) = false;
  bool finished_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::cli
