#pragma once

#include "varo/c/options.h"
#include "varo/options.h"
#include "varo/outcome.h"

#include <memory>

namespace varo::capi {

/// What the functions of one client's options get. They hold it, so that it is freed with the last
/// of them, on whatever thread that is.
class UserData {
 public:
  UserData(void* pointer, varo_free_fn free) noexcept : pointer_(pointer), free_(free) {}
  UserData(const UserData&) = delete;
  UserData& operator=(const UserData&) = delete;
  ~UserData() {
    if (isOurs_ && free_ != nullptr) free_(pointer_);
  }

  [[nodiscard]] void* pointer() const noexcept { return pointer_; }
  /// There is a client: from now on it is freed. Before anything else uses the client.
  void adopt() noexcept { isOurs_ = true; }

 private:
  void* const pointer_;
  const varo_free_fn free_;
  bool isOurs_ = false;
};

struct GivenOptions {
  Options options;
  std::shared_ptr<UserData> user;
};

[[nodiscard]] Outcome<GivenOptions> optionsFrom(const varo_options* options);

}  // namespace varo::capi

struct varo_credentials {
  varo::Credentials credentials;
  std::string refusal;
};
