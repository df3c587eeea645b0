#include "Client/ObjectList.h"

#include "Client/ObjectAnswers.h"
#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/TimeText.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace varo::detail {

using platform::HttpResponse;
namespace xml = platform::xml;

namespace {

/// What a store gives at once.
constexpr std::size_t kMostInPage = 1000;
/// Without `ObjectListOptions::most`: some hundred megabytes.
constexpr std::size_t kMostByDefault = 1'000'000;
/// One after another, of a store that has removed many objects; then it will not end.
constexpr std::size_t kMostEmptyPages = 100;

/// What "encoding-type=url" makes of a key: percent-encoding, with "+" for a blank.
std::string decoded(std::string text, bool isEncoded) {
  if (!isEncoded) return text;
  std::replace(text.begin(), text.end(), '+', ' ');
  return platform::percentDecode(text);
}

}  // namespace

ObjectList::ObjectList(ObjectListOptions options) : options_(std::move(options)) {}

std::string ObjectList::about() const {
  if (options_.prefix.empty()) return "list of the objects";
  return fmt::format("list of the objects with \"{}\"", platform::sanitizeUtf8(options_.prefix));
}

void ObjectList::run(const ObjectRunPtr& run, End end) {
  const std::size_t most = options_.most.value_or(kMostByDefault + 1);
  if (found_.size() >= most) return end(std::exchange(found_, {}));
  ObjectRequest request{
      .query = {{"list-type", "2"},
                {"encoding-type", "url"},
                {"max-keys", fmt::to_string(std::min(kMostInPage, most - found_.size()))}},
      .limits = {kLongestAnswer, kLongestAnswer, kLongestAnswer},
      .about = about()};
  const auto add = [&request](const char* name, const std::string& value) {
    if (!value.empty()) request.query.emplace_back(name, value);
  };
  add("prefix", options_.prefix);
  add("delimiter", options_.delimiter);
  add("continuation-token", token_);
  run->send(std::move(request), run->cancellation(),
            [work = self<ObjectList>(), run, end](const Outcome<HttpResponse>& answer) {
              if (!answer) return end(answer.error());
              work->take(run, *answer, end);
            });
}

void ObjectList::take(const ObjectRunPtr& run, const HttpResponse& response, const End& end) {
  const auto page = xmlIn(response, "ListBucketResult", about());
  if (!page) return end(page.error());
  auto entries = entriesIn(*page, response);
  if (!entries) return end(std::move(entries).error());
  emptyPages_ = entries->empty() ? emptyPages_ + 1 : 0;
  std::move(entries->begin(), entries->end(), std::back_inserter(found_));
  if (!options_.most && found_.size() > kMostByDefault) {
    return end(failureOf(Kind::kInvalidArgument,
                         fmt::format("{}: there are more than {}; ObjectListOptions::most is to "
                                     "say how many",
                                     about(), kMostByDefault)));
  }
  if (options_.most && found_.size() > *options_.most) found_.resize(*options_.most);
  std::string next = page->textOf("NextContinuationToken");
  if (page->textOf("IsTruncated") != "true") return end(std::exchange(found_, {}));
  if (next.empty() || next == token_ || emptyPages_ > kMostEmptyPages) {
    return end(notAStore(response, about(), "the list has no end"));
  }
  token_ = std::move(next);
  this->run(run, end);
}

Outcome<std::vector<ObjectInfo>> ObjectList::entriesIn(const xml::Element& page,
                                                       const HttpResponse& response) const {
  const bool isEncoded = page.textOf("EncodingType") == "url";
  std::vector<ObjectInfo> entries;
  for (const xml::Element& element : page.children) {
    const bool isPrefix = element.name == "CommonPrefixes";
    if (!isPrefix && element.name != "Contents") continue;
    ObjectInfo entry;
    entry.isPrefix = isPrefix;
    entry.key = ObjectKey(decoded(element.textOf(isPrefix ? "Prefix" : "Key"), isEncoded));
    if (entry.key.empty()) return notAStore(response, about(), "an entry has no key");
    if (!isPrefix) {
      if (const auto size = sizeIn(element.textOf("Size"))) entry.size = Bytes(*size);
      entry.entityTag = unquoted(element.textOf("ETag"));
      entry.modified = platform::isoTime(element.textOf("LastModified"));
    }
    entries.push_back(std::move(entry));
  }
  std::sort(entries.begin(), entries.end(),
            [](const ObjectInfo& left, const ObjectInfo& right) { return left.key < right.key; });
  return entries;
}

}  // namespace varo::detail
