// What the network does to each kind of transfer, and what becomes of it.

#include "Client/UploadPoint.h"
#include "tests/support/Await.h"
#include "tests/support/NetworkFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <functional>
#include <future>
#include <iomanip>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace varo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using sandbox::FaultAction;
using sandbox::FaultMatch;
using test::Application;
using test::Column;
using test::contentOf;
using test::digestOf;
using test::eventually;
using test::ProxyRules;
using testing::HasSubstr;
using testing::Not;

// ---- columns ----

const char* nameOf(Column column) {
  constexpr const char* kNames[] = {"file", "blob", "online", "signed"};
  return kNames[static_cast<int>(column)];
}

enum class Half { kPut, kGet };

/// What one half of a column's transfer is on the wire.
struct Traffic {
  /// Its requests for bytes, and how many of them one transfer of 300,000 bytes makes.
  FaultMatch match;
  std::uint64_t requests;
  /// Whether it goes on where a process that was killed has stopped.
  bool survives = false;
  /// By the client, or by the service that says where to.
  bool isSigned = false;
};

std::optional<Traffic> trafficOf(Column column, Half half) {
  const bool isPut = half == Half::kPut;
  switch (column) {
    case Column::kFile:
      if (isPut) return Traffic{{.method = "PUT", .path = "/bytes/"}, 5, true};
      return Traffic{{.method = "GET", .path = "/bytes/"}, 1};
    case Column::kBlob:
      if (isPut) return std::nullopt;
      return Traffic{{.path = "/binary"}, 5, true};
    case Column::kOnline:
      if (isPut) return Traffic{{.method = "PUT", .listener = "store"}, 1, false, true};
      return Traffic{{.method = "GET", .path = "/online/objects"}, 5};
    case Column::kSigned:
      if (isPut) return Traffic{{.method = "PUT", .listener = "store"}, 1, true, true};
      return Traffic{{.method = "GET", .listener = "store"}, 5, false, true};
  }
  return std::nullopt;
}

// ---- rows ----

/// What happens while a request is under way.
enum class Meanwhile { kNothing, kRestart, kMove, kKill };

struct Row {
  const char* name;
  /// What befalls the requests for bytes of each half: `count` of them after `skip`, or less where
  /// there are not that many.
  FaultAction action = {};
  std::uint64_t skip = 0;
  std::uint64_t count = 1;
  /// Of every tenth request for bytes instead, in so many transfers.
  std::size_t rounds = 1;
  Meanwhile meanwhile = Meanwhile::kNothing;
  /// None: there is nothing between the client and the servers.
  std::optional<ProxyRules> line = {};
  const char* scheme = "socks5h";
  const char* password = "right";
  std::optional<Bytes> perSecond = {};
  std::chrono::milliseconds stallTimeout = 60s;
  std::chrono::seconds clockOffset = 0s;
  /// Failures of these columns, once; when their cause has gone, they succeed.
  std::map<Column, Kind> fails = {};
  /// Cells that there cannot be, and why.
  std::map<Column, const char*> without = {};
};
void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

/// The store's clock as its refusal tells it.
std::string dateIn(std::chrono::minutes later) {
  const std::time_t time =
      std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() + later);
  std::ostringstream text;
  text << std::put_time(std::gmtime(&time), "%a, %d %b %Y %H:%M:%S GMT");
  return text.str();
}

const std::map<Column, const char*> kOfSignatures = {{Column::kFile, "unsigned"},
                                                     {Column::kBlob, "unsigned"}};
const ProxyRules kStrict{.user = "ann", .password = "right"};

