#include "Platform/Foundation/Runtime.h"
#include "tests/support/OfflineFixture.h"

#include <future>

namespace varo::test {
namespace {

using namespace varo::platform;  // NOLINT(google-build-using-namespace)

struct Report {
  std::optional<Data> data;
  Dictionary info;
  NetworkErrorPtr error;
  bool onPool = false;
};

class NetworkUtilityTest : public OfflineFixture {
 protected:
  NetworkCallback callback() {
    return [this](const auto& data, const Dictionary& info, const NetworkErrorPtr& error) {
      report_.set_value({data, info, error, Runtime::shared().pool().runsInThisThread()});
    };
  }
  Report wait() { return report_.get_future().get(); }

  std::promise<Report> report_;
};

TEST_F(NetworkUtilityTest, ReportsStatusAndMergedHeadersWithTheBody) {
  transport_->answer(
      answerWith(404, "gone", {{"ETag", "1"}, {"Via", "a"}, {"via", "b"}, {"Bad", "\xff"}}));
  VRONetworkUtility::PUT("http://h/p", {{"q", "x y"}}, {{"N", 1}}, RequestType::kRaw, "body",
                         {{kSpoolDirectory, "/store"}}, callback());
  const Report report = wait();
  EXPECT_TRUE(report.onPool);
  EXPECT_EQ(report.error, nullptr);
  EXPECT_EQ(report.data, Data::fromBytes("gone"));
  const auto response = report.info[kHttpResponse].objectAs<HttpResponseInfo>();
  ASSERT_NE(response, nullptr);
  EXPECT_EQ(response->statusCode(), 404);
  EXPECT_EQ(response->allHeaderFields(),
            (Dictionary{{"ETag", "1"}, {"Via", "a, b"}, {"Bad", "\xEF\xBF\xBD"}}));

  const auto requests = transport_->requests();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests[0].method, HttpMethod::kPut);
  EXPECT_EQ(requests[0].url, "http://h/p?q=x%20y");
  EXPECT_EQ(requests[0].header("N"), "1");
  EXPECT_EQ(requests[0].body, "body");
  EXPECT_EQ(requests[0].spoolDirectory, "/store");
}

TEST_F(NetworkUtilityTest, ReportsWhatCannotBeEncodedOnThePoolAndSendsNothing) {
  VRONetworkUtility::POST("http://h/", {}, {}, RequestType::kJson, Dictionary{{"a", Data()}}, {},
                          callback());
  const Report report = wait();
  EXPECT_NE(report.error, nullptr);
  EXPECT_TRUE(report.onPool);
  EXPECT_EQ(transport_->requestCount(), 0U);
}

}  // namespace
}  // namespace varo::test
