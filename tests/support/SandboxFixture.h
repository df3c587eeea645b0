#pragma once

#include "Platform/Foundation/PercentCoding.h"
#include "Sandbox/SandboxServer.h"
#include "tests/support/Files.h"
#include "tests/support/HttpClient.h"
#include "tests/support/TemporaryDirectory.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace varo::sandbox {

using platform::percentEncode;
using test::HttpAnswer;
using test::httpRequest;
using test::sampleBytes;

/// A URL split before its path.
struct Address {
  std::string origin, path;
};

inline Address split(const std::string& url) {
  const std::size_t slash = url.find('/', std::string("http://").size());
  return {url.substr(0, slash), slash == std::string::npos ? "" : url.substr(slash)};
}

/// The JSON answer; an object with "failed" when there is none.
inline boost::json::object object(const HttpAnswer& answer) {
  boost::json::error_code error;
  boost::json::value value = boost::json::parse(answer.body, error);
  if (error || !value.is_object()) return {{"failed", answer.body}};
  return value.get_object();
}

inline std::int64_t opstatus(const HttpAnswer& result) {
  const boost::json::object answer = object(result);
  const boost::json::value* value = answer.if_contains("opstatus");
  return value != nullptr && value->is_int64() ? value->get_int64() : -1;
}

struct Upload {
  std::string id;
  boost::json::object form;  ///< The upload template.
  std::string url;
};

class SandboxTest : public testing::Test {
 protected:
  void SetUp() override { restart({}); }

  void restart(SandboxOptions options) {
    server_.reset();
    options.dataDirectory = directory_;
    server_ = std::make_unique<SandboxServer>(options);
    const auto error = server_->start();
    ASSERT_FALSE(error.has_value()) << error->message;
    base_ = split(server_->url());
    files_ = base_.path + "/objects/File";
  }

  /// Of a target on the object service's listener.
  HttpAnswer ask(const std::string& method, const std::string& target, const std::string& body = {},
                 const test::HttpHeaders& headers = {}) {
    return httpRequest(method, base_.origin + target, body, headers);
  }

  Upload create(const boost::json::object& metadata) {
    const auto answer = object(ask("POST", files_, boost::json::serialize(metadata)));
    if (!answer.contains("file_id")) {
      ADD_FAILURE() << boost::json::serialize(answer);
      return {};
    }
    Upload upload{std::string(answer.at("file_id").as_string()),
                  boost::json::parse(answer.at("upload_template").as_string()).as_object(), ""};
    const std::string domain(upload.form.at("domain").as_string());
    upload.url = domain == "#middlewaredomain" ? base_.origin + "/services" : domain;
    upload.url += upload.form.at("relativepath").as_string();
    return upload;
  }

  HttpAnswer commit(const std::string& id) {
    return ask("PUT", files_, R"({"commit_properties":"{}","file_id":")" + id + "\"}",
               {{"X-HTTP-Method-Override", "PATCH"}});
  }

  std::string storedFile(const std::string& bytes,
                         const boost::json::object& metadata = {{"file_name", "a"}}) {
    const Upload upload = create(metadata);
    EXPECT_EQ(opstatus(httpRequest("PUT", upload.url + "?chunk_sequence=1", bytes)), 0);
    EXPECT_EQ(opstatus(commit(upload.id)), 0);
    return upload.id;
  }

  boost::json::array list(const std::string& filter = "") {
    const auto answer = object(ask("GET", files_ + "?$filter=" + percentEncode(filter)));
    EXPECT_EQ(answer.at("opstatus"), 0) << boost::json::serialize(answer);
    return answer.contains("records") ? answer.at("records").as_array() : boost::json::array();
  }

  [[nodiscard]] std::string bytesPath(const std::string& id) const {
    return base_.path + "/bytes/" + id + "?type=bytes";
  }

  const test::TemporaryDirectory temporary_;
  const std::string& directory_ = temporary_.path();
  std::unique_ptr<SandboxServer> server_;
  Address base_;
  std::string files_;
};

}  // namespace varo::sandbox
