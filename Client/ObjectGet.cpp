#include "Client/ObjectGet.h"

#include "Binary/Binary/Utils/ContentRange.h"
#include "Client/ObjectAnswers.h"
#include "Client/ObjectSteps.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <string_view>
#include <utility>
#include <variant>

namespace varo::detail {

using binary::ContentRange;
using platform::Data;
using platform::HttpResponse;
using platform::MutexLock;

namespace {

/// Parts of one object that are asked for at once: enough to hide the wait for each answer.
constexpr std::size_t kPartsAtOnce = 4;
constexpr std::uint64_t kSmallestPart = std::uint64_t{64} << 10U;
constexpr std::uint64_t kLargestPart = std::uint64_t{5} << 30U;
/// Positions beyond are in no object; sums of two stay within 64 bits.
constexpr auto kLastByte = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
/// What is noted of each takes memory, and a store may say any size.
constexpr std::uint64_t kMostParts = 1'000'000;
constexpr std::uint64_t kRefusal = std::uint64_t{64} << 10U;
constexpr int kWhole = 200;
constexpr int kPart = 206;
constexpr int kNoSuchRange = 416;

Failure wrong(std::string what) { return failureOf(Kind::kInvalidArgument, std::move(what)); }

Outcome<void> checkedOptions(const GetOptions& options) {
  const std::uint64_t part = options.partSize.count;
  if (part < kSmallestPart || part > kLargestPart) {
    return wrong(fmt::format("GetOptions::partSize is {} bytes, not from 64 KiB to 5 GiB", part));
  }
  if (!options.range) return {};
  if (options.range->length == Bytes(0)) return wrong("GetOptions::range has no bytes");
  if (options.range->first > kLastByte) return wrong("GetOptions::range begins behind any object");
  return {};
}

/// What the response says that it has; none where it says nothing that can be.
std::optional<ContentRange> rangeIn(const HttpResponse& response) {
  const auto field = headerOf(response, "Content-Range");
  const auto range = field ? ContentRange::parse(*field) : std::nullopt;
  return range && range->span && range->total ? range : std::nullopt;
}

std::uint64_t bytesIn(const HttpResponse& response) {
  return response.body ? response.body->size() : 0;
}

}  // namespace

ObjectGet::ObjectGet(ObjectKey key, Destination to, GetOptions options)
    : key_(std::move(key)), options_(options), to_(std::move(to)) {}

/// Asked before the first run. Parts for a sink come one after another.
std::uint64_t ObjectGet::memory() const {
  const bool hasSink = to_ && std::holds_alternative<Sink>(*to_);
  return (hasSink ? 1 : kPartsAtOnce) * memory::getting(options_.partSize.count);
}

void ObjectGet::run(const ObjectRunPtr& run, End end) {
  if (auto ready = prepare(); !ready) return end(std::move(ready).error());
  if (prepared_ && prepared_->kept) {
    return end(ObjectInfo{.key = key_, .file = *prepared_->kept});
  }
  if (plan_) return askOthers(run, end);
  askFirst(run, end);
}

Outcome<void> ObjectGet::prepare() {
  if (!to_) return {};
  if (auto good = checked(key_); !good) return good;
  if (auto good = checkedOptions(options_); !good) return good;
  Destination to = *std::exchange(to_, std::nullopt);
  if (auto* path = std::get_if<std::filesystem::path>(&to)) {
    auto prepared = detail::prepare(std::move(*path), options_.ifExists);
    if (!prepared) return std::move(prepared).error();
    prepared_ = *std::move(prepared);
    return {};
  }
  sink_ = std::get<Sink>(std::move(to));
  if (sink_ != nullptr) return {};
  return failureOf(Kind::kInvalidArgument, about() + ": the destination is an empty function");
}

ObjectRequest ObjectGet::request(std::uint64_t first, std::uint64_t length) const {
  const std::uint64_t last = first + std::min(length - 1, kLastByte - first);
  return {.key = key_,
          .headers = {{"Range", fmt::format("bytes={}-{}", first, last)}},
          .limits = {kRefusal, length, kRefusal},
          .spoolDirectory = directory(),
          .about = about()};
}

void ObjectGet::askFirst(const ObjectRunPtr& run, const End& end) {
  const ObjectRange range = options_.range.value_or(ObjectRange{});
  const std::uint64_t length =
      std::min(options_.partSize.count, range.length.value_or(options_.partSize).count);
  ObjectRequest first = request(range.first, length);
  // A store without ranges sends all there is.
  if (!options_.range) first.limits.success = platform::ResponseLimits::kUnlimited;
  first.alsoGood = kNoSuchRange;
  run->send(std::move(first), run->cancellation(),
            [work = self<ObjectGet>(), run, end](const Outcome<HttpResponse>& answer) {
              if (!answer) return end(answer.error());
              if (answer->status != kNoSuchRange) return work->takeFirst(run, *answer, end);
              // No byte is in a range of an object without bytes.
              if (!work->options_.range) return work->askWhole(run, end);
              Failure failure = refusalFrom(*answer, work->about(), {});
              failure.kind = Kind::kInvalidArgument;
              end(std::move(failure));
            });
}

void ObjectGet::askWhole(const ObjectRunPtr& run, const End& end) {
  run->send({.key = key_,
             .limits = {options_.partSize.count, kRefusal, kRefusal},
             .spoolDirectory = directory(),
             .about = about()},
            run->cancellation(),
            [work = self<ObjectGet>(), run, end](const Outcome<HttpResponse>& answer) {
              if (!answer) return end(answer.error());
              work->takeFirst(run, *answer, end);
            });
}

void ObjectGet::takeFirst(const ObjectRunPtr& run, const HttpResponse& response, const End& end) {
  auto planned = planFrom(response);
  if (planned) planned = take(run->running(), 0, response.body.value_or(Data()));
  if (!planned) return end(std::move(planned).error());
  askOthers(run, end);
}

Outcome<void> ObjectGet::planFrom(const HttpResponse& response) {
  PartPlan plan{bytesIn(response), std::max<std::uint64_t>(bytesIn(response), 1)};
  info_ = infoFrom(response, key_);
  info_.size = Bytes(bytesIn(response));
  if (response.status == kPart) {
    const auto range = rangeIn(response);
    if (!range) return notAStore(response, about(), "it does not say what part it is");
    const std::uint64_t first = options_.range ? options_.range->first : 0;
    const auto total = static_cast<std::uint64_t>(*range->total);
    if (first >= total) return notAStore(response, about(), "it is another part");
    const std::uint64_t most = options_.range && options_.range->length
                                   ? options_.range->length->count
                                   : std::numeric_limits<std::uint64_t>::max();
    plan = {std::min(most, total - first), options_.partSize.count};
    info_.size = Bytes(total);
    if ((plan.size - 1) / plan.partSize >= kMostParts) {
      return wrong(fmt::format("{}: {} bytes are more than {} parts of GetOptions::partSize",
                               about(), plan.size, kMostParts));
    }
  } else if (response.status != kWhole || options_.range) {
    return notAStore(response, about(), "it is not the part that was asked for");
  }
  entityTag_ = headerOf(response, "ETag").value_or("");
  plan_ = plan;
  {
    const MutexLock lock(mutex_);
    isThere_.assign(plan.count(), false);
  }
  auto good = response.status == kPart ? checkPart(response, 0) : Outcome<void>();
  if (!good) plan_.reset();
  return good;
}

Outcome<void> ObjectGet::checkPart(const HttpResponse& response, std::size_t index) const {
  const auto range = rangeIn(response);
  if (response.status != kPart || !range) {
    return notAStore(response, about(), "it is not the part that was asked for");
  }
  if (headerOf(response, "ETag").value_or("") != entityTag_ ||
      static_cast<std::uint64_t>(*range->total) != info_.size->count) {
    return failureOf(Kind::kConflict,
                     fmt::format("{}: the object was replaced meanwhile", about()));
  }
  const std::uint64_t first = (options_.range ? options_.range->first : 0) + plan_->first(index);
  const std::uint64_t length = plan_->length(index);
  if (static_cast<std::uint64_t>(range->span->first) != first ||
      static_cast<std::uint64_t>(range->span->last) != first + length - 1 ||
      bytesIn(response) != length) {
    return failureOf(Kind::kIntegrity,
                     fmt::format("{}: the store sent other bytes than the {} from {} that were "
                                 "asked for",
                                 about(), length, first));
  }
  return {};
}

void ObjectGet::askOthers(const ObjectRunPtr& run, const End& end) {
  std::vector<std::size_t> missing;
  {
    const MutexLock lock(mutex_);
    for (std::size_t i = 0; i < isThere_.size(); ++i) {
      if (!isThere_[i]) missing.push_back(i);
    }
  }
  const auto work = self<ObjectGet>();
  ObjectSteps::run(
      std::move(missing), prepared_ ? kPartsAtOnce : 1, run->cancellation(),
      [work, run](std::size_t index, const std::stop_token& stop, Done done) {
        work->askPart(run, index, stop, std::move(done));
      },
      [work, run, end](Outcome<void> got) {
        if (!got) return end(std::move(got).error());
        work->finish(run, end);
      });
}

void ObjectGet::askPart(const ObjectRunPtr& run, std::size_t index, const std::stop_token& stop,
                        Done done) {
  const std::uint64_t begin = options_.range ? options_.range->first : 0;
  ObjectRequest part = request(begin + plan_->first(index), plan_->length(index));
  // A weak tag would match nothing.
  if (entityTag_.starts_with('"')) part.headers.push_back({"If-Match", entityTag_});
  run->send(std::move(part), stop,
            [work = self<ObjectGet>(), run, index,
             done = std::move(done)](const Outcome<HttpResponse>& answer) {
              if (!answer) return done(answer.error());
              auto good = work->checkPart(*answer, index);
              if (good) good = work->take(run->running(), index, answer->body.value_or(Data()));
              done(std::move(good));
            });
}

Outcome<void> ObjectGet::take(RunningBase& running, std::size_t index, const Data& bytes) {
  auto stored = prepared_ ? store(index, bytes) : handOver(running, bytes);
  if (!stored) return stored;
  std::uint64_t got = 0;
  {
    const MutexLock lock(mutex_);
    isThere_[index] = true;
    got_ += bytes.size();
    got = got_;
  }
  running.reached(got, plan_->size);
  return {};
}

Outcome<void> ObjectGet::handOver(RunningBase& running, const Data& bytes) {
  if (bytes.empty()) return {};
  std::optional<Outcome<void>> handed;
  const bool isCalled = running.move([&] { handed = handTo(sink_, bytes, about()); });
  if (!isCalled || !handed) return cancelledObject(about());
  return *std::move(handed);
}

Outcome<void> ObjectGet::store(std::size_t index, const Data& bytes) {
  if (plan_->count() == 1) {
    onlyPart_ = bytes;
    return {};
  }
  // The first part comes alone.
  if (file_ == nullptr) {
    auto made = platform::File::createUnnamed(directory());
    if (!made) return failureFrom(made.error(), about());
    file_ = std::move(made).value();
  }
  std::uint64_t at = plan_->first(index);
  const auto written = bytes.forEachPiece([&](std::string_view piece) {
    auto done = file_->writeAt(at, piece);
    at += piece.size();
    return done;
  });
  return written ? Outcome<void>() : Outcome<void>(failureFrom(written.error(), about()));
}

void ObjectGet::finish(const ObjectRunPtr& run, const End& end) {
  ObjectInfo info = info_;
  if (prepared_) {
    if (run->cancellation().stop_requested()) return end(cancelledObject(about()));
    const Data whole = onlyPart_ ? *onlyPart_ : Data::fromFileRegion(file_, 0, plan_->size);
    auto stored = prepared_->store(whole);
    if (!stored) return end(failureFrom(stored.error(), about()));
    info.file = std::move(stored).value();
  }
  end(std::move(info));
}

}  // namespace varo::detail
