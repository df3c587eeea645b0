#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/KnownKeys.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ValidationUtils.h"
#include "Platform/Foundation/Error.h"
#include "tests/support/Files.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/TemporaryDirectory.h"

#include <array>

namespace varo::binary {
namespace {

using namespace platform;

TEST(ValidationUtilsTest, AcceptsTheUrlsOfThePatternAndNoOthers) {
  for (const std::string& url :
       {std::string("https://h"), std::string("http://_"), std::string("http://h|x"),
        "http://" + std::string(1'000'000, 'a'), std::string("https://\xC3\xBC.example/a")}) {
    EXPECT_TRUE(ValidationUtils::isValidUrl(url, nullptr)) << url.substr(0, 80);
  }
  for (const char* url :
       {"", "ftp://h", "http:/h", "http://", "http://.h", "HTTP://h", "httpss://h", "http://h /",
        "http://h\"", "http://h/\xC2\xA0x", "http://h/\xE2\x80\x83x"}) {
    ErrorPtr error;
    EXPECT_FALSE(ValidationUtils::isValidUrl(url, &error)) << url;
    EXPECT_EQ(error->domain(), "ValidationsUtils");
    EXPECT_EQ(error->code(), 6018);
  }
}

/// A copy of `params` in which the entry is changed; a missing value removes it.
Dictionary with(Dictionary params, const char* key, Value value) {
  params.set(key, std::move(value));
  return params;
}

Dictionary withMetadata(const Dictionary& params, const char* key, Value value) {
  return with(params, "metadata", with(params["metadata"].dictionaryValue(), key, value));
}

struct Case {
  std::optional<Dictionary> params;
  std::string error = {};       // its domain and code; empty: valid
  std::string detail = {};      // that its text ends in
  std::string failureLog = {};  // what is logged before the error; empty for nothing
};

template <typename Validate>
void check(const std::vector<Case>& cases, const Validate& validate) {
  const test::RecordingLog log;
  for (const Case& item : cases) {
    SCOPED_TRACE(item.error + " " + item.detail);
    log->clear();
    ErrorPtr error;
    EXPECT_EQ(validate(item.params, &error), item.error.empty());
    EXPECT_EQ(validate(item.params, nullptr), item.error.empty());
    ASSERT_EQ(error == nullptr, item.error.empty());
    if (error == nullptr) continue;
    EXPECT_EQ(error->domain() + " " + std::to_string(error->code()), item.error);
    EXPECT_THAT(error->localizedDescription(), testing::EndsWith(item.detail));
    if (!item.failureLog.empty()) {
      EXPECT_EQ(log->count(LogLevel::kError, item.failureLog + error->description()), 2);
    }
  }
}

TEST(ValidationUtilsTest, UploadParametersFailAtTheFirstRuleTheyBreak) {
  const Dictionary raw{{"headers", Dictionary{}},
                       {"metadata", Dictionary{{"file_name", "a"}}},
                       {"file", Dictionary{{"rawBytes", Data::fromBytes("x")}}}};
  const auto rawBytes = [&](Value value) {
    return with(raw, "file", Dictionary{{"rawBytes", std::move(value)}, {"other", 1}});
  };
  const auto file = [&](Value path) {
    return with(raw, "file", Dictionary{{"filePath", std::move(path)}});
  };
  const test::TemporaryDirectory directory;
  test::writeFile(directory / "full", "bytes");
  test::writeFile(directory / "empty", "");
  const std::string missing = "UploadError 6010";
  const std::string type = "UploadError 6011";
  const std::string value = "UploadError 6012";
  const std::string unreadable = "UploadError 6007";
  check({{raw},
         {rawBytes("QUJD")},
         {withMetadata(raw, "security_key", "")},
         {std::nullopt, missing, ": Null or empty value found for uploadParams"},
         {Dictionary{}, missing, ": Null or empty value found for uploadParams"},
         {with(raw, "headers", {}), missing, ": headers could not be found in params",
          "Upload headers validation failed : "},
         {with(raw, "metadata", nullptr), type, ": Unexpected data type for : metadata"},
         {with(raw, "metadata", Dictionary{}), missing, ": file_name could not be found in params"},
         {withMetadata(raw, "file_name", ""), type, ": file_name param is empty"},
         {withMetadata(raw, "file_namespace", 5), value, "file_namespace"},
         {withMetadata(raw, "security_key", 5), value,
          " and cannot be null. Unexpected data type for : security_key",
          "Upload seciruty_key validation failed : "},
         {with(raw, "file", {}), missing, "Either FilePath or RawBytes needs to be specified"},
         {file(directory / "full"), missing, "Missing parameter rawBytes in the given input"},
         {rawBytes(5), type, "Null value found for rawData"},
         {rawBytes(Data()), value, "Null value found for rawData"},
         {rawBytes(""), value, "Null value found for rawData"},
         {rawBytes("not base64"), type, "Null value found for rawData"}},
        [](const auto& params, ErrorPtr* error) {
          return ValidationUtils::validateUploadParamsWithUploadParams(
              params, UploadInputType::kRawBytes, error);
        });
  check({{file(directory / "full")},
         {raw, missing, "Missing parameter filePath in the given input"},
         {file(5), type, "Invalid datatype found for FilePath"},
         {file(directory / "none"), unreadable, "Could not find File at given FilePath"},
         {file(directory / "full/none"), unreadable, "Could not find File at given FilePath"},
         {file(directory / "empty"), unreadable, "No data present in given file"},
         {file(directory.path()), unreadable, "Opening " + directory.path() + ": Is a directory"}},
        [](const auto& params, ErrorPtr* error) {
          return ValidationUtils::validateUploadParamsWithUploadParams(
              params, UploadInputType::kLocalFilePath, error);
        });
}

TEST(ValidationUtilsTest, DownloadAndUpdateParametersFailInTheDomainOfTheRuleTheyBreak) {
  const Dictionary good{{"headers", Dictionary{}}, {"metadata", Dictionary{{"file_id", "7"}}}};
  const Case emptyId{withMetadata(good, "file_id", ""), "DownloadError 6016",
                     ": file_id param is empty", "Upload file_name validation failed : "};
  check({{good},
         {std::nullopt, "DownloadError 6016", "No data present in given file",
          "Download validation failed, error: "},
         {with(good, "headers", {}), "DownloadError 6015", "headers could not be found in params"},
         {with(good, "metadata", 1), "DownloadError 6016", "Unexpected data type for : metadata",
          "Download metadta validation failed : "},
         {withMetadata(good, "file_namespace", 1), "DownloadError 6017", "file_namespace"},
         {withMetadata(good, "security_key", 1), "DownloadError 6017", "security_key"},
         emptyId},
        &ValidationUtils::validateDownloadParams);
  check(
      {{good},
       {std::nullopt, "UpdateError 6022", "No data present in given file",
        "Update validation failed, error: "},
       {with(good, "headers", 1), "updateError 6022", "Unexpected data type for : headers"},
       {with(good, "metadata", {}), "UpdateError 6021", "metadata could not be found in params",
        "Update metadata validation failed : "},
       {withMetadata(good, "file_id", ""), "UpdateError 6016", emptyId.detail, emptyId.failureLog}},
      &ValidationUtils::validateUpdateParams);
}

TEST(KnownKeysTest, KeysThatNothingReadsAreWarnedOfWithTheNearestOne) {
  constexpr std::array<std::string_view, 3> kKnown = {"chunkSize", "forceDownload", "domain"};
  const std::pair<std::string, std::string> nearest[] = {{"ChunkSize", "chunkSize"},
                                                         {"chunk_sise", "chunkSize"},
                                                         {"forcedownlod", "forceDownload"},
                                                         {"domian", "domain"},
                                                         {"dom", ""},
                                                         {"other", ""},
                                                         {"", ""},
                                                         {std::string(1000, 'c'), ""}};
  for (const auto& [key, meant] : nearest) EXPECT_EQ(nearestKnownKey(key, kKnown), meant) << key;

  const test::RecordingLog log(LogLevel::kTrace);
  warnOfUnknownKeys("the options", {{"domain", 1}, {"x", "hidden"}}, kKnown);
  EXPECT_EQ(log->lines().size(), 1U);
  EXPECT_EQ(log->count(LogLevel::kWarning, "Nothing reads \"x\" in the options"), 1);
}

}  // namespace
}  // namespace varo::binary
