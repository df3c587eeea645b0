// What the library's transfers are measured against: the same requests, made by a small program
// straight on libcurl, as one would write it who knows libcurl: one easy handle, large buffers, no
// `Expect`, positioned reads, few writes.
//
//   bare_transfer upload   SERVICE_URL FILE CHUNK_BYTES
//   bare_transfer download SERVICE_URL FILE

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
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr long kCurlBuffer = 512L * 1024;
constexpr std::size_t kWriteBuffer = std::size_t{64} * 1024;

class File {
 public:
  File(const char* path, int flags) : descriptor_(::open(path, flags | O_CLOEXEC, 0644)) {
    if (descriptor_ < 0) throw std::runtime_error(fmt::format("cannot open {}", path));
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { ::close(descriptor_); }

  [[nodiscard]] int descriptor() const { return descriptor_; }
  [[nodiscard]] std::int64_t size() const {
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0) throw std::runtime_error("cannot stat");
    return status.st_size;
  }

 private:
  const int descriptor_;
};

/// A piece of a file that libcurl reads as a request body.
struct Region {
  int file = -1;
  std::int64_t offset = 0;
  std::int64_t left = 0;
};

std::size_t readRegion(char* buffer, std::size_t size, std::size_t count, void* context) {
  auto& region = *static_cast<Region*>(context);
  const std::size_t wanted =
      std::min<std::size_t>(size * count, static_cast<std::size_t>(region.left));
  const ssize_t got = ::pread(region.file, buffer, wanted, region.offset);
  if (got < 0) return CURL_READFUNC_ABORT;
  region.offset += got;
  region.left -= got;
  return static_cast<std::size_t>(got);
}

std::size_t appendText(char* bytes, std::size_t size, std::size_t count, void* context) {
  static_cast<std::string*>(context)->append(bytes, size * count);
  return size * count;
}

/// Gathers libcurl's pieces of 16 KiB into larger writes.
class FileSink {
 public:
  explicit FileSink(int file) : file_(file) { gathered_.reserve(kWriteBuffer); }

  static std::size_t take(char* bytes, std::size_t size, std::size_t count, void* context) {
    auto& sink = *static_cast<FileSink*>(context);
    const std::size_t length = size * count;
    if (sink.gathered_.size() + length > kWriteBuffer && !sink.flush()) return 0;
    sink.gathered_.append(bytes, length);
    return length;
  }

  [[nodiscard]] bool flush() {
    const bool whole = ::write(file_, gathered_.data(), gathered_.size()) ==
                       static_cast<ssize_t>(gathered_.size());
    gathered_.clear();
    return whole;
  }

 private:
  const int file_;
  std::string gathered_;
};

class Client {
 public:
  Client() : curl_(curl_easy_init(), &curl_easy_cleanup) {
    if (!curl_) throw std::runtime_error("no easy handle");
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_BUFFERSIZE, kCurlBuffer);
    set(CURLOPT_UPLOAD_BUFFERSIZE, kCurlBuffer);
    set(CURLOPT_READFUNCTION, &readRegion);
  }

  template <typename T>
  void set(CURLoption option, T value) {
    if (curl_easy_setopt(curl_.get(), option, value) != CURLE_OK) {
      throw std::runtime_error("libcurl refuses an option");
    }
  }

  /// GETs into `sink`.
  void get(const std::string& url, curl_write_callback take, void* sink) {
    set(CURLOPT_HTTPGET, 1L);
    perform(url, {}, take, sink);
  }

  void sendJson(const char* method, const std::string& url, const std::string& body) {
    set(CURLOPT_POST, 1L);
    set(CURLOPT_CUSTOMREQUEST, method);
    set(CURLOPT_POSTFIELDS, body.c_str());
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    performForJson(url, "application/json");
  }

  void put(const std::string& url, Region region) {
    set(CURLOPT_UPLOAD, 1L);
    set(CURLOPT_CUSTOMREQUEST, static_cast<const char*>(nullptr));
    set(CURLOPT_READDATA, &region);
    set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(region.left));
    performForJson(url, "application/octet-stream");
  }

 private:
  void performForJson(const std::string& url, const char* contentType) {
    std::string answer;
    perform(url, contentType, &appendText, &answer);
    if (answer.find(R"("opstatus":0)") == std::string::npos) {
      throw std::runtime_error(fmt::format("{} answers {}", url, answer));
    }
  }

  void perform(const std::string& url, std::string_view contentType, curl_write_callback take,
               void* sink) {
    curl_slist* list = curl_slist_append(nullptr, "Expect:");
    if (!contentType.empty()) {
      list = curl_slist_append(list, fmt::format("Content-Type: {}", contentType).c_str());
    }
    const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(list,
                                                                              &curl_slist_free_all);
    set(CURLOPT_HTTPHEADER, headers.get());
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_WRITEFUNCTION, take);
    set(CURLOPT_WRITEDATA, sink);
    const CURLcode code = curl_easy_perform(curl_.get());
    long status = 0;
    curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &status);
    if (code != CURLE_OK || status != 200) {
      throw std::runtime_error(
          fmt::format("{}: {}, status {}", url, curl_easy_strerror(code), status));
    }
  }

  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl_;
};

void upload(const std::string& service, const char* path, std::int64_t chunkSize) {
  const File file(path, O_RDONLY);
  const std::int64_t size = file.size();
  const std::string chunkUrl = service.substr(0, service.rfind('/')) + "/bytes";
  Client client;
  client.sendJson("POST", service + "/objects/File", R"({"file_name":"upload.bin"})");
  std::int64_t sequence = 0;
  for (std::int64_t offset = 0; offset < size; offset += chunkSize) {
    client.put(fmt::format("{}?chunk_sequence={}", chunkUrl, ++sequence),
               {file.descriptor(), offset, std::min(chunkSize, size - offset)});
  }
  client.sendJson("PUT", service + "/objects/File", R"({"file_id":"1"})");
}

std::string textBetween(const std::string& text, std::string_view before, std::string_view after) {
  const std::size_t start = text.find(before);
  const std::size_t end = start == text.npos ? start : text.find(after, start + before.size());
  if (end == text.npos) throw std::runtime_error("the list answer has no template");
  return text.substr(start + before.size(), end - start - before.size());
}

void download(const std::string& service, const char* path) {
  Client client;
  std::string list;
  client.get(service + "/objects/File?%24filter=file_id%20eq%20%27x%27", &appendText, &list);
  const std::string url = textBetween(list, R"(\"domain\":\")", "\\\"") +
                          textBetween(list, R"(\"relativepath\":\")", "\\\"");
  const File file(path, O_WRONLY | O_CREAT | O_TRUNC);
  FileSink sink(file.descriptor());
  client.get(url, &FileSink::take, &sink);
  if (!sink.flush()) throw std::runtime_error("cannot write");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  varo::bench::keepFreedMemory();
  try {
    const std::int64_t chunkSize =
        command == "upload" && argc == 5 ? varo::bench::numberIn(argv[4]) : 0;
    if (chunkSize > 0) {
      upload(argv[2], argv[3], chunkSize);
    } else if (command == "download" && argc == 4) {
      download(argv[2], argv[3]);
    } else {
      fmt::print(stderr,
                 "usage: bare_transfer upload SERVICE_URL FILE CHUNK_BYTES\n"
                 "       bare_transfer download SERVICE_URL FILE\n");
      return 2;
    }
  } catch (const std::exception& problem) {
    fmt::print(stderr, "bare_transfer: {}\n", problem.what());
    return 1;
  }
}
