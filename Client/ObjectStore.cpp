#include "Client/ObjectAnswers.h"
#include "Client/ObjectGet.h"
#include "Client/ObjectList.h"
#include "Client/ObjectOperation.h"
#include "Client/ObjectPut.h"
#include "Client/TemplatePut.h"
#include "varo/objects.h"

#include <fmt/format.h>

#include <utility>

namespace varo {

using platform::HttpMethod;
using platform::HttpResponse;

namespace {

using detail::ObjectOperation;
using detail::ObjectRunPtr;
using detail::ObjectWork;

constexpr platform::ResponseLimits kLimits{detail::kLongestAnswer, detail::kLongestAnswer,
                                           detail::kLongestAnswer};

/// A work of one request.
template <typename T>
class OneRequest final : public ObjectWork<T> {
 public:
  using Read = std::function<Outcome<T>(const HttpResponse& response)>;

  OneRequest(OperationKind kind, detail::ObjectRequest request, Read read)
      : kind_(kind), request_(std::move(request)), read_(std::move(read)) {}

  [[nodiscard]] std::string about() const override { return request_.about; }
  [[nodiscard]] OperationKind kind() const override { return kind_; }

  void run(const ObjectRunPtr& run, typename ObjectWork<T>::End end) override {
    if (request_.key) {
      if (auto good = detail::checked(*request_.key); !good) return end(std::move(good).error());
    }
    run->send(request_, run->cancellation(),
              [read = read_, end = std::move(end)](const Outcome<HttpResponse>& answer) {
                if (!answer) return end(answer.error());
                end(read(*answer));
              });
  }

 private:
  const OperationKind kind_;
  const detail::ObjectRequest request_;
  const Read read_;
};

/// What only stores can do that are addressed directly.
template <typename T>
class Unserved final : public ObjectWork<T> {
 public:
  Unserved(OperationKind kind, std::string what) : kind_(kind), what_(std::move(what)) {}

  [[nodiscard]] std::string about() const override { return what_; }
  [[nodiscard]] OperationKind kind() const override { return kind_; }

  void run(const ObjectRunPtr& /*run*/, typename ObjectWork<T>::End end) override {
    end(detail::failureOf(Kind::kInvalidArgument,
                          fmt::format("{}: a TemplateService can put and get only", what_)));
  }

 private:
  const OperationKind kind_;
  const std::string what_;
};

template <typename T>
Transfer<T> begin(const std::shared_ptr<const detail::ObjectPlace>& place,
                  std::shared_ptr<ObjectWork<T>> work) {
  return Transfer<T>(ObjectOperation<T>::begin(place, std::move(work)));
}

template <typename T>
Transfer<T> beginOfStore(const std::shared_ptr<const detail::ObjectPlace>& place,
                         const std::string& about, std::shared_ptr<ObjectWork<T>> work) {
  if (place->templates() != nullptr) work = std::make_shared<Unserved<T>>(work->kind(), about);
  return begin<T>(place, std::move(work));
}

}  // namespace

Outcome<ObjectStore> ObjectStore::create(std::variant<TemplateService, S3> where, Options options) {
  return detail::ObjectPlace::create(std::move(where), std::move(options))
      .transform([](auto place) { return ObjectStore(std::move(place)); });
}

Transfer<ObjectInfo> ObjectStore::put(ObjectKey key, Source source, PutOptions options) const {
  std::shared_ptr<ObjectWork<ObjectInfo>> work;
  if (place_->templates() != nullptr) {
    work = std::make_shared<detail::TemplatePut>(place_, std::move(key), std::move(source),
                                                 options.perSecond);
  } else {
    work = std::make_shared<detail::ObjectPut>(place_, std::move(key), std::move(source),
                                               std::move(options));
  }
  return begin(place_, std::move(work));
}

Transfer<ObjectInfo> ObjectStore::get(ObjectKey key, Destination to, GetOptions options) const {
  return begin<ObjectInfo>(
      place_, std::make_shared<detail::ObjectGet>(place_, std::move(key), std::move(to), options));
}

Transfer<ObjectInfo> ObjectStore::head(ObjectKey key) const {
  const std::string about = detail::aboutObject("look-up of", key);
  const auto read = [key](const HttpResponse& response) -> Outcome<ObjectInfo> {
    ObjectInfo info = detail::infoFrom(response, key);
    const auto size = detail::sizeIn(detail::headerOf(response, "Content-Length").value_or(""));
    if (size) info.size = Bytes(*size);
    return info;
  };
  return beginOfStore<ObjectInfo>(
      place_, about,
      std::make_shared<OneRequest<ObjectInfo>>(OperationKind::kObjectHead,
                                               detail::ObjectRequest{.method = HttpMethod::kHead,
                                                                     .key = std::move(key),
                                                                     .limits = kLimits,
                                                                     .about = about},
                                               read));
}

Transfer<std::vector<ObjectInfo>> ObjectStore::list(ObjectListOptions options) const {
  return beginOfStore<std::vector<ObjectInfo>>(
      place_, "list of the objects", std::make_shared<detail::ObjectList>(std::move(options)));
}

Transfer<ObjectKey> ObjectStore::remove(ObjectKey key) const {
  const std::string about = detail::aboutObject("delete of", key);
  const auto read = [key](const HttpResponse& /*response*/) -> Outcome<ObjectKey> { return key; };
  return beginOfStore<ObjectKey>(
      place_, about,
      std::make_shared<OneRequest<ObjectKey>>(OperationKind::kObjectRemove,
                                              detail::ObjectRequest{.method = HttpMethod::kDelete,
                                                                    .key = std::move(key),
                                                                    .limits = kLimits,
                                                                    .about = about},
                                              read));
}

}  // namespace varo
