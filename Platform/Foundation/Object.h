#pragma once

#include <memory>
#include <string>

namespace varo::platform {

/// Base of everything shared by reference inside a `Value`: callback holders, tasks, blocks,
/// chunks. A concrete class states its own threading rules.
class Object {
 public:
  Object() = default;
  Object& operator=(const Object&) = delete;
  virtual ~Object() = default;

  /// A short text for logs. Never contains secrets or bulk data.
  [[nodiscard]] virtual std::string description() const = 0;

 protected:
  /// For a class whose objects may be copied: never as an `Object`.
  Object(const Object&) = default;
};

using ObjectPtr = std::shared_ptr<Object>;

}  // namespace varo::platform
