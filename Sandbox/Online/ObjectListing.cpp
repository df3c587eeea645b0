#include "Sandbox/Online/ObjectListing.h"

#include "Sandbox/Online/ListingQuery.h"
#include "Sandbox/Online/StoreXml.h"
#include "Sandbox/Storage/KeyOrder.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace varo::sandbox {
namespace {

struct Page {
  std::vector<KeyedBytes> objects;
  std::vector<std::string> groups;
  /// Where the next page begins; absent: there is none.
  std::optional<std::string> next;

  [[nodiscard]] std::size_t size() const { return objects.size() + groups.size(); }
};

/// What a key has up to the first delimiter behind the prefix, the delimiter included.
std::optional<std::string> groupOf(const ListingQuery& query, const std::string& key) {
  if (query.delimiter.empty()) return std::nullopt;
  const std::size_t at = key.find(query.delimiter, query.prefix.size());
  if (at == std::string::npos) return std::nullopt;
  return key.substr(0, at + query.delimiter.size());
}

Page pageOf(const DiskStore& objects, const ListingQuery& query) {
  Page page;
  // No entries are asked for, so none is missing.
  if (query.most == 0) return page;
  std::optional<std::string> from = query.from;
  while (from) {
    // One more than fits, which is the next page's first.
    const std::size_t limit = query.most - page.size() + 1;
    auto found = objects.list(query.bucket + query.prefix, query.bucket + *from, limit);
    bool hasMore = false;
    for (KeyedBytes& object : found) {
      object.key.erase(0, query.bucket.size());
      if (page.size() == query.most) {
        page.next = *from;
        return page;
      }
      if (auto group = groupOf(query, object.key)) {
        // All keys of the group are passed over, however many they are.
        from = firstBehindPrefix(*group);
        page.groups.push_back(*std::move(group));
        hasMore = true;
        break;
      }
      from = firstBehindKey(object.key);
      page.objects.push_back(std::move(object));
    }
    if (!hasMore) break;
  }
  return page;
}

class PageWriter {
 public:
  PageWriter(const HttpRequest& request, const ListingQuery& query)
      : request_(request), query_(query) {}

  std::string text(const Page& page) const {
    // The slash behind the bucket's name is no part of it.
    std::string xml = xmlElement("Name", query_.bucket.substr(0, query_.bucket.find('/')));
    xml += xmlElement("Prefix", encoded(query_.prefix));
    if (!query_.delimiter.empty()) xml += xmlElement("Delimiter", encoded(query_.delimiter));
    for (const auto& [parameter, element] :
         {std::pair("start-after", "StartAfter"), {"continuation-token", "ContinuationToken"}}) {
      const std::string* value = request_.parameter(parameter);
      if (value == nullptr) continue;
      xml += xmlElement(element, element[0] == 'S' ? encoded(*value) : *value);
    }
    if (query_.isUrlEncoded) xml += xmlElement("EncodingType", "url");
    xml += xmlElement("MaxKeys", std::to_string(query_.most));
    xml += xmlElement("KeyCount", std::to_string(page.size()));
    xml += xmlElement("IsTruncated", page.next ? "true" : "false");
    if (page.next) xml += xmlElement("NextContinuationToken", continuationToken(*page.next));
    for (const KeyedBytes& object : page.objects) xml += entry(object);
    for (const std::string& group : page.groups) {
      xml += xmlParent("CommonPrefixes", xmlElement("Prefix", encoded(group)));
    }
    return xml;
  }

 private:
  [[nodiscard]] std::string encoded(std::string_view key) const {
    return query_.isUrlEncoded ? listingEncoded(key) : std::string(key);
  }
  [[nodiscard]] std::string entry(const KeyedBytes& object) const {
    return xmlParent("Contents", xmlElement("Key", encoded(object.key)) +
                                     xmlElement("LastModified", xmlTime(object.state.modified)) +
                                     xmlElement("ETag", object.state.entityTag) +
                                     xmlElement("Size", std::to_string(object.state.size)) +
                                     xmlElement("StorageClass", "STANDARD"));
  }

  const HttpRequest& request_;
  const ListingQuery& query_;
};

}  // namespace

StoreOperation ObjectListing::operation() const {
  return {.method = "GET",
          .marker = "list-type",
          .others = {"prefix", "delimiter", "max-keys", "continuation-token", "start-after",
                     "encoding-type"},
          .target = StoreOperation::Target::kBucket,
          .run = [this](const HttpRequest& request, RequestBody&) { return list(request); }};
}

HttpResponse ObjectListing::list(const HttpRequest& request) const {
  const auto query = listingQueryOf(request);
  if (const auto* problem = std::get_if<StoreError>(&query)) return xmlResponse(*problem, request);
  const auto& asked = std::get<ListingQuery>(query);
  return xmlDocument("ListBucketResult", PageWriter(request, asked).text(pageOf(objects_, asked)));
}

}  // namespace varo::sandbox
