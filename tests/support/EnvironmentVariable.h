#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace varo::test {

/// Sets or removes an environment variable and puts it back at the end.
class EnvironmentVariable {
 public:
  EnvironmentVariable(std::string name, const std::optional<std::string>& value)
      : name_(std::move(name)) {
    if (const char* before = std::getenv(name_.c_str())) before_ = before;
    set(value);
  }
  ~EnvironmentVariable() { set(before_); }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

 private:
  void set(const std::optional<std::string>& value) const {
    if (value) ::setenv(name_.c_str(), value->c_str(), 1);
    if (!value) ::unsetenv(name_.c_str());
  }

  const std::string name_;
  std::optional<std::string> before_;
};

}  // namespace varo::test
