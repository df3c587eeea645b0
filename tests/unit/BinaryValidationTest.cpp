#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ValidationUtils.h"
#include "Platform/Foundation/Error.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/TemporaryDirectory.h"

#include <fstream>

namespace varo::binary {
namespace {

using namespace platform;

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
    std::int64_t code = 0;  // 0: valid
    std::string description = {};
    std::string failureLog = {};  // without the error; empty for none
    std::string domain = {};      // where it is not the table's
  };

  template <typename Validate>
  static void check(std::string_view domain, const std::vector<Case>& cases,
                    const Validate& validate) {
    const test::RecordingLog log;
    for (const Case& item : cases) {
      SCOPED_TRACE(item.description);
      log->clear();
      ErrorPtr error;
      EXPECT_EQ(validate(item.params, &error), item.code == 0);
      EXPECT_EQ(validate(item.params, nullptr), item.code == 0);
      ASSERT_EQ(error == nullptr, item.code == 0);
      if (error == nullptr) continue;
      EXPECT_EQ(error->code(), item.code);
      EXPECT_EQ(error->domain(), item.domain.empty() ? domain : item.domain);
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
  const std::string kAbsent = " could not be found in params";
  const std::string kJunkType = "Unexpected data type for : ";
  const std::string kFailed = " validation failed : ";
};

TEST_F(ValidationTest, UploadParametersFailAtTheFirstRuleTheyBreak) {
  const Dictionary raw{{"headers", Dictionary{}},
                       {"metadata", Dictionary{{"file_name", "a"}}},
                       {"file", Dictionary{{"rawBytes", Data::fromBytes("x")}}}};
  const auto rawBytes = [&](Value value) {
    return with(raw, "file", Dictionary{{"rawBytes", std::move(value)}, {"other", 1}});
  };
  const auto file = [&](Value path) {
    return with(raw, "file", Dictionary{{"filePath", std::move(path)}});
  };
  const std::string missing = "Unable to upload file - Missing parameter: ";
  const std::string type = "Unable to upload file - Invalid data type of parameter: ";
  const std::string value = "Unable to upload file - Invalid parameter value";
  const std::string null = value + " and cannot be null. " + kJunkType;
  const std::string nullData = "Null value found for rawData";
  const std::string noParams = missing + "Null or empty value found for uploadParams";
  const std::string neither = missing + "Either FilePath or RawBytes needs to be specified";
  const std::string noBytes = missing + "Missing parameter rawBytes in the given input";
  const std::string headers = "Upload headers" + kFailed;
  const std::string metadata = "Upload metadata" + kFailed;
  const std::string name = "Upload file_name" + kFailed;
  const std::string space = "Upload file_namespace" + kFailed;
  const std::string key = "Upload seciruty_key" + kFailed;
  check("UploadError",
        {
            {raw},
            {rawBytes("QUJD")},
            {withMetadata(raw, "security_key", "")},
            {std::nullopt, 6010, noParams},
            {Dictionary{}, 6010, noParams},
            {with(raw, "headers", {}), 6010, missing + "headers" + kAbsent, headers},
            {with(raw, "headers", "x"), 6011, type + kJunkType + "headers", headers},
            {with(raw, "metadata", {}), 6010, missing + "metadata" + kAbsent, metadata},
            {with(raw, "metadata", nullptr), 6011, type + kJunkType + "metadata", metadata},
            {with(raw, "metadata", Dictionary{}), 6010, missing + "file_name" + kAbsent, name},
            {withMetadata(raw, "file_name", ""), 6011, type + "file_name param is empty", name},
            {withMetadata(raw, "file_namespace", 5), 6012, null + "file_namespace", space},
            {withMetadata(raw, "security_key", 5), 6012, null + "security_key", key},
            {with(raw, "file", {}), 6010, neither},
            {with(raw, "file", "path"), 6010, neither},
            {file(full_), 6010, noBytes},
            {rawBytes(5), 6011, type + nullData},
            {rawBytes(Data()), 6012, value + ": " + nullData},
            {rawBytes(""), 6012, value + ": " + nullData},
            {rawBytes("not base64"), 6011, type + nullData},
        },
        [](const auto& params, ErrorPtr* error) {
          return ValidationUtils::validateUploadParamsWithUploadParams(
              params, UploadInputType::kRawBytes, error);
        });

  const std::string unreadable = "Unable to upload file - unknown error while uploading: ";
  const std::string notFound = unreadable + "Could not find File at given FilePath";
  const std::string isDirectory = unreadable + "Opening " + directory_ + ": Is a directory";
  check("UploadError",
        {
            {file(full_)},
            {raw, 6010, missing + "Missing parameter filePath in the given input"},
            {file(5), 6011, type + "Invalid datatype found for FilePath"},
            {file(directory_ + "/none"), 6007, notFound},
            {file(full_ + "/none"), 6007, notFound},
            {file(empty_), 6007, unreadable + "No data present in given file"},
            {file(directory_), 6007, isDirectory},
        },
        [](const auto& params, ErrorPtr* error) {
          return ValidationUtils::validateUploadParamsWithUploadParams(
              params, UploadInputType::kLocalFilePath, error);
        });
}

TEST_F(ValidationTest, DownloadParametersFailAtTheFirstRuleTheyBreak) {
  const Dictionary good{{"headers", Dictionary{}}, {"metadata", Dictionary{{"file_id", "7"}}}};
  const std::string missing = "Unable to download file - Missing parameter: ";
  const std::string junk = "Unable to download file - Invalid parameter value";
  const std::string type = junk + ": " + kJunkType;
  const std::string null = junk + " and cannot be null. " + kJunkType;
  const std::string noParams = junk + ": No data present in given file";
  const std::string headers = "Download headers" + kFailed;
  const std::string metadata = "Download metadta" + kFailed;
  const std::string space = "Download file_namespace" + kFailed;
  const std::string key = "Download seciruty_key" + kFailed;
  const std::string id = "Upload file_name" + kFailed;
  check("DownloadError",
        {
            {good},
            {std::nullopt, 6016, noParams, "Download validation failed, error: "},
            {Dictionary{}, 6015, missing + "headers" + kAbsent, headers},
            {with(good, "headers", 1), 6016, type + "headers", headers},
            {with(good, "metadata", 1), 6016, type + "metadata", metadata},
            {withMetadata(good, "file_namespace", 1), 6017, null + "file_namespace", space},
            {withMetadata(good, "security_key", 1), 6017, null + "security_key", key},
            {with(good, "metadata", Dictionary{}), 6015, missing + "file_id" + kAbsent, id},
            {withMetadata(good, "file_id", ""), 6016, junk + ": file_id param is empty", id},
        },
        &ValidationUtils::validateDownloadParams);
}

TEST_F(ValidationTest, UpdateParametersFailInTheDomainOfTheRuleTheyBreak) {
  const Dictionary good{{"headers", Dictionary{}}, {"metadata", Dictionary{{"file_id", "7"}}}};
  const std::string missing = "Unable to Update file - Missing parameter value: ";
  const std::string junk = "Unable to Update file - Invalid parameter: ";
  const std::string noParams = junk + "No data present in given file";
  const std::string noId = "Unable to download file - Missing parameter: file_id" + kAbsent;
  const std::string emptyId =
      "Unable to download file - Invalid parameter value: file_id param is empty";
  const std::string headers = "Update headers" + kFailed;
  const std::string metadata = "Update metadata" + kFailed;
  const std::string id = "Upload file_name" + kFailed;
  const std::string lower = "updateError";
  check("UpdateError",
        {
            {good},
            {std::nullopt, 6022, noParams, "Update validation failed, error: "},
            {with(good, "headers", {}), 6021, missing + "headers" + kAbsent, headers, lower},
            {with(good, "headers", 1), 6022, junk + kJunkType + "headers", headers, lower},
            {with(good, "metadata", {}), 6021, missing + "metadata" + kAbsent, metadata},
            {with(good, "metadata", 1), 6022, junk + kJunkType + "metadata", metadata},
            {withMetadata(good, "file_id", {}), 6015, noId, id},
            {withMetadata(good, "file_id", ""), 6016, emptyId, id},
        },
        &ValidationUtils::validateUpdateParams);
}

TEST_F(ValidationTest, DeletionNeedsAnIdentifierOrCriteria) {
  const std::string missing = "Unable to perform Delete - Missing parameter: ";
  const std::string junk = "Unable to perform Delete - Invalid parameter value: ";
  const std::string empty =
      "deleteParams are empty, provide desired criteria for deleting binary files, for ex. fileId "
      "etc";
  check("DeleteError",
        {
            {Dictionary{{"file_id", "x"}}},
            {std::nullopt, 6025, missing + "deleteParams are null or undefined"},
            {Dictionary{}, 6025, missing + empty},
        },
        &ValidationUtils::validateDeleteParams);
  const std::string noId = "file_id is null or undefined";
  check("DeleteError",
        {
            {Dictionary{{"id", "x"}}},
            {std::nullopt, 6025, missing + noId},
            {Dictionary{{"id", ""}}, 6026, junk + noId, "", "DownloadError"},
        },
        [](const auto& params, ErrorPtr* error) {
          std::optional<std::string> fileId;
          if (params) fileId = (*params)["id"].textValue();
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
