#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ValidationUtils.h"
#include "Platform/Foundation/Error.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

namespace varo::binary {
namespace {

using platform::Data;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::LogLevel;
using platform::Value;

TEST(ValidationUtilsTest, AcceptsTheUrlsOfThePatternAndNoOthers) {
  const struct {
    std::string url;
    bool valid;
  } cases[] = {
      {"https://h", true},
      {"http://127.0.0.1:8080/services", true},
      {"http://_", true},
      {"http://h|x", true},
      {"https://\xC3\xBC.example/a", true},
      {"", false},
      {"ftp://h", false},
      {"http:/h", false},
      {"http://", false},
      {"http:///h", false},
      {"http://.h", false},
      {"HTTP://h", false},
      {"httpss://h", false},
      {" http://h", false},
      {"http://h /", false},
      {"http://h\n", false},
      {"http://h\"", false},
      {"http://h/\xC2\xA0x", false},
      {"http://h/\xE2\x80\x83x", false},
      {"http://" + std::string(1'000'000, 'a'), true},
  };
  for (const auto& item : cases) {
    ErrorPtr error;
    EXPECT_EQ(ValidationUtils::isValidUrl(item.url, &error), item.valid) << item.url.substr(0, 80);
    EXPECT_EQ(error == nullptr, item.valid);
    EXPECT_EQ(ValidationUtils::isValidUrl(item.url, nullptr), item.valid);
    if (error == nullptr) continue;
    EXPECT_EQ(error->domain(), "ValidationsUtils");
    EXPECT_EQ(error->code(), 6018);
    EXPECT_EQ(error->localizedDescription(), "URL is not in proper format");
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

class ValidationTest : public testing::Test {
 protected:
  ValidationTest() {
    std::ofstream(full_) << "bytes";
    std::ofstream(empty_) << "";
  }

  struct Case {
    std::optional<Dictionary> params;
    std::int64_t code;  // 0: valid
    std::string domain;
    std::string description;
    std::string failureLog;  // without the error; empty for none
  };

  template <typename Validate>
  static void check(const std::vector<Case>& cases, const Validate& validate) {
    const test::RecordingLog log;
    for (const Case& item : cases) {
      SCOPED_TRACE(item.description);
      log->clear();
      ErrorPtr error;
      EXPECT_EQ(validate(item, &error), item.code == 0);
      EXPECT_EQ(validate(item, nullptr), item.code == 0);
      ASSERT_EQ(error == nullptr, item.code == 0);
      if (error == nullptr) continue;
      EXPECT_EQ(error->code(), item.code);
      EXPECT_EQ(error->domain(), item.domain);
      EXPECT_EQ(error->userInfo(), (Dictionary{{"NSLocalizedDescription", item.description}}));
      if (!item.failureLog.empty()) {
        EXPECT_EQ(log->count(LogLevel::kError, item.failureLog + error->description()), 2);
      }
    }
  }

  const test::TemporaryDirectory temporary_;
  const std::string& directory_ = temporary_.path();
  const std::string full_ = directory_ + "/full";
  const std::string empty_ = directory_ + "/empty";
};

TEST_F(ValidationTest, UploadParametersFailAtTheFirstRuleTheyBreak) {
  const Dictionary raw{{"headers", Dictionary{}},
                       {"metadata", Dictionary{{"file_name", "a"}}},
                       {"file", Dictionary{{"rawBytes", Data::fromBytes("x")}}}};
  const auto rawBytes = [&](Value value) {
    return with(raw, "file", Dictionary{{"rawBytes", std::move(value)}, {"other", 1}});
  };
  const std::string missing = "Unable to upload file - Missing parameter: ";
  const std::string junkType = "Unable to upload file - Invalid data type of parameter: ";
  const std::string junkValue = "Unable to upload file - Invalid parameter value";
  const std::string nullData = "Null value found for rawData";
  const std::string domain = "UploadError";
  check(
      {
          {raw, 0, {}, {}, {}},
          {rawBytes("QUJD"), 0, {}, {}, {}},
          {withMetadata(raw, "security_key", ""), 0, {}, {}, {}},
          {std::nullopt, 6010, domain, missing + "Null or empty value found for uploadParams", {}},
          {Dictionary{}, 6010, domain, missing + "Null or empty value found for uploadParams", {}},
          {with(raw, "headers", {}), 6010, domain, missing + "headers could not be found in params",
           "Upload headers validation failed : "},
          {with(raw, "headers", "x"), 6011, domain, junkType + "Unexpected data type for : headers",
           "Upload headers validation failed : "},
          {with(raw, "metadata", {}), 6010, domain,
           missing + "metadata could not be found in params",
           "Upload metadata validation failed : "},
          {with(raw, "metadata", nullptr), 6011, domain,
           junkType + "Unexpected data type for : metadata",
           "Upload metadata validation failed : "},
          {with(raw, "metadata", Dictionary{}), 6010, domain,
           missing + "file_name could not be found in params",
           "Upload file_name validation failed : "},
          {withMetadata(raw, "file_name", ""), 6011, domain, junkType + "file_name param is empty",
           "Upload file_name validation failed : "},
          {withMetadata(raw, "file_namespace", 5), 6012, domain,
           junkValue + " and cannot be null. Unexpected data type for : file_namespace",
           "Upload file_namespace validation failed : "},
          {withMetadata(raw, "security_key", 5), 6012, domain,
           junkValue + " and cannot be null. Unexpected data type for : security_key",
           "Upload seciruty_key validation failed : "},
          {with(raw, "file", {}),
           6010,
           domain,
           missing + "Either FilePath or RawBytes needs to be specified",
           {}},
          {with(raw, "file", "path"),
           6010,
           domain,
           missing + "Either FilePath or RawBytes needs to be specified",
           {}},
          {with(raw, "file", Dictionary{{"filePath", full_}}),
           6010,
           domain,
           missing + "Missing parameter rawBytes in the given input",
           {}},
          {rawBytes(5), 6011, domain, junkType + nullData, {}},
          {rawBytes(Data()), 6012, domain, junkValue + ": " + nullData, {}},
          {rawBytes(""), 6012, domain, junkValue + ": " + nullData, {}},
          {rawBytes("not base64"), 6011, domain, junkType + nullData, {}},
      },
      [](const Case& item, ErrorPtr* error) {
        return ValidationUtils::validateUploadParamsWithUploadParams(
            item.params, UploadInputType::kRawBytes, error);
      });

  const auto file = [&](Value path) {
    return with(raw, "file", Dictionary{{"filePath", std::move(path)}});
  };
  const std::string unreadable = "Unable to upload file - unknown error while uploading: ";
  check(
      {
          {file(full_), 0, {}, {}, {}},
          {raw, 6010, domain, missing + "Missing parameter filePath in the given input", {}},
          {file(5), 6011, domain, junkType + "Invalid datatype found for FilePath", {}},
          {file(directory_ + "/none"),
           6007,
           domain,
           unreadable + "Could not find File at given FilePath",
           {}},
          {file(full_ + "/none"),
           6007,
           domain,
           unreadable + "Could not find File at given FilePath",
           {}},
          {file(empty_), 6007, domain, unreadable + "No data present in given file", {}},
          {file(directory_),
           6007,
           domain,
           unreadable + "Opening " + directory_ + ": Is a directory",
           {}},
      },
      [](const Case& item, ErrorPtr* error) {
        return ValidationUtils::validateUploadParamsWithUploadParams(
            item.params, UploadInputType::kLocalFilePath, error);
      });
}

TEST_F(ValidationTest, DownloadParametersFailAtTheFirstRuleTheyBreak) {
  const Dictionary good{{"headers", Dictionary{}}, {"metadata", Dictionary{{"file_id", "7"}}}};
  const std::string missing = "Unable to download file - Missing parameter: ";
  const std::string junk = "Unable to download file - Invalid parameter value";
  const std::string domain = "DownloadError";
  check(
      {
          {good, 0, {}, {}, {}},
          {std::nullopt, 6016, domain, junk + ": No data present in given file",
           "Download validation failed, error: "},
          {Dictionary{}, 6015, domain, missing + "headers could not be found in params",
           "Download headers validation failed : "},
          {with(good, "headers", 1), 6016, domain, junk + ": Unexpected data type for : headers",
           "Download headers validation failed : "},
          {with(good, "metadata", 1), 6016, domain, junk + ": Unexpected data type for : metadata",
           "Download metadta validation failed : "},
          {withMetadata(good, "file_namespace", 1), 6017, domain,
           junk + " and cannot be null. Unexpected data type for : file_namespace",
           "Download file_namespace validation failed : "},
          {withMetadata(good, "security_key", 1), 6017, domain,
           junk + " and cannot be null. Unexpected data type for : security_key",
           "Download seciruty_key validation failed : "},
          {with(good, "metadata", Dictionary{}), 6015, domain,
           missing + "file_id could not be found in params",
           "Upload file_name validation failed : "},
          {withMetadata(good, "file_id", ""), 6016, domain, junk + ": file_id param is empty",
           "Upload file_name validation failed : "},
      },
      [](const Case& item, ErrorPtr* error) {
        return ValidationUtils::validateDownloadParams(item.params, error);
      });
}

TEST_F(ValidationTest, UpdateParametersFailInTheDomainOfTheRuleTheyBreak) {
  const Dictionary good{{"headers", Dictionary{}}, {"metadata", Dictionary{{"file_id", "7"}}}};
  const std::string missing = "Unable to Update file - Missing parameter value: ";
  const std::string junk = "Unable to Update file - Invalid parameter: ";
  check(
      {
          {good, 0, {}, {}, {}},
          {std::nullopt, 6022, "UpdateError", junk + "No data present in given file",
           "Update validation failed, error: "},
          {with(good, "headers", {}), 6021, "updateError",
           missing + "headers could not be found in params", "Update headers validation failed : "},
          {with(good, "headers", 1), 6022, "updateError",
           junk + "Unexpected data type for : headers", "Update headers validation failed : "},
          {with(good, "metadata", {}), 6021, "UpdateError",
           missing + "metadata could not be found in params",
           "Update metadata validation failed : "},
          {with(good, "metadata", 1), 6022, "UpdateError",
           junk + "Unexpected data type for : metadata", "Update metadata validation failed : "},
          {withMetadata(good, "file_id", {}), 6015, "UpdateError",
           "Unable to download file - Missing parameter: file_id could not be found in params",
           "Upload file_name validation failed : "},
          {withMetadata(good, "file_id", ""), 6016, "UpdateError",
           "Unable to download file - Invalid parameter value: file_id param is empty",
           "Upload file_name validation failed : "},
      },
      [](const Case& item, ErrorPtr* error) {
        return ValidationUtils::validateUpdateParams(item.params, error);
      });
}

TEST_F(ValidationTest, DeletionNeedsAnIdentifierOrCriteria) {
  const std::string missing = "Unable to perform Delete - Missing parameter: ";
  const std::string empty =
      "deleteParams are empty, provide desired criteria for deleting binary files, for ex. fileId "
      "etc";
  check(
      {
          {Dictionary{{"file_id", "x"}}, 0, {}, {}, {}},
          {std::nullopt, 6025, "DeleteError", missing + "deleteParams are null or undefined", {}},
          {Dictionary{}, 6025, "DeleteError", missing + empty, {}},
      },
      [](const Case& item, ErrorPtr* error) {
        return ValidationUtils::validateDeleteParams(item.params, error);
      });
  check(
      {
          {Dictionary{{"id", "x"}}, 0, {}, {}, {}},
          {std::nullopt, 6025, "DeleteError", missing + "file_id is null or undefined", {}},
          {Dictionary{{"id", ""}},
           6026,
           "DownloadError",
           "Unable to perform Delete - Invalid parameter value: file_id is null or undefined",
           {}},
      },
      [](const Case& item, ErrorPtr* error) {
        std::optional<std::string> fileId;
        if (item.params) fileId = (*item.params)["id"].textValue();
        return ValidationUtils::validateFileIdForDeletion(fileId, error);
      });
}

TEST(ValidationUtilsTest, ChunkSizeIsFilledInOnlyWhereItIsNotPositive) {
  const struct {
    std::optional<Dictionary> params;
    std::int64_t chunkSize;
  } cases[] = {
      {std::nullopt, 1048576},
      {Dictionary{}, 1048576},
      {Dictionary{{"chunkSize", 0}}, 1048576},
      {Dictionary{{"chunkSize", -5}}, 1048576},
      {Dictionary{{"chunkSize", "x"}}, 1048576},
      {Dictionary{{"chunkSize", 7}}, 7},
      {Dictionary{{"chunkSize", INT64_MAX}}, INT64_MAX},
  };
  for (const auto& item : cases) {
    const Dictionary fixed = ValidationUtils::fixChunkSizeIfNeeded(item.params);
    EXPECT_EQ(fixed["chunkSize"].integerValue(), item.chunkSize);
  }
}

}  // namespace
}  // namespace varo::binary
