#include "Client/BlobBatch.h"
#include "Client/BlobFetch.h"
#include "Client/BlobStates.h"
#include "Client/BlobWatcher.h"
#include "Client/Failures.h"
#include "Client/PartPlan.h"
#include "varo/blobs.h"

#include <fmt/format.h>

#include <cstdint>
#include <system_error>
#include <utility>

namespace varo {

using detail::BlobBatch;
using detail::BlobFetch;
using detail::failureOf;

namespace {

constexpr std::uint64_t kMostRange = std::uint64_t{1} << 40;

Outcome<void> check(const BlobService& service) {
  const auto wrong = [](const std::string& what) {
    return failureOf(Kind::kInvalidArgument, "BlobService::" + what);
  };
  if (service.scope.empty()) return wrong("scope is empty");
  if (service.rangeSize.count == 0 || service.rangeSize.count > kMostRange) {
    return wrong(
        fmt::format("rangeSize is {} bytes, not from 1 to 1 TiB", service.rangeSize.count));
  }
  if (auto good = detail::checkedSideBySide(service.parallelRanges, "BlobService::parallelRanges");
      !good) {
    return good;
  }
  if (service.parameters.contains("")) return wrong("parameters has one without a name");
  return {};
}

}  // namespace

Outcome<BlobStore> BlobStore::open(const std::filesystem::path& database,
                                   const std::filesystem::path& files, BlobService service) {
  if (auto good = check(service); !good) return std::move(good).error();
  auto client = detail::ClientCore::create(service.options);
  if (!client) return std::move(client).error();
  auto opened = detail::BlobDatabase::open(database, files);
  if (!opened) return std::move(opened).error();
  return BlobStore(std::make_shared<detail::BlobStoreCore>(*std::move(client), *std::move(opened),
                                                           std::move(service)));
}

Transfer<std::filesystem::path> BlobStore::fetch(BlobRef blob) const {
  auto running = std::make_shared<BlobFetch::Fetching>();
  const auto operation = std::make_shared<BlobFetch>(core_, std::move(blob), running);
  operation->beginFor(*running, operation->about());
  return Transfer(std::move(running));
}

Transfer<std::vector<BlobState>> BlobStore::fetchAll(std::vector<BlobRef> blobs) const {
  auto running = std::make_shared<BlobBatch::Done>();
  const auto batch = std::make_shared<BlobBatch>(core_, std::move(blobs), running);
  running->named("fetch of the blobs");
  running->drivenBy(batch);
  batch->begin();
  return Transfer(std::move(running));
}

Outcome<std::vector<BlobRef>> BlobStore::blobsOf(const BlobColumn& column) const {
  return core_->database()->blobsOf(column);
}

Outcome<BlobState> BlobStore::state(const BlobRef& blob) const {
  return core_->database()->state(blob, "state of the blob " + detail::describe(blob));
}

Outcome<std::vector<BlobState>> BlobStore::states() const { return core_->database()->states(); }

BlobWatch BlobStore::watch(std::function<void(const BlobState&)> callback) const {
  if (callback == nullptr) return {};
  auto watcher = std::make_shared<detail::BlobWatcher>(std::move(callback), core_->database());
  core_->database()->add(watcher);
  return BlobWatch(std::move(watcher));
}

Outcome<std::filesystem::path> BlobStore::path(const BlobRef& blob) const {
  const std::string about = "path of the blob " + detail::describe(blob);
  auto state = core_->database()->state(blob, about);
  if (!state) return std::move(state).error();
  std::error_code unknown;
  if (!state->hasFile()) {
    return failureOf(Kind::kNotFound, fmt::format("{}: {}", about, state->reason));
  }
  if (!std::filesystem::exists(*state->path, unknown)) {
    return failureOf(Kind::kNotFound,
                     fmt::format("{}: There is no file \"{}\"", about, state->path->string()));
  }
  return *std::move(state->path);
}

Outcome<BlobState> BlobStore::remove(const BlobRef& blob, FileRemoval when) const {
  return core_->database()->remove(blob, when);
}

}  // namespace varo
