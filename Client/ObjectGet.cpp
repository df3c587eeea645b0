#include "Client/ObjectGet.h"

#include "Binary/Binary/Utils/ContentRange.h"
#include "Client/ObjectAnswers.h"
#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Runtime.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <limits>
#include <string_view>
#include <utility>
#include <variant>

namespace varo::detail {

using binary::ContentRange;
using platform::Data;
using platform::HttpResponse;
using platform::JobContext;
using platform::MutexLock;

namespace {

constexpr std::uint64_t kSmallestPart = std::uint64_t{64} << 10U;
constexpr std::uint64_t kLargestPart = std::uint64_t{5} << 30U;
/// Positions beyond are in no object; sums of two stay within 64 bits.
constexpr auto kLastByte = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
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
  if (auto good = checkedSideBySide(options.partsAtOnce, "GetOptions::partsAtOnce"); !good) {
    return good;
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

std::chrono::steady_clock::time_point now() { return platform::Clock::system().steadyNow(); }

std::uint64_t bytesIn(const HttpResponse& response) {
  return response.body ? response.body->size() : 0;
}

}  // namespace

ObjectGet::ObjectGet(std::shared_ptr<const ObjectPlace> place, ObjectKey key, Destination to,
                     GetOptions options)
    : place_(std::move(place)), key_(std::move(key)), options_(options), to_(std::move(to)) {}

std::uint64_t ObjectGet::memory() const {
  return memory::sideBySide(options_.partsAtOnce, memory::getting(options_.partSize.count));
}

void ObjectGet::run(const ObjectRunPtr& run, End end) {
  if (auto ready = prepare(); !ready) return end(std::move(ready).error());
  if (prepared_ && prepared_->kept) {
    return end(ObjectInfo{.key = key_, .file = *prepared_->kept});
  }
  if (plan_) return askOthers(run, {.control = newControl()}, nullptr, end);
  askFirst(run, end);
}

Outcome<void> ObjectGet::prepare() {
  if (!to_) return {};
  if (auto good = checked(key_); !good) return good;
  if (auto good = checkedOptions(options_); !good) return good;
  Destination to = *std::exchange(to_, std::nullopt);
  if (auto* path = std::get_if<std::filesystem::path>(&to)) return prepareFile(std::move(*path));
  if (options_.keepParts) return wrong(about() + ": GetOptions::keepParts is for files alone");
  Sink sink = std::get<Sink>(std::move(to));
  if (sink == nullptr) return wrong(about() + ": the destination is an empty function");
  sink_ = std::make_unique<OrderedSink>(std::move(sink), about());
  return {};
}

Outcome<void> ObjectGet::prepareFile(std::filesystem::path path) {
  auto prepared = detail::prepare(std::move(path), options_.ifExists);
  if (!prepared) return std::move(prepared).error();
  prepared_ = *std::move(prepared);
  if (!options_.keepParts || prepared_->kept) return {};
  const ObjectPlace::Address& address = place_->address();
  const auto object =
      platform::Sha256::of(fmt::format("{}{}/{}", address.origin, address.path, key_.text()));
  if (!object) return failureFrom(object.error(), about());
  object_ = object->hex();
  auto parts = PartsFile::beside(prepared_->path, object_, about());
  if (!parts) return std::move(parts).error();
  setParts(*std::move(parts));
  return {};
}

std::shared_ptr<PartsFile> ObjectGet::parts() const {
  const MutexLock lock(mutex_);
  return parts_;
}

std::shared_ptr<PartsFile> ObjectGet::setParts(std::shared_ptr<PartsFile> parts) {
  const MutexLock lock(mutex_);
  return std::exchange(parts_, std::move(parts));
}

void ObjectGet::giveUp(Failure failure, const std::function<void(Failure)>& done) {
  keepParts();
  setParts(nullptr).reset();
  done(std::move(failure));
}

void ObjectGet::keepParts() const {
  // Where it fails, the next get has less to go on with; why this one has ended is told.
  if (const auto file = parts()) static_cast<void>(file->record());
}

std::optional<PartsRecord> ObjectGet::found() const {
  const auto file = parts();
  if (file == nullptr || !file->found()) return std::nullopt;
  const PartsRecord& record = *file->found();
  const std::uint64_t most = options_.range && options_.range->length
                                 ? options_.range->length->count
                                 : std::numeric_limits<std::uint64_t>::max();
  const bool isOfThis = record.plan.partSize == options_.partSize.count &&
                        record.first == begin() &&
                        record.plan.size == std::min(most, record.objectSize - record.first);
  return isOfThis ? std::optional(record) : std::nullopt;
}

ObjectGet::Control ObjectGet::newControl() const {
  return Control(static_cast<std::size_t>(options_.partsAtOnce));
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
  const auto left = found();
  const ObjectRange range = options_.range.value_or(ObjectRange{});
  const std::size_t index = left ? left->firstMissing() : 0;
  const std::uint64_t length =
      left ? left->plan.length(index)
           : std::min(options_.partSize.count, range.length.value_or(options_.partSize).count);
  ObjectRequest first = request(range.first + index * options_.partSize.count, length);
  // A store without ranges sends all there is.
  if (!options_.range) first.limits.success = platform::ResponseLimits::kUnlimited;
  first.alsoGood = kNoSuchRange;
  // What the whole is, the head of the response will tell.
  const std::uint64_t before = left ? left->bytesThere() : 0;
  const std::uint64_t size = left ? left->plan.size : 0;
  const auto work = self<ObjectGet>();
  first.onReceived = [work, run, index, before, size](std::uint64_t bytes) {
    const auto done = work->progress_.moved(index, bytes);
    run->running().reached(done.value_or(before + bytes), done ? work->plan_->size : size);
  };
  Control control = newControl();
  const auto flight = control.begin(now());
  const auto part = std::make_shared<FirstPart>(
      [work, run, control, flight, end](const Outcome<HttpResponse>& answer) {
        if (!answer) return end(answer.error());
        Control measured = control;
        measured.succeeded(*flight, now(), bytesIn(*answer));
        work->takeFirst(run, *answer, measured, end);
      },
      run->cancellation());
  // Of a shorter one there is no other part.
  if (!left && length == options_.partSize.count) {
    first.onHead = headTaker(run, part, {.control = control, .begun = flight}, end);
    first.onRetry = [part] { part->stayAlone(); };
  }
  run->send(std::move(first), part->token(),
            [part](const Outcome<HttpResponse>& answer) { part->answered(answer); });
}

ObjectGet::HeadTaker ObjectGet::headTaker(const ObjectRunPtr& run, const FirstPartPtr& first,
                                          const ObjectSteps::Pace& pace, const End& end) {
  return [work = self<ObjectGet>(), run, first, pace, end, context = JobContext::current()](
             int status, const std::vector<platform::HttpHeader>& headers) {
    ObjectSteps::Pace answered = pace;
    answered.control.answered(*answered.begun, now());
    if (status != kPart || answered.control.allowed() == 1) return;
    HttpResponse head;
    head.status = status;
    head.headers = headers;
    const JobContext::Scope scope(context);
    // Who calls this moves bytes, and making a file may take a while.
    platform::Runtime::shared().pool().postOrRun([work, run, first, head, answered, end] {
      work->askBeside(run, first, head, answered, end);
    });
  };
}

void ObjectGet::askBeside(const ObjectRunPtr& run, const FirstPartPtr& first,
                          const HttpResponse& head, const ObjectSteps::Pace& pace, const End& end) {
  const auto range = rangeIn(head);
  const bool isOne =
      !range || static_cast<std::uint64_t>(*range->total) - begin() <= options_.partSize.count;
  if (isOne || !first->claim()) return;
  try {
    const auto bytes = static_cast<std::uint64_t>(range->span->last - range->span->first) + 1;
    // Where its head is not good enough, the whole answer tells why.
    if (!planFrom(head, bytes)) return first->takeAlone();
    askOthers(run, pace, first, end);
  } catch (const std::exception& thrown) {
    first->takeIn(
        {}, [end, failure = failureOf(Kind::kOther, thrown.what())](const auto&) { end(failure); });
  }
}

void ObjectGet::askWhole(const ObjectRunPtr& run, const End& end) {
  run->send({.key = key_,
             .limits = {options_.partSize.count, kRefusal, kRefusal},
             .spoolDirectory = directory(),
             .about = about()},
            run->cancellation(),
            [work = self<ObjectGet>(), run, end](const Outcome<HttpResponse>& answer) {
              if (!answer) return end(answer.error());
              work->takeFirst(run, *answer, work->newControl(), end);
            });
}

void ObjectGet::takeFirst(const ObjectRunPtr& run, const HttpResponse& response, Control control,
                          const End& end) {
  std::size_t index = 0;
  if (const auto left = found()) {
    index = left->firstMissing();
    if (!goesOnWith(*left, response)) {
      // The object was replaced since: the first part tells what it is now.
      parts()->forgetFound();
      return askFirst(run, end);
    }
  } else if (response.status == kNoSuchRange) {
    // No byte is in a range of an object without bytes.
    if (!options_.range) return askWhole(run, end);
    Failure failure = refusalFrom(response, about(), {});
    failure.kind = Kind::kInvalidArgument;
    return end(std::move(failure));
  } else if (auto planned = planFrom(response, bytesIn(response)); !planned) {
    return end(std::move(planned).error());
  }
  auto taken = take(run->running(), index, response.body.value_or(Data()), run->cancellation());
  if (!taken) return end(std::move(taken).error());
  askOthers(run, {.control = control}, nullptr, end);
}

bool ObjectGet::goesOnWith(const PartsRecord& found, const HttpResponse& response) {
  plan_ = found.plan;
  entityTag_ = found.entityTag;
  info_ = infoFrom(response, key_);
  info_.size = Bytes(found.objectSize);
  const std::size_t index = found.firstMissing();
  if (!checkPart(response, bytesIn(response), index)) {
    plan_.reset();
    return false;
  }
  parts()->goOn();
  progress_.begin(plan_->count());
  for (std::size_t i = 0; i < plan_->count(); ++i) {
    // The one that has come again counts when it is stored.
    if (i != index && found.isThere[i]) progress_.whole(i, plan_->length(i));
  }
  return true;
}

Outcome<void> ObjectGet::planFrom(const HttpResponse& response, std::uint64_t bytes) {
  PartPlan plan{bytes, std::max<std::uint64_t>(bytes, 1)};
  info_ = infoFrom(response, key_);
  info_.size = Bytes(bytes);
  if (response.status == kPart) {
    const auto range = rangeIn(response);
    if (!range) return notAStore(response, about(), "it does not say what part it is");
    const std::uint64_t first = begin();
    const auto total = static_cast<std::uint64_t>(*range->total);
    if (first >= total) return notAStore(response, about(), "it is another part");
    const std::uint64_t most = options_.range && options_.range->length
                                   ? options_.range->length->count
                                   : std::numeric_limits<std::uint64_t>::max();
    plan = {std::min(most, total - first), options_.partSize.count};
    info_.size = Bytes(total);
    if ((plan.size - 1) / plan.partSize >= PartsRecord::kMostParts) {
      return wrong(fmt::format("{}: {} bytes are more than {} parts of GetOptions::partSize",
                               about(), plan.size, PartsRecord::kMostParts));
    }
  } else if (response.status != kWhole || options_.range) {
    return notAStore(response, about(), "it is not the part that was asked for");
  }
  entityTag_ = headerOf(response, "ETag").value_or("");
  plan_ = plan;
  auto good = response.status == kPart ? checkPart(response, bytes, 0) : Outcome<void>();
  if (good) good = beginFile();
  if (!good) {
    plan_.reset();
    return good;
  }
  // Last, as whoever counts the bytes of the first part reads the plan when this has begun.
  progress_.begin(plan.count());
  return good;
}

Outcome<void> ObjectGet::beginFile() {
  auto file = parts();
  if (!prepared_ || (file == nullptr && plan_->count() == 1)) return {};
  if (file == nullptr) {
    auto made = PartsFile::nameless(directory());
    if (!made) return failureFrom(made.error(), about());
    file = std::move(made).value();
    setParts(file);
  }
  PartsRecord record{.object = object_,
                     .entityTag = entityTag_,
                     .objectSize = info_.size->count,
                     .first = begin(),
                     .plan = *plan_,
                     .isThere = std::vector<bool>(plan_->count())};
  const auto begun = file->begin(std::move(record));
  return begun ? Outcome<void>() : Outcome<void>(failureFrom(begun.error(), about()));
}

Outcome<void> ObjectGet::checkPart(const HttpResponse& head, std::uint64_t bytes,
                                   std::size_t index) const {
  const auto range = rangeIn(head);
  if (head.status != kPart || !range) {
    return notAStore(head, about(), "it is not the part that was asked for");
  }
  if (headerOf(head, "ETag").value_or("") != entityTag_ ||
      static_cast<std::uint64_t>(*range->total) != info_.size->count) {
    return failureOf(Kind::kConflict,
                     fmt::format("{}: the object was replaced meanwhile", about()));
  }
  const std::uint64_t first = begin() + plan_->first(index);
  const std::uint64_t length = plan_->length(index);
  if (static_cast<std::uint64_t>(range->span->first) != first ||
      static_cast<std::uint64_t>(range->span->last) != first + length - 1 || bytes != length) {
    return failureOf(Kind::kIntegrity,
                     fmt::format("{}: the store sent other bytes than the {} from {} that were "
                                 "asked for",
                                 about(), length, first));
  }
  return {};
}

void ObjectGet::askOthers(const ObjectRunPtr& run, ObjectSteps::Pace pace,
                          const FirstPartPtr& first, const End& end) {
  // Parts that come too early for a sink wait for the one before them.
  if (sink_ != nullptr) pace.window = static_cast<std::size_t>(options_.partsAtOnce);
  const auto work = self<ObjectGet>();
  ObjectSteps::run(
      progress_.missing(), pace, run->cancellation(),
      [work, run, first](const ObjectSteps::Step& step) {
        if (first == nullptr || step.index != 0) return work->askPart(run, step);
        first->takeIn(step.stop, [work, run, step](const Outcome<HttpResponse>& answer) {
          if (!answer) return step.done(answer.error());
          step.done(work->takePart(run, step, *answer, nullptr));
        });
      },
      [work, run, end](Outcome<void> got) {
        if (got) return work->finish(run, end);
        work->keepParts();  // the process may end during a pause
        end(std::move(got).error());
      });
}

void ObjectGet::askPart(const ObjectRunPtr& run, const ObjectSteps::Step& step) {
  const std::size_t index = step.index;
  ObjectRequest part = request(begin() + plan_->first(index), plan_->length(index));
  part.onRetry = step.onRetry;
  part.onReceived = [work = self<ObjectGet>(), run, index,
                     size = plan_->size](std::uint64_t bytes) {
    if (const auto done = work->progress_.moved(index, bytes)) run->running().reached(*done, size);
  };
  // A weak tag would match nothing.
  if (entityTag_.starts_with('"')) part.headers.push_back({"If-Match", entityTag_});
  const auto receiver = receiverOf(index);
  part.receiver = receiver;
  run->send(std::move(part), step.stop,
            [work = self<ObjectGet>(), run, step, receiver](const Outcome<HttpResponse>& answer) {
              if (answer) {
                return step.done(work->takePart(run, step, *answer, receiver.get()));
              }
              if (receiver != nullptr) static_cast<void>(receiver->finish());
              step.done(answer.error());
            });
}

std::shared_ptr<PartReceiver> ObjectGet::receiverOf(std::size_t index) {
  const auto file = parts();
  if (file == nullptr) return nullptr;
  return std::make_shared<PartReceiver>(
      file, plan_->first(index), plan_->length(index),
      [work = self<ObjectGet>(), index](const HttpResponse& head) {
        return work->checkPart(head, work->plan_->length(index), index).has_value();
      });
}

Outcome<std::uint64_t> ObjectGet::takePart(const ObjectRunPtr& run, const ObjectSteps::Step& step,
                                           const HttpResponse& response, PartReceiver* receiver) {
  if (receiver == nullptr) {
    auto good = checkPart(response, bytesIn(response), step.index);
    const Data bytes = response.body.value_or(Data());
    if (good) good = take(run->running(), step.index, bytes, step.stop);
    return good ? Outcome<std::uint64_t>(bytes.size()) : std::move(good).error();
  }
  const auto bytes = receiver->finish();
  if (!bytes) return failureFrom(bytes.error(), about());
  if (auto good = checkPart(response, *bytes, step.index); !good) return std::move(good).error();
  const auto file = parts();
  if (file == nullptr) return cancelledObject(about());  // given up before its end
  if (const auto stored = file->written(step.index); !stored) {
    return failureFrom(stored.error(), about());
  }
  run->running().reached(progress_.whole(step.index, *bytes), plan_->size);
  return *bytes;
}

Outcome<void> ObjectGet::take(RunningBase& running, std::size_t index, const Data& bytes,
                              const std::stop_token& stop) {
  auto stored = sink_ != nullptr ? sink_->take(index, bytes, running, stop) : store(index, bytes);
  if (!stored) return stored;
  running.reached(progress_.whole(index, bytes.size()), plan_->size);
  return {};
}

Outcome<void> ObjectGet::store(std::size_t index, const Data& bytes) {
  if (plan_->count() == 1) {
    onlyPart_ = bytes;
    return {};
  }
  const auto file = parts();
  if (file == nullptr) return cancelledObject(about());  // given up before its end
  const auto written = file->write(index, bytes);
  return written ? Outcome<void>() : Outcome<void>(failureFrom(written.error(), about()));
}

void ObjectGet::finish(const ObjectRunPtr& run, const End& end) {
  // Those that came during a pause.
  if (sink_ != nullptr) {
    if (auto handed = sink_->handOver(run->running(), run->cancellation()); !handed) {
      return end(std::move(handed).error());
    }
  }
  if (run->cancellation().stop_requested() && (prepared_ || !sink_->isEmpty())) {
    return end(cancelledObject(about()));
  }
  ObjectInfo info = info_;
  if (prepared_) {
    auto stored = nameFile();
    if (!stored) return end(std::move(stored).error());
    info.file = *std::move(stored);
  }
  end(std::move(info));
}

Outcome<std::filesystem::path> ObjectGet::nameFile() {
  const auto file = parts();
  const auto store = [&] {
    if (onlyPart_) return prepared_->store(*onlyPart_);
    if (options_.keepParts) return prepared_->move(*file->file());
    return prepared_->store(Data::fromFileRegion(file->file(), 0, plan_->size));
  };
  auto stored = store();
  if (!stored) return failureFrom(stored.error(), about());
  if (file != nullptr) file->remove();
  setParts(nullptr).reset();
  return std::filesystem::path(std::move(stored).value());
}

}  // namespace varo::detail
