#pragma once

#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Mutex.h"
#include "tests/support/BlobStoreFixture.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TestProxy.h"
#include "varo/client.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <istream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace varo::test {

/// Gives the token of the moment to any number of clients of a service, or of a store, whose keys'
/// session token it is. A client that asks again was refused it, so then the next one is due.
/// Thread-safe; outlives the clients.
class Tokens {
 public:
  explicit Tokens(int current = 1) : current_(current) {}

  static std::string text(int number) { return "token " + std::to_string(number); }

  /// For one client.
  [[nodiscard]] std::function<Outcome<Credentials>()> provider() {
    return [this, last = std::make_shared<int>(0)] {
      const platform::MutexLock lock(mutex_);
      if (*last == current_) ++current_;
      *last = current_;
      return Credentials{.token = text(current_),
                         .accessKey = "sandbox",
                         .secretKey = "sandbox-secret-key",
                         .sessionToken = text(current_),
                         .expires = std::chrono::system_clock::now() + std::chrono::hours(1)};
    };
  }
  [[nodiscard]] int current() const {
    const platform::MutexLock lock(mutex_);
    return current_;
  }
  void beginAgain() {
    const platform::MutexLock lock(mutex_);
    current_ = 1;
  }

 private:
  mutable platform::Mutex mutex_;
  int current_ VARO_GUARDED_BY(mutex_);
};

inline std::string digestOf(std::string_view bytes) {
  const auto digest = platform::Sha256::of(bytes);
  return digest.ok() ? digest.value().hex() : "";
}

inline std::uint16_t portOf(const std::string& url) {
  return static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
}

/// Where the parts of a back end are.
struct Addresses {
  std::string service, blobs, templates, objects, store;

  static Addresses of(const sandbox::SandboxServer& server) {
    return {server.url(), server.blobUrl(), server.templateUrl(),
            server.originUrl() + "/services/online/objects", server.storeUrl()};
  }
  /// For another process: a line each.
  [[nodiscard]] std::string text() const {
    return service + '\n' + blobs + '\n' + templates + '\n' + objects + '\n' + store + '\n';
  }
  static Addresses in(std::istream& lines) {
    Addresses at;
    for (auto* part : {&at.service, &at.blobs, &at.templates, &at.objects, &at.store}) {
      std::getline(lines, *part);
    }
    return at;
  }
  [[nodiscard]] std::uint16_t servicePort() const { return portOf(sandbox::split(service).origin); }
  [[nodiscard]] std::uint16_t storePort() const { return portOf(store); }
};

enum class Column { kFile, kBlob, kOnline, kSigned };

inline std::string nameOf(std::size_t number) { return "thing " + std::to_string(number) + "."; }

/// Clients of all kinds, which store things and get them, by numbers. The blobs are those of the
/// database "blobs" in the directory. Thread-safe.
class Application {
 public:
  /// `options` are asked for once for each client. `signsOnline`: the online client signs itself.
  Application(const std::string& directory, const Addresses& at,
              const std::function<Options(Column)>& options, bool signsOnline = false,
              int parallelRanges = 4)
      : files_(FileClient::create(withUrl(options(Column::kFile), at.service)).value()),
        blobs_(BlobStore::open(directory + "/blobs.db", directory + "/blobs",
                               {.options = withUrl(options(Column::kBlob), at.blobs),
                                .scope = "blobs",
                                .rangeSize = 64_KiB,
                                .parallelRanges = parallelRanges})
                   .value()),
        online_(ObjectStore::create(signsOnline ? signing(at) : signedByService(at),
                                    options(Column::kOnline))
                    .value()),
        signed_(
            ObjectStore::create(S3{.endpoint = at.store, .region = "us-east-1", .bucket = "bucket"},
                                options(Column::kSigned))
                .value()) {}

