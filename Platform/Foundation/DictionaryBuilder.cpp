#include "Platform/Foundation/DictionaryBuilder.h"

#include <optional>
#include <string>

namespace varo::platform {

std::size_t DictionaryBuilder::placeOfOther(std::string_view key) {
  if (follows_ && keys_.size() > 0) keys_ = keys_.firstKeys(values_.size());
  follows_ = false;
  if (const std::optional<std::size_t> present = keys_.find(key)) return *present;
  keys_.append(std::string(key));
  return values_.size();
}

Dictionary DictionaryBuilder::take() {
  Dictionary made;
  if (values_.size() == 0) return made;
  if (values_.size() < keys_.size()) keys_ = keys_.firstKeys(values_.size());
  values_.ownedHead() = keys_;
  std::swap(made.values_, values_);
  follows_ = true;
  return made;
}

}  // namespace varo::platform
