#pragma once

#include "Client/ObjectOperation.h"
#include "Platform/Foundation/Xml.h"
#include "varo/objects.h"

#include <cstddef>
#include <string>
#include <vector>

namespace varo::detail {

/// Lists objects, page by page; a run after a pause goes on with the next page.
class ObjectList final : public ObjectWork<std::vector<ObjectInfo>> {
 public:
  explicit ObjectList(ObjectListOptions options);

  [[nodiscard]] std::string about() const override;
  [[nodiscard]] OperationKind kind() const override { return OperationKind::kObjectList; }
  void run(const ObjectRunPtr& run, End end) override;

 private:
  void take(const ObjectRunPtr& run, const platform::HttpResponse& response, const End& end);
  /// The entries of a page, in the order of their keys. A failure for one that cannot be.
  [[nodiscard]] Outcome<std::vector<ObjectInfo>> entriesIn(
      const platform::xml::Element& page, const platform::HttpResponse& response) const;

  const ObjectListOptions options_;

  // Of one request after another.
  std::vector<ObjectInfo> found_;
  /// Where the next page begins; empty for the first.
  std::string token_;
  /// Since the last one that had an entry.
  std::size_t emptyPages_ = 0;
};

}  // namespace varo::detail