std::vector<Row> rows() {
  const std::map<Column, Kind> letNobodyIn = {{Column::kFile, Kind::kUnauthorized},
                                              {Column::kBlob, Kind::kUnauthorized},
                                              {Column::kOnline, Kind::kUnauthorized},
                                              {Column::kSigned, Kind::kUnauthorized}};
  const FaultAction answerHeld{.delay = -1ms};  // the server has done its work
  return {
      {.name = "Busy503", .action = {.status = 503}, .count = 3},
      {.name = "Throttled429",
       .action = {.status = 429, .headers = {{"Retry-After", "0"}}},
       .skip = 1,
       .count = 2},
      {.name = "ResetAtEveryTenth", .action = {.drop = true}, .rounds = 12},
      {.name = "StallAtByte5",
       .action = {.stallAfter = 5, .stallFor = -1ms},
       .skip = 1,
       .stallTimeout = 1s},
      {.name = "StallBeforeTheAnswer", .action = {.delay = -1ms}, .skip = 2, .stallTimeout = 1s},
      {.name = "TokenExpiresAtChunk3", .action = {.newToken = "next"}, .skip = 2},
      {.name = "SignatureExpires",
       .action = {.status = 403,
                  .body = "<Error><Code>RequestTimeTooSkewed</Code></Error>",
                  .headers = {{"Date", "soon"}}},
       .skip = 2,
       .without = kOfSignatures},
      {.name = "ClockIs20MinutesOff", .count = 0, .clockOffset = 20min, .without = kOfSignatures},
      {.name = "ProxyWithItsPassword", .count = 0, .line = kStrict, .scheme = "http"},
      {.name = "TunnelWithItsPassword", .count = 0, .line = kStrict},
      {.name = "ProxyWithAWrongPassword",
       .count = 0,
       .line = kStrict,
       .scheme = "http",
       .password = "wrong",
       .fails = letNobodyIn},
      {.name = "TunnelWithAWrongPassword",
       .count = 0,
       .line = kStrict,
       .password = "wrong",
       .fails = letNobodyIn},
      {.name = "Loses5Percent",
       .count = 0,
       // The seed breaks a connection with the 38th and the 69th of its segments: while bytes move,
       // and not while a record is made, which nobody repeats.
       .line = ProxyRules{.delay = 25ms,
                          .loss = 0.05,
                          .retransmission = 20ms,
                          .breaks = 0.25,
                          .mostBreaks = 2,
                          .seed = 33}},
      {.name = "NarrowLineWithALimit",
       .count = 0,
       .line = ProxyRules{.bytesPerSecond = 8 << 20U},
       .perSecond = 6_MiB},
      {.name = "ServerRestarts", .action = answerHeld, .skip = 2, .meanwhile = Meanwhile::kRestart},
      {.name = "AddressChanges",
       .action = answerHeld,
       .skip = 2,
       .meanwhile = Meanwhile::kMove,
       .line = ProxyRules{}},
      {.name = "KilledAndGoesOn", .action = answerHeld, .skip = 2, .meanwhile = Meanwhile::kKill},
  };
}

// ---- cells ----

