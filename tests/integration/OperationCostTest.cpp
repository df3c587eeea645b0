// What one more operation of each kind holds: the limits to the table in docs/benchmarks.md.

#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryDeleteTask.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "tests/support/FakeHttpTransport.h"
#include "tests/support/Files.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/ResourceUse.h"
#include "tests/support/ScriptedBackOff.h"
#include "tests/support/TemporaryDirectory.h"
#include "varo/client.h"

#include <SQLiteCpp/Database.h>

#include <arpa/inet.h>
#include <filesystem>
#include <iostream>
#include <sys/resource.h>
#include <system_error>

namespace varo {
namespace {

using platform::Dictionary;
using test::require;
using test::ResourceUse;

/// A silent server, and operations that go there; none of them ends before the process does.
struct Scene {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
  const std::string url = listen();
  const test::TemporaryDirectory directory;
  const std::string file = directory / "f";
  const FileClient files = FileClient::create({.url = url, .parallel = 99}).value();
  const ObjectStore objects = ObjectStore::create(S3{url, "r", "bucket"}, {.parallel = 99}).value();
  std::vector<int> connections;
  test::KeepingSleeper sleeper;
  const FileId id{"1"};
  const ObjectKey key{"k"};
  int begun = 0;

  [[nodiscard]] Source source() const { return Source::file(file); }
  [[nodiscard]] std::string listen() const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    require(!::listen(listener, 128) && !::getsockname(listener, generic, &length), "a port");
    return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  }
  /// How many have begun to send a request, or sleep.
  [[nodiscard]] int waiting() {
    while (connections.emplace_back(::accept(listener, nullptr, nullptr)) >= 0) continue;
    connections.pop_back();
    auto count = static_cast<int>(sleeper.wakes.calls().size());
    char byte = 0;
    for (const int one : connections) count += ::recv(one, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
    return count;
  }
  void fetch(int parallel) const {
    static const auto blobs = [&] {
      SQLite::Database base(directory / "db", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
      base.exec("CREATE TABLE t (id INTEGER PRIMARY KEY, blobref_c TEXT)");
      base.exec(binary::blobs::kCreateTable);
      for (int i = 0; i < 20; ++i) base.exec("INSERT INTO t VALUES (NULL, NULL)");
      const BlobService service{.options = {.url = url, .parallel = parallel}, .scope = "s"};
      return BlobStore::open(directory / "db", directory.path(), service).value();
    }();
    blobs.fetch({.table = "t", .column = "c", .keys = {{"id", begun + 1}}}).detach();
  }
  void upload() const {
    const Dictionary metadata{{"file_name", "f"}};
    const Dictionary place{{"filePath", file}};
    binary::BinaryFileStorageInterface::uploadBinaryWithUrl(
        url, "UploadInputTypeLocalFilePath",
        Dictionary{{"headers", Dictionary{}}, {"metadata", metadata}, {"file", place}}, {}, {}, {},
        {});
  }
  /// Of a service that accepts it and is never done with it.
  void remove() {
    static struct : platform::Random {
      std::int64_t integer(std::int64_t /*least*/, std::int64_t most) override { return most; }
    } random;
    static const auto busy = std::make_shared<test::FakeHttpTransport>();
    busy->forget();
    busy->setHandler([](const auto& /*request*/) {
      return test::answerWith(200,
                              R"({"httpStatusCode":202,"poll_api":"/7","poll_status":"true"})");
    });
    platform::VRONetworkUtility::setTransport(busy);
    const auto task = std::make_shared<binary::BinaryDeleteTask>(random, sleeper);
    task->setInputContext({{"url", "http://host/services/files"}});
    task->start();
  }
};

TEST(OperationCostTest, OneMoreHoldsNoMoreThanTheTableHas) {
  struct Kind {
    const char* name;
    int first, running;            // so many are begun before it is counted, and run at once
    std::size_t kib, descriptors;  // at most
    void (*begin)(Scene&);
  };
  static const Kind kKinds[] = {
      {"list", 2, 99, 112, 1, [](auto& s) { s.files.list().detach(); }},
      {"upload", 2, 99, 64, 1, [](auto& s) { s.upload(); }},
      {"upload that waits", 32, 32, 2, 0, [](auto& s) { s.upload(); }},
      {"download", 2, 99, 112, 1, [](auto& s) { s.files.download(s.id, s.file + "2").detach(); }},
      {"blob", 2, 99, 128, 2, [](auto& s) { s.fetch(99); }},
      {"blob that waits", 1, 1, 3, 0, [](auto& s) { s.fetch(1); }},
      {"put", 2, 99, 1280, 2, [](auto& s) { s.objects.put(s.key, s.source()).detach(); }},
      {"get", 2, 99, 112, 1, [](auto& s) { s.objects.get(s.key, s.file + "2").detach(); }},
      {"delete in back-off", 2, 99, 12, 0, [](auto& s) { s.remove(); }}};
  for (const Kind& kind : kKinds) {
    test::inOwnProcess([&kind] {
      const rlimit few{128, 128};  // a quarter of which is for uploads
      require(setrlimit(RLIMIT_NOFILE, &few) == 0, "the limit is set");
      static auto& scene = *new Scene();  // what sleeps refers to it until the end
      test::writeFile(scene.file, std::string(4 << 20, 'x'));
      const auto begin = [&](int count) {
        while (count-- > 0) kind.begin(scene), ++scene.begun;
        const int running = std::min(scene.begun, kind.running);
        require(test::eventually([&] { return scene.waiting() == running; }), "they wait");
        ResourceUse use;
        use.descriptors -= scene.connections.size();
        return use;
      };
      const ResourceUse before = begin(kind.first);
      const ResourceUse after = begin(16);
      std::cout << kind.name << ": " << before << "; 16 more: " << after << std::endl;
      // Of a sanitizer's allocator both memories are nothing. The database may open once more.
      require(after.memory <= before.memory + 16 * kind.kib * 1024, "memory");
      require(after.descriptors < before.descriptors + 16 * (kind.descriptors + 1), "descriptors");
      // None has one of its own; the pool may have grown while the rows of blobs were written.
      const auto threads = before.threads + 15;
      require(test::eventually([&] { return ResourceUse().threads <= threads; }), "threads");
      // Rows may still be written there: the database's journal comes and goes.
      const auto isGone = [&] {
        std::error_code failed;
        std::filesystem::remove_all(scene.directory.path(), failed);
        return !failed;
      };
      require(test::eventually(isGone), "the directory is removed");
    });
  }
}

}  // namespace
}  // namespace varo
