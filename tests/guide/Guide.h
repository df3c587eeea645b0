#pragma once

#include "Sandbox/SandboxServer.h"
#include "tests/support/TemporaryDirectory.h"
#include "varo/client.h"

#include <atomic>
#include <coroutine>
#include <cstring>
#include <fstream>
#include <future>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

/// What the programs of the guide's pages run in: a sandbox, and an empty directory, which is the
/// current one, with a photo in it.
namespace varo::guide {

class Guide {
 public:
  Guide();
  ~Guide();
  Guide(const Guide&) = delete;
  Guide& operator=(const Guide&) = delete;

  /// Ends the program where `holds` is false; `line` is that of the page.
  static void check(bool holds, int line);
  /// Ends the program where anything else was printed since the last time.
  void printed(const std::string& text);

  /// For the pages that show failures.
  sandbox::SandboxServer& server() { return server_; }

 private:
  const test::TemporaryDirectory directory_;
  sandbox::SandboxServer server_;
  std::ostringstream output_;
  std::streambuf* const terminal_;
};

/// The page. `files` is a client of the sandbox at `url`.
void run(Guide& guide, FileClient& files, const std::string& url);

}  // namespace varo::guide

// As an application would write it.
using namespace varo;
using namespace std::chrono_literals;
