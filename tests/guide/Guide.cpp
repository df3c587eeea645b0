#include "tests/guide/Guide.h"

#include <cstdlib>
#include <filesystem>

namespace varo::guide {

namespace {

[[noreturn]] void fail(const std::string& why) {
  std::cerr << why << '\n';
  std::_Exit(1);
}

sandbox::SandboxOptions optionsBelow(const std::string& directory) {
  sandbox::SandboxOptions options;
  options.dataDirectory = directory + "/sandbox";
  return options;
}

}  // namespace

Guide::Guide()
    : server_(optionsBelow(directory_.path())), terminal_(std::cout.rdbuf(output_.rdbuf())) {
  if (const auto error = server_.start()) fail(error->message);
  const std::string place = directory_ / "work";
  std::filesystem::create_directory(place);
  std::filesystem::current_path(place);
  std::ofstream("photo.jpg") << std::string(300'000, 'p');
}

Guide::~Guide() {
  std::cout.rdbuf(terminal_);
  std::filesystem::current_path("/");
}

void Guide::check(bool holds, int line) {
  if (!holds) fail("not so: the check in line " + std::to_string(line));
}

void Guide::printed(const std::string& text) {
  if (output_.str() != text) fail("printed:\n" + output_.str() + "expected:\n" + text);
  output_.str({});
}

}  // namespace varo::guide

int main() {
  varo::guide::Guide guide;
  const std::string url = guide.server().url();
  auto files = varo::FileClient::create({.url = url}).value();
  varo::guide::run(guide, files, url);
}
