#pragma once

#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/RequestObserver.h"
#include "varo/events.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace varo::cli {

/// Writes what the program does as spans, one JSON object a line, with the names that OpenTelemetry
/// has for it: the command is a trace, its requests are the children of its span. Holds no header
/// and of queries the names alone. Thread-safe.
class TraceFile final : public platform::RequestObserver {
 public:
  /// Replaces what stands in the file; makes one that only its owner may read.
  [[nodiscard]] static platform::Result<std::shared_ptr<TraceFile>> open(const std::string& path,
                                                                         std::string command);
  /// That which is told of the process's requests; null for none.
  [[nodiscard]] static std::shared_ptr<TraceFile> ofProcess();

  TraceFile(std::shared_ptr<platform::File> file, std::string command);

  // Of requests of the classes below the typed client.
  void requestBegins() noexcept override {}
  void requestEnded(const platform::RequestReport& report) noexcept override;
  /// Of those of the client.
  void add(const RequestEvent& event) noexcept;

  /// The command has ended with this exit status. False where the file is not complete.
  [[nodiscard]] bool finish(int exitStatus) noexcept;

 private:
  using Time = std::chrono::system_clock::time_point;

  enum class SpanOf { kCommand, kRequest };

  void write(SpanOf what, const std::string& name, Time begun, Time ended,
             const platform::Dictionary& attributes);
  void lose() noexcept;

  const std::string command_;
  const std::string trace_;  // its id
  const Time begun_ = std::chrono::system_clock::now();

  platform::Mutex mutex_;
  const std::shared_ptr<platform::File> file_;
  std::uint64_t size_ VARO_GUARDED_BY(mutex_) = 0;
  std::uint64_t requests_ VARO_GUARDED_BY(mutex_) = 0;
  bool isComplete_ VARO_GUARDED_BY(mutex_) = true;
};

}  // namespace varo::cli