  /// Nothing for blobs. With `place`, a file: keeps there where the transfer could go on, and goes
  /// on there.
  [[nodiscard]] Outcome<void> put(Column column, std::size_t number, Source source,
                                  const std::string& place = {}) const {
    const std::string kept = place.empty() ? "" : contentOf(place);
    const auto keep = [place](const std::string& text) {
      if (place.empty()) return;
      writeFile(place + ".new", text);
      std::filesystem::rename(place + ".new", place);
    };
    const ObjectKey key(nameOf(number));
    if (column == Column::kBlob) return {};
    if (column == Column::kOnline) return ended(online_.put(key, std::move(source)));
    if (column == Column::kSigned) {
      return ended(signed_.put(key, std::move(source),
                               {.partSize = 5_MiB,
                                .keepParts = !place.empty(),
                                .resume = UploadId(kept),
                                .onBegun = [keep](const UploadId& id) { keep(id.text()); }}));
    }
    return ended(files_.upload(
        std::move(source),
        {.name = nameOf(number),
         .resume = UploadPlace(kept),
         .onPlace = [keep](const FileId&, const UploadPlace& at) { keep(at.text()); }}));
  }
  /// Into `copy`, which is not there. There must not be two files of one name.
  [[nodiscard]] Outcome<void> get(Column column, std::size_t number,
                                  const std::filesystem::path& copy) const {
    if (column == Column::kFile) {
      const auto found = once(files_.list(field("file_name") == nameOf(number)));
      if (!found) return found.error();
      EXPECT_LE(found->size(), 1U) << nameOf(number);
      return ended(files_.download(found->empty() ? FileId("none") : found->front().id, copy));
    }
    if (column == Column::kBlob) {
      const auto file = once(blobs_.fetch(
          {.table = "album", .column = "photo", .keys = {{"pk", static_cast<int>(number)}}}));
      if (!file) return file.error();
      std::filesystem::copy_file(*file, copy);
      return {};
    }
    const ObjectStore& store = column == Column::kOnline ? online_ : signed_;
    return ended(store.get(ObjectKey(nameOf(number)), copy, {.partSize = 64_KiB}));
  }

 private:
  /// The service says where an upload goes: to the store, at an address that it has signed.
  static TemplateService signedByService(const Addresses& at) {
    return {.templates = at.templates,
            .store = at.objects,
            .parameters = {{"sandbox_template", R"({"domain": "store", "auth": "presigned"})"}}};
  }
  static TemplateService signing(const Addresses& at) {
    return {.templates = at.templates, .store = at.store, .region = "us-east-1"};
  }
  static Options withUrl(Options options, const std::string& url) {
    options.url = url;
    return options;
  }
  /// Its outcome, which is told exactly once.
  template <typename T>
  static Outcome<T> once(Transfer<T> transfer) {
    std::atomic<int> told = 0;
    auto outcome = [&] {
      const auto handle =
          std::move(transfer).onDone([&told](const Outcome<T>& /*outcome*/) { ++told; });
      return handle.get();
    }();
    EXPECT_EQ(told, 1);
    return outcome;
  }
  template <typename T>
  static Outcome<void> ended(Transfer<T> transfer) {
    const auto outcome = once(std::move(transfer));
    if (!outcome) return outcome.error();
    return {};
  }

  const FileClient files_;
  const BlobStore blobs_;
  const ObjectStore online_;
  const ObjectStore signed_;
};

/// A bad network: a sandbox that wants tokens, and, where a test makes one, a line to it.
class NetworkFixture : public BlobStoreFixture {
 protected:
  /// Of this test in another process, which is told `text`. Its directory is "child".
  [[nodiscard]] ChildProcess::Settings otherProcess(const std::string& text) const {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    std::filesystem::create_directories(path("child"));
    return {.program = std::filesystem::read_symlink("/proc/self/exe"),
            .arguments = {std::string("--gtest_filter=") + test->test_suite_name() + "." +
                          test->name()},
            // Where this test clears up for it.
            .environment = {{kChild, text}, {"TEST_TMPDIR", path("child") + "/"}},
            .directory = path("child")};
  }
  /// What this process is told, if it is such a one.
  [[nodiscard]] static const char* told() { return std::getenv(kChild); }

  void SetUp() override {
    if (told() == nullptr) restart({});
  }
  /// `options` are completed.
  void begin(sandbox::SandboxOptions options) {
    options.requiredToken = Tokens::text(1);
    restart(options);
    at_ = Addresses::of(*server_);
  }
  /// Ends all connections. Whoever asks the line for the addresses at the beginning finds the
  /// server where it is then.
  void restartServer() {
    server_->stop();
    EXPECT_FALSE(server_->start());
    for (Tokens& tokens : tokens_) tokens.beginAgain();  // it wants its first ones
    const Addresses now = Addresses::of(*server_);
    if (!line_) return;
    line_->redirect(at_.servicePort(), now.servicePort());
    line_->redirect(at_.storePort(), now.storePort());
  }

  /// Of the service, and of the store.
  Tokens& tokensOf(Column column) { return tokens_[column == Column::kSigned ? 1 : 0]; }

  Tokens tokens_[2];
  Addresses at_;
  std::optional<TestProxy> line_;

 private:
  static constexpr char kChild[] = "VARO_NETWORK_CHILD";
};

}  // namespace varo::test
