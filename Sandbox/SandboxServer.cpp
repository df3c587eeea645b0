#include "Sandbox/SandboxServer.h"

#include "Platform/Foundation/Mutex.h"
#include "Sandbox/Blobs/BlobCatalog.h"
#include "Sandbox/Blobs/BlobService.h"
#include "Sandbox/Blobs/ExampleDatabase.h"
#include "Sandbox/Control/BlobControl.h"
#include "Sandbox/Control/ControlService.h"
#include "Sandbox/Control/RequestLog.h"
#include "Sandbox/Faults/FaultInjector.h"
#include "Sandbox/Files/ContentService.h"
#include "Sandbox/Files/DeleteKind.h"
#include "Sandbox/Files/DeleteService.h"
#include "Sandbox/Files/PlainStore.h"
#include "Sandbox/Files/RecordService.h"
#include "Sandbox/Http/HttpListener.h"
#include "Sandbox/Http/StopSignal.h"
#include "Sandbox/Online/OnlineService.h"
#include "Sandbox/Online/SignedStore.h"
#include "Sandbox/RequestPipeline.h"
#include "Sandbox/ServiceProtocol.h"
#include "Sandbox/Storage/DiskStore.h"
#include "Sandbox/Storage/RecordDatabase.h"
#include "Sandbox/Storage/UploadDatabase.h"

#include <fmt/format.h>

#include <exception>
#include <filesystem>
#include <string_view>
#include <utility>

namespace varo::sandbox {
namespace {

constexpr std::string_view kServiceListener = "service";
constexpr std::string_view kStoreListener = "store";

bool isLoopbackAddress(std::string_view address) {
  return address.starts_with("127.") || address == "::1" || address == "localhost";
}

std::string origin(std::string_view address, std::uint16_t port) {
  // "All addresses" is something to listen on. A client needs one that it can connect to.
  if (address == "0.0.0.0" || address == "::") address = "127.0.0.1";
  const bool bracketed = address.find(':') != std::string_view::npos;
  return fmt::format("http://{}{}{}:{}", bracketed ? "[" : "", address, bracketed ? "]" : "", port);
}

std::string madeDirectory(const std::filesystem::path& path) {
  std::filesystem::create_directories(path);
  return path.string();
}

}  // namespace

/// What outlives a stop.
struct SandboxServer::Shared {
  explicit Shared(const SandboxOptions& options) : defaultDelete(options.defaultDelete) {}

  FaultInjector faults;
  DeleteDefault defaultDelete;
  RequestLog log;
  mutable platform::Mutex mutex;
  // Of the last start.
  std::string serviceOrigin VARO_GUARDED_BY(mutex);
  std::string storeOrigin VARO_GUARDED_BY(mutex);
};

/// What lives from start to stop. The listeners come last, so that they end first.
struct SandboxServer::Running {
  Running(const SandboxOptions& options, Shared& shared)
      : faults(shared.faults),
        records(madeDirectory(options.dataDirectory) + "/records.sqlite"),
        serviceBytes(madeDirectory(options.dataDirectory + "/files"), "files", records),
        plainBytes(madeDirectory(options.dataDirectory + "/objects"), "objects", records),
        blobBytes(madeDirectory(options.dataDirectory + "/blobs"), "blobs", records),
        signedBytes(madeDirectory(options.dataDirectory + "/store"), "store", records),
        partBytes(madeDirectory(options.dataDirectory + "/parts"), "parts", records),
        uploads(options.dataDirectory + "/uploads.sqlite"),
        blobs(records, blobBytes),
        recordService({records, serviceBytes, plainBytes}, options.defaultTemplate,
                      // Asked with each request: the port is known once the store listens.
                      [this, address = options.address] { return origin(address, store.port()); }),
        contentService(records, serviceBytes),
        deleteService({records, serviceBytes, plainBytes}, shared.defaultDelete),
        blobService(blobs),
        onlineService(signedBytes, options.objectStore,
                      [this, address = options.address] {
                        return OnlineService::Origins{origin(address, service.port()),
                                                      origin(address, store.port())};
                      }),
        plainStore(plainBytes),
        signedStore({signedBytes, partBytes, uploads}, options.objectStore),
        controlService(shared.faults, shared.log, shared.defaultDelete),
        blobControl(blobs),
        serviceToken(options.requiredToken),
        servicePipeline(std::string(kServiceListener), {serviceToken, true},
                        {shared.faults, shared.log, stopSignal}),
        storePipeline(std::string(kStoreListener), {signedStore.sessionToken(), false},
                      {shared.faults, shared.log, stopSignal},
                      [this](HttpResponse& response) { signedStore.stamp(response); }),
        store(options.http, stopSignal,
              [this](HttpRequest& request, RequestBody& body) {
                return storePipeline.handle(request, body);
              }),
        service(options.http, stopSignal, [this](HttpRequest& request, RequestBody& body) {
          return servicePipeline.handle(request, body);
        }) {
    recordService.registerRoutes(servicePipeline.router());
    contentService.registerRoutes(servicePipeline.router());
    deleteService.registerRoutes(servicePipeline.router());
    blobService.registerRoutes(servicePipeline.router());
    blobControl.registerRoutes(servicePipeline.router());
    controlService.registerRoutes(servicePipeline.router());
    onlineService.registerRoutes(servicePipeline.router());
    plainStore.registerRoutes(storePipeline.router());
    // Last, since it takes whatever is left.
    signedStore.registerRoutes(storePipeline.router());
  }

