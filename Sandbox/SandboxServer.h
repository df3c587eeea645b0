#pragma once

#include "Sandbox/Blobs/BlobObject.h"
#include "Sandbox/Control/Traffic.h"
#include "Sandbox/Faults/Fault.h"
#include "Sandbox/SandboxOptions.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varo::sandbox {

/// A complete back end in this process: the object service, the blob service, the service of online
/// transfers and the control endpoint on one port, object stores on another. docs/sandbox.md
/// describes how they respond.
///
/// Thread-safe, except that `start`, `stop`, `putBlob`, `makeExampleDatabase` and the
/// destructor exclude each other.
class SandboxServer {
 public:
  /// Why the sandbox could not start, or not do something else.
  struct Error {
    std::string message;
  };

  explicit SandboxServer(SandboxOptions options);
  /// Stops.
  ~SandboxServer();
  SandboxServer(const SandboxServer&) = delete;
  SandboxServer& operator=(const SandboxServer&) = delete;

  /// Opens the data directory and begins to listen; connections are accepted when it returns.
  /// Nothing is left running after an error: an unusable directory or a port that is taken. May be
  /// called again after `stop`.
  [[nodiscard]] std::optional<Error> start();

  /// Closes all connections, also those with a request in flight, and returns when nothing runs any
  /// more. Does nothing when nothing runs.
  void stop();

  /// The base URL that an application is given. This URL and the next four belong to the last start
  /// and stay the same after `stop`.
  [[nodiscard]] std::string url() const;
  /// The base URL of binary columns of records. It ends in a slash.
  [[nodiscard]] std::string blobUrl() const;
  /// Where online uploads ask for their templates.
  [[nodiscard]] std::string templateUrl() const;
  /// The sandbox's own store's scheme, host and port.
  [[nodiscard]] std::string storeUrl() const;
  /// Scheme, host and port of the object service, below which "/control/" lies.
  [[nodiscard]] std::string originUrl() const;
  /// Whether the address lets other machines connect.
  [[nodiscard]] bool isReachableFromOutside() const;

  /// The same as the control endpoint. Rules and counts outlive `stop`.
  void addFault(FaultRule rule);
  /// Requests that faults hold go on.
  void clearFaults();
  /// How many requests faults hold at this moment.
  [[nodiscard]] std::size_t heldRequests() const;
  /// How files are deleted from now on that wish for nothing themselves; until `resetDeletes` or
  /// the end of this object.
  void setDeletes(DeleteKind kind);
  void resetDeletes();
  /// Makes or replaces an object of the blob service; the data directory keeps it. Only between
  /// `start` and `stop`.
  [[nodiscard]] std::optional<Error> putBlob(const BlobKey& key, const BlobObject& object);
  /// Makes the database of `ExampleDatabase` at `path` and puts its photos into the blob service.
  /// Only between `start` and `stop`.
  [[nodiscard]] std::optional<Error> makeExampleDatabase(const std::string& path);
  [[nodiscard]] ListenerStats serviceStats() const;
  [[nodiscard]] ListenerStats storeStats() const;
  /// The last few hundred requests, oldest first.
  [[nodiscard]] std::vector<LoggedRequest> requests() const;
  void clearStats();

 private:
  struct Running;
  struct Shared;
  const SandboxOptions options_;
  const std::unique_ptr<Shared> shared_;
  std::unique_ptr<Running> running_;
};

}  // namespace varo::sandbox
