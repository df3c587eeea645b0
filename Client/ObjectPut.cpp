#include "Client/ObjectPut.h"

#include "Client/Failures.h"
#include "Client/ObjectAnswers.h"
#include "Client/ObjectSteps.h"
#include "Client/SourceData.h"
#include "Platform/Crypto/Md5.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/HeaderRules.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>

namespace varo::detail {

using platform::HttpMethod;
using platform::HttpResponse;
using platform::MutexLock;

namespace {

Outcome<void> checkedContentType(const std::string& contentType) {
  if (auto good = platform::checkHeader("Content-Type", contentType); !good) {
    return failureOf(Kind::kInvalidArgument, "PutOptions::contentType has control characters");
  }
  return {};
}

}  // namespace

ObjectPut::ObjectPut(std::shared_ptr<const ObjectPlace> place, ObjectKey key, Source source,
                     PutOptions options)
    : place_(std::move(place)),
      key_(std::move(key)),
      options_(std::move(options)),
      source_(std::move(source)),
      credentials_(place_->core()->holdCredentials({})) {
  // From now on, so that it is ended or named even where it cannot go on.
  if (options_.resume.empty() || !checked(key_)) return;
  upload_ = options_.resume;
  asksForParts_ = true;
}

/// How much there is to put is not known before the source is open.
std::uint64_t ObjectPut::memory() const {
  return memory::sideBySide(options_.partsAtOnce, memory::sending(options_.partSize.count));
}

void ObjectPut::run(const ObjectRunPtr& run, End end) {
  {
    const MutexLock lock(mutex_);
    credentials_ = run->credentials();
  }
  if (auto ready = prepare(*run); !ready) return end(std::move(ready).error());
  if (isOneRequest()) return sendWhole(run, end);
  bool isBegun = false;
  bool asksForParts = false;
  {
    const MutexLock lock(mutex_);
    isBegun = upload_.has_value();
    asksForParts = asksForParts_;
  }
  if (!isBegun) return beginUpload(run, end);
  if (asksForParts) return findParts(run, end);
  sendParts(run, end);
}

Outcome<void> ObjectPut::prepare(const ObjectRun& run) {
  if (data_) return {};
  if (!source_) return cancelledObject(about());  // given up before its end
  if (auto good = checked(key_); !good) return good;
  if (auto good = checkedContentType(options_.contentType); !good) return good;
  if (auto good = PartPlan::ofUpload(0, options_.partSize); !good) return std::move(good).error();
  if (auto good = checkedSideBySide(options_.partsAtOnce, "PutOptions::partsAtOnce"); !good) {
    return good;
  }
  auto opened =
      dataFrom(*std::exchange(source_, std::nullopt), about(), run.running(), run.givenUp());
  if (!opened) return std::move(opened).error();
  auto plan = PartPlan::ofUpload(opened->size(), options_.partSize);
  if (!plan) return std::move(plan).error();
  plan_ = *plan;
  const MutexLock lock(mutex_);
  entityTags_.resize(isOneRequest() ? 0 : plan_.count());
  progress_.begin(entityTags_.size());
  data_ = *std::move(opened);
  return {};
}

bool ObjectPut::isOneRequest() const {
  return plan_.size <= options_.partSize.count && options_.resume.empty();
}

ObjectInfo ObjectPut::whole(ObjectInfo info) const {
  info.size = Bytes(plan_.size);
  info.contentType = options_.contentType;
  return info;
}

void ObjectPut::sendWhole(const ObjectRunPtr& run, const End& end) {
  run->running().reached(0, plan_.size);
  run->send({.method = HttpMethod::kPut,
             .key = key_,
             .headers = {{"Content-Type", options_.contentType}},
             .body = *data_,
             .limits = {kLongestAnswer, kLongestAnswer, kLongestAnswer},
             .onSent = [run, size = plan_.size](
                           std::uint64_t bytes) { run->running().reached(bytes, size); },
             .about = about()},
            run->cancellation(),
            [work = self<ObjectPut>(), run, end](const Outcome<HttpResponse>& answer) {
              if (!answer) return end(answer.error());
              if (!headerOf(*answer, "ETag")) {
                return end(notAStore(*answer, work->about(), "it has no ETag"));
              }
              run->running().reached(work->plan_.size, work->plan_.size);
              ObjectInfo info{.key = work->key_};
              info.entityTag = unquoted(*headerOf(*answer, "ETag"));
              end(work->whole(std::move(info)));
            });
}

void ObjectPut::beginUpload(const ObjectRunPtr& run, const End& end) {
  if (run->cancellation().stop_requested()) return end(cancelledObject(about()));
  upload::create(*run, key_, options_.contentType,
                 [work = self<ObjectPut>(), run, end](Outcome<UploadId> made) {
                   if (!made) return end(std::move(made).error());
                   {
                     const MutexLock lock(work->mutex_);
                     work->upload_ = *made;
                   }
                   if (work->options_.onBegun != nullptr) {
                     static_cast<void>(run->running().move([&] { work->options_.onBegun(*made); }));
                   }
                   work->sendParts(run, end);
                 });
}

void ObjectPut::findParts(const ObjectRunPtr& run, const End& end) {
  upload::listParts(
      run, {key_, *begun()},
      [work = self<ObjectPut>(), run, end](Outcome<std::vector<upload::StoredPart>> found) {
        if (!found) return end(std::move(found).error());
        if (auto taken = work->takeParts(*run, *std::move(found)); !taken) {
          return end(std::move(taken).error());
        }
        work->sendParts(run, end);
      });
}

Outcome<void> ObjectPut::takeParts(const ObjectRun& run, std::vector<upload::StoredPart> found) {
  std::vector<std::string> noted;
  {
    const MutexLock lock(mutex_);
    noted = noted_;
  }
  for (upload::StoredPart& part : found) {
    // Those of another size come from another plan, and are sent again.
    if (part.index >= plan_.count() || part.size != plan_.length(part.index)) continue;
    if (!noted.empty() && part.entityTag != noted[part.index]) continue;
    if (noted.empty()) {
      const auto isOurs = isOfTheseBytes(part, run.cancellation());
      if (!isOurs) return isOurs.error();
      if (!*isOurs) continue;
    }
    took(run.running(), part.index, std::move(part.entityTag));
  }
  const MutexLock lock(mutex_);
  asksForParts_ = false;
  noted_.clear();
  return {};
}

/// A part that somebody else has sent, perhaps another process: the source may have changed since,
/// and nothing but the digest of its bytes tells. Many stores name a part by its MD5; a tag that is
/// made otherwise equals none.
Outcome<bool> ObjectPut::isOfTheseBytes(const upload::StoredPart& part,
                                        const std::stop_token& stop) const {
  platform::Md5 hash;
  const auto read = readPieces(data_->slice(plan_.first(part.index), plan_.length(part.index)),
                               stop, [&hash](std::string_view piece) { hash.update(piece); });
  if (!read) return failureFrom(read.error(), about());
  const auto digest = hash.hex();
  return digest && platform::equalIgnoringCase(unquoted(part.entityTag), *digest);
}

void ObjectPut::handedOver(RunningBase& running, std::size_t index, std::uint64_t bytes) {
  if (const auto done = progress_.moved(index, bytes)) running.reached(*done, plan_.size);
}

void ObjectPut::took(RunningBase& running, std::size_t index, std::string entityTag) {
  {
    const MutexLock lock(mutex_);
    entityTags_[index] = std::move(entityTag);
  }
  running.reached(progress_.whole(index, plan_.length(index)), plan_.size);
}

void ObjectPut::sendParts(const ObjectRunPtr& run, const End& end) {
  run->running().reached(progress_.beginRun(), plan_.size);
  const auto work = self<ObjectPut>();
  ObjectSteps::run(
      progress_.missing(),
      {.control = platform::ParallelismControl(static_cast<std::size_t>(options_.partsAtOnce))},
      run->cancellation(),
      [work, run](const ObjectSteps::Step& step) { work->sendPart(run, step); },
      [work, run, end](Outcome<void> sent) {
        if (!sent) return end(std::move(sent).error());
        work->complete(run, end);
      });
}

void ObjectPut::sendPart(const ObjectRunPtr& run, const ObjectSteps::Step& step) {
  const auto work = self<ObjectPut>();
  const std::size_t index = step.index;
  upload::sendPart(
      *run, {key_, *begun()}, index,
      {.bytes = data_->slice(plan_.first(index), plan_.length(index)),
       .onSent = [work, run,
                  index](std::uint64_t bytes) { work->handedOver(run->running(), index, bytes); },
       .onRetry = step.onRetry},
      step.stop, [work, run, step](Outcome<std::string> entityTag) {
        if (!entityTag) return step.done(std::move(entityTag).error());
        work->took(run->running(), step.index, *std::move(entityTag));
        step.done(work->plan_.length(step.index));
      });
}

void ObjectPut::complete(const ObjectRunPtr& run, const End& end) {
  if (run->cancellation().stop_requested()) return end(cancelledObject(about()));
  std::vector<std::string> entityTags;
  {
    const MutexLock lock(mutex_);
    entityTags = entityTags_;
  }
  upload::complete(*run, {key_, *begun()}, entityTags,
                   [work = self<ObjectPut>(), run, end](Outcome<ObjectInfo> made) {
                     if (!made && work->asksAgainAfter(made.error())) {
                       return work->findParts(run, end);
                     }
                     if (!made) return end(std::move(made).error());
                     {
                       const MutexLock lock(work->mutex_);
                       work->upload_.reset();
                     }
                     end(work->whole(*std::move(made)));
                   });
}

/// A part that an earlier run had on its way may come so late that it takes the place of the one
/// that was sent after it. Whatever has another tag than was noted is sent once more.
bool ObjectPut::asksAgainAfter(const Failure& failure) {
  const MutexLock lock(mutex_);
  if (failure.kind != Kind::kIntegrity || std::exchange(hasAskedAgain_, true)) return false;
  asksForParts_ = true;
  noted_ = std::exchange(entityTags_, std::vector<std::string>(entityTags_.size()));
  progress_.begin(entityTags_.size());
  return true;
}

std::optional<UploadId> ObjectPut::begun() const {
  const MutexLock lock(mutex_);
  return upload_;
}

void ObjectPut::giveUp(Failure failure, const std::function<void(Failure)>& done) {
  std::optional<UploadId> id;
  std::shared_ptr<HeldCredentials> credentials;
  {
    const MutexLock lock(mutex_);
    id = upload_;
    credentials = credentials_;
  }
  if (!id || options_.keepParts) {
    failure.upload = id;
    return done(std::move(failure));
  }
  Failure left = failure;
  left.upload = id;
  const auto run = ObjectRun::begin(
      place_, credentials->atTheEnd(), {}, nullptr,
      [done, left](const Failure& /*why*/) { done(left); },
      [observer = observer()](platform::RequestSettings& settings) {
        settings.retry.reset();  // who has cancelled waits for this
        settings.observer = observer;
      });
  if (!run) return done(std::move(left));
  upload::abort(**run, {key_, *id},
                [done, left, failure = std::move(failure)](const Outcome<void>& aborted) {
                  done(aborted ? failure : left);
                });
}

}  // namespace varo::detail