  ~Running() {
    // Whoever a fault holds would otherwise hold up the listeners' end.
    stopSignal.raise();
    faults.release();
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  FaultInjector& faults;
  StopSignal stopSignal;
  RecordDatabase records;
  DiskStore serviceBytes;
  DiskStore plainBytes;
  DiskStore blobBytes;
  DiskStore signedBytes;
  DiskStore partBytes;
  UploadDatabase uploads;
  BlobCatalog blobs;
  RecordService recordService;
  ContentService contentService;
  DeleteService deleteService;
  BlobService blobService;
  OnlineService onlineService;
  PlainStore plainStore;
  SignedStore signedStore;
  ControlService controlService;
  BlobControl blobControl;
  WantedToken serviceToken;
  RequestPipeline servicePipeline;
  RequestPipeline storePipeline;
  HttpListener store;
  HttpListener service;
};

SandboxServer::SandboxServer(SandboxOptions options)
    : options_(std::move(options)), shared_(std::make_unique<Shared>(options_)) {}

SandboxServer::~SandboxServer() { stop(); }

std::optional<SandboxServer::Error> SandboxServer::start() {
  if (running_) return Error{"the sandbox runs already"};
  if (options_.dataDirectory.empty()) return Error{"the sandbox needs a data directory"};
  try {
    // Kept aside until both listen: after an error its destructor takes everything back.
    auto running = std::make_unique<Running>(options_, *shared_);
    // The store first: the service hands out its address.
    if (auto problem = running->store.start(options_.address, options_.storePort)) {
      return Error{*std::move(problem)};
    }
    if (auto problem = running->service.start(options_.address, options_.port)) {
      return Error{*std::move(problem)};
    }
    // Other threads may ask for the addresses while this one starts.
    const platform::MutexLock lock(shared_->mutex);
    shared_->serviceOrigin = origin(options_.address, running->service.port());
    shared_->storeOrigin = origin(options_.address, running->store.port());
    running_ = std::move(running);
  } catch (const std::exception& exception) {
    return Error{
        fmt::format("cannot use the directory {}: {}", options_.dataDirectory, exception.what())};
  }
  return std::nullopt;
}

void SandboxServer::stop() { running_.reset(); }

std::string SandboxServer::url() const {
  return fmt::format("{}{}{}", originUrl(), kServicesPath, kStoragePath);
}

std::string SandboxServer::blobUrl() const {
  return fmt::format("{}{}{}", originUrl(), kServicesPath, kBlobsPath);
}

std::string SandboxServer::templateUrl() const {
  return fmt::format("{}{}{}{}", originUrl(), kServicesPath, kOnlinePath, kTemplatesPath);
}

std::string SandboxServer::originUrl() const {
  const platform::MutexLock lock(shared_->mutex);
  return shared_->serviceOrigin;
}

std::string SandboxServer::storeUrl() const {
  const platform::MutexLock lock(shared_->mutex);
  return shared_->storeOrigin;
}

bool SandboxServer::isReachableFromOutside() const { return !isLoopbackAddress(options_.address); }

void SandboxServer::addFault(FaultRule rule) { shared_->faults.add(std::move(rule)); }
void SandboxServer::clearFaults() { shared_->faults.clear(); }
std::size_t SandboxServer::heldRequests() const { return shared_->faults.held(); }
void SandboxServer::setDeletes(DeleteKind kind) { shared_->defaultDelete.set(kind); }
void SandboxServer::resetDeletes() { shared_->defaultDelete.reset(); }

std::optional<SandboxServer::Error> SandboxServer::putBlob(const BlobKey& key,
                                                           const BlobObject& object) {
  if (!running_) return Error{"the sandbox does not run"};
  try {
    running_->blobs.put(key, object);
  } catch (const std::exception& exception) {
    return Error{fmt::format("cannot keep the object: {}", exception.what())};
  }
  return std::nullopt;
}

std::optional<SandboxServer::Error> SandboxServer::makeExampleDatabase(const std::string& path) {
  if (auto problem = ExampleDatabase::make(path)) return Error{*std::move(problem)};
  for (const ExampleEmployee& employee : ExampleDatabase::employees()) {
    auto error = putBlob(ExampleDatabase::keyOf(employee),
                         {.generated = employee.photo, .mode = employee.mode});
    if (error) return error;
  }
  return std::nullopt;
}

ListenerStats SandboxServer::serviceStats() const { return shared_->log.stats(kServiceListener); }
ListenerStats SandboxServer::storeStats() const { return shared_->log.stats(kStoreListener); }
std::vector<LoggedRequest> SandboxServer::requests() const { return shared_->log.requests(); }
void SandboxServer::clearStats() { shared_->log.clear(); }

}  // namespace varo::sandbox
