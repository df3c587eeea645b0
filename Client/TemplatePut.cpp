#include "Client/TemplatePut.h"

#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/Binary/Utils/S3SigningConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Client/SourceData.h"
#include "Client/TemplateAuthorizer.h"

#include <exception>
#include <string>
#include <utility>

namespace varo::detail {

using binary::OnlineBinaryUploadManager;
using platform::Dictionary;
using platform::Value;

TemplatePut::TemplatePut(std::shared_ptr<const ObjectPlace> place, ObjectKey key, Source source,
                         std::optional<Bytes> perSecond)
    : place_(std::move(place)),
      key_(std::move(key)),
      perSecond_(perSecond),
      source_(std::move(source)) {}

Outcome<Dictionary> TemplatePut::parameters(const ObjectAccess& access) const {
  Dictionary parameters;
  for (const auto& [name, value] : place_->templates()->parameters) parameters.set(name, value);
  parameters.set("fileName", key_.text());
  parameters.set(binary::signing::kObjectName, key_.text());
  if (!access.keys) return parameters;
  if (!access.keys->sessionToken.empty()) {
    return failureOf(Kind::kInvalidArgument,
                     "Credentials::sessionToken cannot be used with a TemplateService");
  }
  // The name is signed as it stands, and a store computes from its own encoding of it.
  parameters.set(binary::signing::kObjectName, binary::encodedPath(key_.text()));
  parameters.set(binary::signing::kRegionName, place_->region());
  parameters.set(binary::signing::kAccessKeyID, access.keys->accessKey);
  parameters.set(binary::signing::kSecretAccessKey, access.keys->secretKey);
  return parameters;
}

void TemplatePut::run(const ObjectRunPtr& run, End end) {
  if (auto good = checked(key_); !good) return end(std::move(good).error());
  auto filled = parameters(run->access());
  if (!filled) return end(std::move(filled).error());
  auto opened =
      dataFrom(*std::exchange(source_, std::nullopt), about(), run->running(), run->givenUp());
  if (!opened) return end(std::move(opened).error());
  if (opened->empty()) {
    return end(failureOf(Kind::kInvalidArgument, about() + ": the source has no bytes"));
  }
  send(run, {*std::move(filled), *std::move(opened), true}, end);
}

void TemplatePut::send(const ObjectRunPtr& run, Upload upload, const End& end) {
  const auto settings = run->settings(run->cancellation());
  const auto authorizer = std::make_shared<TemplateAuthorizer>(place_, run->serviceAuthorizer());
  settings->authorizer = authorizer;
  settings->clock = std::shared_ptr<const platform::Clock>(place_, &place_->clock());
  Dictionary options = optionsWith(settings);
  Dictionary headers = run->access().headers;
  if (!run->access().token.empty()) {
    headers.set(binary::kVaroAuthorization, run->access().token);
    options.set(binary::kVaroAuthorization, run->access().token);
  }
  const Dictionary configuration{{binary::kURL, place_->templates()->templates},
                                 {binary::keys::kRawBytes, upload.bytes},
                                 {binary::keys::kHeaders, headers},
                                 {binary::keys::kUploadParams, upload.parameters}};
  run->running().reached(0, upload.bytes.size());
  const auto started = [authorizer](const std::string&, const Value&) {
    authorizer->templateIsThere();
  };
  const auto uploaded = [run, key = key_, size = upload.bytes.size(), end](
                            const std::string&, const std::string&, const Value&) {
    run->running().reached(size, size);
    end(ObjectInfo{.key = key, .size = Bytes(size)});
  };
  const auto failed = [self = self<TemplatePut>(), run, authorizer, upload = std::move(upload),
                       end](const std::string&, const Value& error, const Value&) {
    if (upload.mayRepeat && authorizer->needsAnotherTemplate()) {
      try {
        return self->send(run, {upload.parameters, upload.bytes, false}, end);
      } catch (const std::exception&) {
        // There is no memory for another attempt: what this one has come to is told.
      }
    }
    end(failureFrom(error, self->about()));
  };
  OnlineBinaryUploadManager::sharedInstance()->createAndStartOnlineUploadTaskFor(
      configuration, started, {}, uploaded, failed, options);
}

}  // namespace varo::detail
