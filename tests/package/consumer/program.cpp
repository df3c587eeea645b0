// What an application sees of the package: the typed client's headers, and one library.
#include <iostream>
#include <string>
#include <utility>
#include <varo/client.h>

int main() {
  if (varo::version() != VARO_VERSION) return 1;

  varo::Options options;
  options.url = "no address";
  const auto refused = varo::FileClient::create(options);
  if (refused || refused.error().kind != varo::Kind::kInvalidArgument) return 2;
  std::cout << refused.error().message << '\n';

  options.url = "http://127.0.0.1:1/";  // nobody listens on this port
  const auto client = varo::FileClient::create(std::move(options));
  if (!client) return 3;
  const auto files = client->list().get();
  if (files || files.error().kind != varo::Kind::kNoConnection) return 4;
  std::cout << files.error().message << '\n';
  return varo::shutDown() ? 0 : 5;
}
