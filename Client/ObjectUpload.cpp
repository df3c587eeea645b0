#include "Client/ObjectUpload.h"

#include "Client/Failures.h"
#include "Client/ObjectAnswers.h"

#include <fmt/format.h>

#include <memory>
#include <utility>

namespace varo::detail::upload {

using platform::Data;
using platform::HttpMethod;
using platform::HttpResponse;
namespace xml = platform::xml;

namespace {

constexpr platform::ResponseLimits kLimits{kLongestAnswer, kLongestAnswer, kLongestAnswer};
constexpr char kUploadIdParameter[] = "uploadId";
/// Of what the store has chosen: it is kept for each part, and sent back.
constexpr std::size_t kLongestTag = 1024;
constexpr std::size_t kLongestId = 1024;
/// Of one upload; a page of their list has one at least.
constexpr std::size_t kMostParts = 10'000;

/// The parts, page by page.
class PartListing : public std::enable_shared_from_this<PartListing> {
 public:
  using End = std::function<void(Outcome<std::vector<StoredPart>>)>;

  PartListing(ObjectRunPtr run, Named named, End end)
      : run_(std::move(run)), named_(std::move(named)), end_(std::move(end)) {}

  void ask() {
    ObjectRequest request{.key = named_.key,
                          .query = {{kUploadIdParameter, named_.id.text()}},
                          .limits = kLimits,
                          .about = about()};
    if (!marker_.empty()) request.query.emplace_back("part-number-marker", marker_);
    run_->send(
        std::move(request), run_->cancellation(),
        [self = shared_from_this()](const Outcome<HttpResponse>& answer) { self->take(answer); });
  }

 private:
  [[nodiscard]] std::string about() const {
    return aboutObject("parts of the upload of", named_.key);
  }

  void take(const Outcome<HttpResponse>& answer) {
    if (!answer) return end_(answer.error());
    const auto page = xmlIn(*answer, "ListPartsResult", about());
    if (!page) return end_(page.error());
    for (const xml::Element& element : page->children) {
      if (element.name == "Part") add(element);
    }
    const std::string next = page->textOf("NextPartNumberMarker");
    if (page->textOf("IsTruncated") != "true") return end_(std::move(parts_));
    if (next == marker_ || ++pages_ == kMostParts || parts_.size() > kMostParts) {
      return end_(notAStore(*answer, about(), "its list of parts has no end"));
    }
    marker_ = next;
    ask();
  }

  void add(const xml::Element& element) {
    const auto number = sizeIn(element.textOf("PartNumber"));
    const auto size = sizeIn(element.textOf("Size"));
    std::string tag = element.textOf("ETag");
    if (!number || *number == 0 || !size || tag.empty() || tag.size() > kLongestTag) return;
    parts_.push_back({static_cast<std::size_t>(*number - 1), *size, std::move(tag)});
  }

  const ObjectRunPtr run_;
  const Named named_;
  const End end_;
  // Of one request after another.
  std::vector<StoredPart> parts_;
  std::string marker_;
  std::size_t pages_ = 0;
};

std::string completion(const std::vector<std::string>& entityTags) {
  std::string text = "<CompleteMultipartUpload xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">";
  for (std::size_t i = 0; i < entityTags.size(); ++i) {
    text += fmt::format("<Part><PartNumber>{}</PartNumber><ETag>{}</ETag></Part>", i + 1,
                        xml::escaped(entityTags[i]));
  }
  return text + "</CompleteMultipartUpload>";
}

}  // namespace

void create(const ObjectRun& run, const ObjectKey& key, const std::string& contentType,
            std::function<void(Outcome<UploadId>)> end) {
  const std::string about = aboutObject("put of", key);
  run.send({.method = HttpMethod::kPost,
            .key = key,
            .query = {{"uploads", ""}},
            .headers = {{"Content-Type", contentType}},
            .limits = kLimits,
            .about = about},
           {}, [about, end = std::move(end)](const Outcome<HttpResponse>& answer) {
             if (!answer) return end(answer.error());
             const auto result = xmlIn(*answer, "InitiateMultipartUploadResult", about);
             if (!result) return end(result.error());
             std::string id = result->textOf("UploadId");
             if (id.empty() || id.size() > kLongestId) {
               return end(notAStore(*answer, about, "it names no upload"));
             }
             end(UploadId(std::move(id)));
           });
}

void sendPart(const ObjectRun& run, const Named& named, std::size_t index, PartBody body,
              const std::stop_token& stop, std::function<void(Outcome<std::string>)> end) {
  const std::string about = aboutObject(fmt::format("put of part {} of", index + 1), named.key);
  run.send(
      {.method = HttpMethod::kPut,
       .key = named.key,
       .query = {{"partNumber", fmt::to_string(index + 1)}, {kUploadIdParameter, named.id.text()}},
       .body = std::move(body.bytes),
       .limits = kLimits,
       .onSent = std::move(body.onSent),
       .onRetry = std::move(body.onRetry),
       .about = about},
      stop, [about, end = std::move(end)](const Outcome<HttpResponse>& answer) {
        if (!answer) return end(answer.error());
        std::string tag = headerOf(*answer, "ETag").value_or("");
        if (tag.empty() || tag.size() > kLongestTag) {
          return end(notAStore(*answer, about, "it has no ETag"));
        }
        end(std::move(tag));
      });
}

void listParts(const ObjectRunPtr& run, const Named& named,
               std::function<void(Outcome<std::vector<StoredPart>>)> end) {
  std::make_shared<PartListing>(run, named, std::move(end))->ask();
}

void complete(const ObjectRun& run, const Named& named, const std::vector<std::string>& entityTags,
              std::function<void(Outcome<ObjectInfo>)> end) {
  const std::string about = aboutObject("put of", named.key);
  run.send({.method = HttpMethod::kPost,
            .key = named.key,
            .query = {{kUploadIdParameter, named.id.text()}},
            .headers = {{"Content-Type", "application/xml"}},
            .body = Data::fromBytes(completion(entityTags)),
            .limits = kLimits,
            .about = about},
           {}, [about, key = named.key, end = std::move(end)](const Outcome<HttpResponse>& answer) {
             if (!answer) return end(answer.error());
             // The status comes before the work is done: only the body says how it ended.
             const auto result = xmlIn(*answer, "CompleteMultipartUploadResult", about);
             if (!result) return end(result.error());
             ObjectInfo info{.key = key};
             info.entityTag = unquoted(result->textOf("ETag"));
             end(std::move(info));
           });
}

void abort(const ObjectRun& run, const Named& named, std::function<void(Outcome<void>)> end) {
  constexpr int kGone = 404;
  run.send({.method = HttpMethod::kDelete,
            .key = named.key,
            .query = {{kUploadIdParameter, named.id.text()}},
            .limits = kLimits,
            .alsoGood = kGone,
            .about = aboutObject("end of the upload of", named.key)},
           {}, [end = std::move(end)](const Outcome<HttpResponse>& answer) {
             if (!answer) return end(answer.error());
             end({});
           });
}

}  // namespace varo::detail::upload