class NetworkMatrixTest : public test::NetworkFixture,
                          public testing::WithParamInterface<std::tuple<Row, Column>> {
 protected:
  /// A back end that is as the row wants it, with "content" beside it.
  void prepare() {
    sandbox::SandboxOptions options;
    if (!signsOnline()) options.objectStore.sessionToken = test::Tokens::text(1);
    options.objectStore.clockOffset = row_.clockOffset;
    if (row_.meanwhile == Meanwhile::kRestart) {  // where it was
      options.port = test::portOf(server_->originUrl());
      options.storePort = test::portOf(server_->storeUrl());
    }
    begin(options);
    if (row_.line) line_.emplace(*row_.line);
    // A store's parts have at least 5 MiB.
    const bool hasParts = row_.meanwhile == Meanwhile::kKill && column_ == Column::kSigned;
    content_ = sandbox::sampleBytes(hasParts ? 5'500'000 : kBytes);
    test::writeFile(path("content"), content_);
    makeDatabase("blobs", static_cast<int>(row_.rounds), kBytes);
  }

  [[nodiscard]] bool isOfSignatures() const { return row_.without == kOfSignatures; }
  /// Else the service does, by the store's clock.
  [[nodiscard]] bool signsOnline() const {
    return row_.clockOffset != 0s && column_ == Column::kOnline;
  }
  [[nodiscard]] Options options(Column column) {
    Options options{.credentials = tokensOf(column).provider(),
                    .perSecond = row_.perSecond,
                    .chunkSize = 64_KiB,
                    .stallTimeout = row_.stallTimeout,
                    .retry = {.attempts = 5, .firstWait = 1ms, .longestWait = 2ms}};
    if (signsOnline()) {
      options.credentials = [token = test::Tokens::text(1)] {
        return Credentials{
            .token = token, .accessKey = "sandbox", .secretKey = "sandbox-secret-key"};
      };
    }
    if (line_) options.proxy = Proxy{.url = line_->url(row_.scheme)};
    if (line_ && !row_.line->user.empty()) {
      options.proxy->user = row_.line->user;
      options.proxy->password = password_;
    }
    if (row_.meanwhile != Meanwhile::kNothing) {
      // Until the server is back, however long that takes.
      options.retry = {.attempts = 100, .firstWait = 50ms, .longestWait = 200ms};
    }
    return options;
  }

  void addFaults(const Traffic& traffic) {
    if (row_.count == 0 || (isOfSignatures() && !traffic.isSigned)) return;
    sandbox::FaultRule rule{traffic.match, row_.action};
    if (rule.action.newToken) {
      rule.action.newToken = test::Tokens::text(tokensOf(column_).current() + 1);
      // Shown where an upload asks for its address; that needs none.
      if (column_ == Column::kOnline && rule.match.method == "PUT") rule.match = {.method = "POST"};
    }
    for (auto& [name, value] : rule.action.headers) {
      if (name == "Date") value = dateIn(5min);
    }
    if (row_.rounds > 1) {
      for (rule.match.skip = 9; rule.match.skip < 100; rule.match.skip += 10) {
        rule.match.count = 2;  // the transport itself repeats one whose kept connection breaks
        server_->addFault(rule);
      }
      return;
    }
    rule.match.skip = std::min(row_.skip, requestsOf(traffic) - 1);
    rule.match.count = row_.count;
    server_->addFault(rule);
  }
  [[nodiscard]] std::uint64_t requestsOf(const Traffic& traffic) const {
    return content_.size() > kBytes && traffic.match.method == "PUT" ? 2 : traffic.requests;
  }
  [[nodiscard]] std::size_t answered(const FaultMatch& match) const {
    const auto all = server_->requests();
    return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const auto& one) {
      return (match.method.empty() || one.method == match.method) &&
             one.path.find(match.path) != std::string::npos &&
             (match.listener.empty() || one.listener == match.listener);
    }));
  }

  /// What an application in `directory` does.
  Outcome<void> run(Half half, std::size_t round, const std::string& directory) {
    // Where it is killed, no other request may be on its way: the server would count it later.
    const int parallelRanges = row_.meanwhile == Meanwhile::kKill ? 1 : 4;
    const Application application(
        directory, at_, [this](Column column) { return options(column); }, signsOnline(),
        parallelRanges);
    if (half == Half::kGet) return application.get(column_, round, directory + "/copy");
    return application.put(column_, round, Source::file(directory + "/content"),
                           directory + "/place");
  }

  /// The half, during which the server goes away and comes back.
  Outcome<void> runWhileTheServerIsAway(Half half) {
    auto outcome = std::async(std::launch::async, [&] { return run(half, 1, directory_); });
    EXPECT_TRUE(eventually([&] { return server_->heldRequests() == 1; }));
    restartServer();
    return outcome.get();
  }

  /// The half in a process that is killed when the server has done the work of a request, and again
  /// in this one.
  Outcome<void> runAfterAKill(Half half, const Traffic& traffic) {
    const std::uint64_t before = std::min(row_.skip, requestsOf(traffic) - 1);
    const bool keepsPlace = half == Half::kPut && traffic.survives;
    server_->clearStats();
    {
      test::ChildProcess child(
          otherProcess((half == Half::kPut ? "put\n" : "get\n") + directory_ + "\n" + at_.text()));
      const auto isThere = [&] {
        return server_->heldRequests() == 1 && answered(traffic.match) >= before &&
               (!keepsPlace || hasKept(before)) && (column_ != Column::kBlob || hasWritten());
      };
      EXPECT_TRUE(eventually(isThere)) << child.output() << child.errors();
      child.signal(SIGKILL);
      EXPECT_EQ(child.wait(), -SIGKILL);
    }
    EXPECT_FALSE(fs::exists(path("copy")));
    server_->clearFaults();
    EXPECT_TRUE(eventually([&] { return answered(traffic.match) > before; }));
    server_->clearStats();
    auto outcome = run(half, 1, directory_);
    if (traffic.survives) {
      EXPECT_LT(answered(traffic.match), requestsOf(traffic));
    }
    return outcome;
  }
  /// Whether the place in the file is behind so many chunks: uploads do not wait for who keeps it.
  /// Of an object any place is.
  [[nodiscard]] bool hasKept(std::uint64_t chunks) const {
    if (column_ != Column::kFile) return fs::exists(path("place"));
    const auto point = detail::UploadPoint::from(UploadPlace(contentOf(path("place"))));
    return point && point->sent == chunks * Bytes(64_KiB).count;
  }
  /// Whether a blob's file has its first range.
  [[nodiscard]] bool hasWritten() const {
    const auto files = fs::directory_iterator(path("blobs"));
    return std::any_of(fs::begin(files), fs::end(files), [](const auto& file) {
      return file.is_regular_file() && file.file_size() >= Bytes(64_KiB).count;
    });
  }
  /// What that process does.
  void runAsChild() {
    std::istringstream lines(told());
    std::string half, directory;
    for (std::string* line : {&half, &directory}) std::getline(lines, *line);
    at_ = test::Addresses::in(lines);
    static_cast<void>(run(half == "put" ? Half::kPut : Half::kGet, 1, directory));
  }

  Outcome<void> runOnce(Half half, const Traffic& traffic, std::size_t round) {
    if (row_.meanwhile == Meanwhile::kNothing) return run(half, round, directory_);
    if (row_.meanwhile == Meanwhile::kKill) return runAfterAKill(half, traffic);
    return runWhileTheServerIsAway(half);
  }

  void expectFailure(const Outcome<void>& outcome, Kind kind) {
    ASSERT_FALSE(outcome);
    const Failure& failure = outcome.error();
    EXPECT_EQ(varo::nameOf(failure.kind), varo::nameOf(kind)) << failure.message;
    EXPECT_THAT(failure.message + failure.responseExcerpt + failure.cause.text,
                Not(testing::ContainsRegex("wrong|token 1")));
  }

  const Row row_ = std::get<Row>(GetParam());
  const Column column_ = std::get<Column>(GetParam());
  static constexpr std::uint64_t kBytes = 300'000;
  std::string password_ = row_.password;
  std::string content_;
};

