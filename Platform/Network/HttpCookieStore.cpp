#include "Platform/Network/HttpCookieStore.h"

namespace varo::platform {

HttpCookieStore& HttpCookieStore::sharedStore() noexcept {
  static HttpCookieStore store;
  return store;
}

}  // namespace varo::platform
