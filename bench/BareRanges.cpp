// What the library's offline blobs are measured against: the same ranges, fetched and written by a
// small program straight on libcurl, as one would write it who knows libcurl: easy handles that
// keep their connections, large buffers, each range gathered and then written.
//
//   bare_ranges URL RANGE_BYTES WRITE_BYTES FILE...
//
// GETs the object into each of the files, in ranges, written in pieces of at most WRITE_BYTES: one
// file with one easy handle, several side by side with a handle each. Does not wait for the disk.

#include "bench/KeptMemory.h"
#include "bench/NumberIn.h"

#include <curl/curl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

constexpr long kCurlBuffer = 512L * 1024;
constexpr long kPartialContent = 206;
constexpr int kPollMs = 1000;

/// An object that comes down into a file, one range after the other.
class RangedGet {
 public:
  struct Sizes {
    std::int64_t range;
    std::int64_t write;
  };

  RangedGet(const char* url, const char* path, Sizes sizes)
      : sizes_(sizes),
        file_(::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)),
        easy_(curl_easy_init(), &curl_easy_cleanup) {
    if (file_ < 0) throw std::runtime_error(fmt::format("cannot create {}", path));
    if (!easy_) throw std::runtime_error("no easy handle");
    gathered_.reserve(static_cast<std::size_t>(sizes.range));
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_BUFFERSIZE, kCurlBuffer);
    set(CURLOPT_URL, url);
    set(CURLOPT_WRITEFUNCTION, &RangedGet::gather);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_PRIVATE, this);
  }
  RangedGet(const RangedGet&) = delete;
  RangedGet& operator=(const RangedGet&) = delete;
  ~RangedGet() { ::close(file_); }

  [[nodiscard]] CURL* easy() const { return easy_.get(); }
  [[nodiscard]] bool isComplete() const { return total_ != 0 && offset_ == total_; }

  void askForNextRange() {
    gathered_.clear();
    const std::int64_t end = offset_ + sizes_.range;
    const std::int64_t last = (total_ == 0 ? end : std::min(end, total_)) - 1;
    set(CURLOPT_RANGE, fmt::format("{}-{}", offset_, last).c_str());
  }

  /// Writes what has come.
  void rangeEnded(CURLcode code) {
    long status = 0;
    curl_easy_getinfo(easy(), CURLINFO_RESPONSE_CODE, &status);
    if (code != CURLE_OK || status != kPartialContent || gathered_.empty()) {
      throw std::runtime_error(fmt::format("{}, status {}", curl_easy_strerror(code), status));
    }
    if (total_ == 0) readTotal();
    std::string_view left = gathered_;
    while (!left.empty()) {
      const auto size = std::min(left.size(), static_cast<std::size_t>(sizes_.write));
      if (::pwrite(file_, left.data(), size, offset_) != static_cast<ssize_t>(size)) {
        throw std::runtime_error("cannot write");
      }
      offset_ += static_cast<std::int64_t>(size);
      left.remove_prefix(size);
    }
  }

 private:
  static std::size_t gather(char* bytes, std::size_t size, std::size_t count, void* context) {
    static_cast<RangedGet*>(context)->gathered_.append(bytes, size * count);
    return size * count;
  }

  template <typename T>
  void set(CURLoption option, T value) {
    if (curl_easy_setopt(easy(), option, value) != CURLE_OK) {
      throw std::runtime_error("libcurl refuses an option");
    }
  }

  void readTotal() {
    curl_header* range = nullptr;
    if (curl_easy_header(easy(), "Content-Range", 0, CURLH_HEADER, -1, &range) == CURLHE_OK) {
      const std::string_view value = range->value;
      total_ = varo::bench::numberIn(value.substr(value.rfind('/') + 1));
    }
    if (total_ <= 0) throw std::runtime_error("the answer does not tell the size");
  }

  const Sizes sizes_;
  const int file_;
  const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy_;
  std::string gathered_;
  std::int64_t offset_ = 0;
  std::int64_t total_ = 0;  // 0 while unknown
};

void fetch(RangedGet& get) {
  while (!get.isComplete()) {
    get.askForNextRange();
    get.rangeEnded(curl_easy_perform(get.easy()));
  }
}

void check(CURLMcode code) {
  if (code != CURLM_OK) throw std::runtime_error(curl_multi_strerror(code));
}

/// Writes the range that has ended and asks for the next; whether there is one.
bool goOn(CURLM* multi, const CURLMsg& message) {
  CURL* const easy = message.easy_handle;
  const CURLcode result = message.data.result;  // gone with the removal
  RangedGet* get = nullptr;
  curl_easy_getinfo(easy, CURLINFO_PRIVATE, &get);
  get->rangeEnded(result);
  check(curl_multi_remove_handle(multi, easy));
  if (get->isComplete()) return false;
  get->askForNextRange();
  check(curl_multi_add_handle(multi, easy));
  return true;
}

void fetchSideBySide(const std::vector<std::unique_ptr<RangedGet>>& gets) {
  const std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)> multi(curl_multi_init(),
                                                                    &curl_multi_cleanup);
  if (!multi) throw std::runtime_error("no multi handle");
  for (const auto& get : gets) {
    get->askForNextRange();
    check(curl_multi_add_handle(multi.get(), get->easy()));
  }
  std::size_t left = gets.size();
  while (left > 0) {
    int running = 0;
    check(curl_multi_perform(multi.get(), &running));
    bool anyEnded = false;
    int queued = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi.get(), &queued)) {
      anyEnded = true;
      if (!goOn(multi.get(), *message)) --left;
    }
    if (!anyEnded && left > 0) {
      check(curl_multi_poll(multi.get(), nullptr, 0, kPollMs, nullptr));
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const RangedGet::Sizes sizes = {argc > 2 ? varo::bench::numberIn(argv[2]) : 0,
                                  argc > 3 ? varo::bench::numberIn(argv[3]) : 0};
  if (argc < 5 || sizes.range < 1 || sizes.write < 1) {
    fmt::print(stderr, "usage: bare_ranges URL RANGE_BYTES WRITE_BYTES FILE...\n");
    return 2;
  }
  varo::bench::keepFreedMemory();
  try {
    std::vector<std::unique_ptr<RangedGet>> gets;
    for (int i = 4; i < argc; ++i) {
      gets.push_back(std::make_unique<RangedGet>(argv[1], argv[i], sizes));
    }
    if (gets.size() == 1) {
      fetch(*gets.front());
    } else {
      fetchSideBySide(gets);
    }
  } catch (const std::exception& problem) {
    fmt::print(stderr, "bare_ranges: {}\n", problem.what());
    return 1;
  }
}