TEST_P(NetworkMatrixTest, EveryByteArrivesOrTheFailureSaysWhy) {
  if (told() != nullptr) return runAsChild();
  const auto without = row_.without.find(column_);
  if (without != row_.without.end()) GTEST_SKIP() << without->second;
  prepare();
  const auto failing = row_.fails.find(column_);
  bool hasFailed = failing == row_.fails.end();
  for (const Half half : {Half::kPut, Half::kGet}) {
    const auto traffic = trafficOf(column_, half);
    if (!traffic) continue;
    SCOPED_TRACE(half == Half::kPut ? "put" : "get");
    // Of a cell that fails its first half does.
    if (failing == row_.fails.end() || !hasFailed) addFaults(*traffic);
    for (std::size_t round = 1; round <= row_.rounds; ++round) {
      if (!hasFailed) {
        expectFailure(runOnce(half, *traffic, round), failing->second);
        hasFailed = true;
        password_ = "right";
        server_->clearFaults();
      }
      const auto outcome = runOnce(half, *traffic, round);
      ASSERT_TRUE(outcome) << outcome.error().message;
      fs::remove(path("place"));
      if (half == Half::kPut) continue;
      const std::string& sent =
          column_ == Column::kBlob ? photo("blobs", static_cast<int>(round), kBytes) : content_;
      EXPECT_EQ(digestOf(contentOf(path("copy"))), digestOf(sent));
      fs::remove(path("copy"));
    }
    server_->clearFaults();
  }
  if (row_.line) {
    EXPECT_EQ(line_->broken(), row_.line->mostBreaks);
  }
}

INSTANTIATE_TEST_SUITE_P(Cells, NetworkMatrixTest,
                         testing::Combine(testing::ValuesIn(rows()),
                                          testing::Values(Column::kFile, Column::kBlob,
                                                          Column::kOnline, Column::kSigned)),
                         [](const auto& cell) {
                           return std::string(std::get<Row>(cell.param).name) + "_" +
                                  nameOf(std::get<Column>(cell.param));
                         });

}  // namespace
}  // namespace varo
