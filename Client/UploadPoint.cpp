#include "Client/UploadPoint.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Client/Failures.h"
#include "Platform/Foundation/Json.h"

#include <string>
#include <utility>

namespace varo::detail {

using platform::Dictionary;
using platform::Value;
namespace keys = binary::keys;

namespace {

// Entries of the text. An application may have kept it: they must not change.
constexpr char kCreation[] = "creation";
constexpr char kSize[] = "size";
constexpr char kChunk[] = "chunk";
constexpr char kSent[] = "sent";
constexpr char kModified[] = "modified";

/// A number that is not negative, or none.
std::optional<std::uint64_t> count(const Value& value) {
  const std::int64_t* number = value.integer();
  if (number == nullptr || *number < 0) return std::nullopt;
  return static_cast<std::uint64_t>(*number);
}

Dictionary templateIn(const Dictionary& creation) {
  std::optional<std::string> json;
  if (const std::string* text = creation[keys::kUploadTemplate].text()) json = *text;
  platform::ErrorPtr error;  // the upload will tell
  return binary::BinaryNetworkUtils::getTemplate(json, &error).value_or(Dictionary());
}

}  // namespace

std::optional<FileId> UploadPoint::record() const {
  FileId id(creation[keys::kFileId].textValue());
  return id.empty() ? std::nullopt : std::optional(std::move(id));
}

UploadPlace UploadPoint::place() const {
  Dictionary text{{kCreation, creation},
                  {kSize, static_cast<std::int64_t>(size)},
                  {kChunk, static_cast<std::int64_t>(chunk)},
                  {kSent, static_cast<std::int64_t>(sent)}};
  if (modified) text.set(kModified, *modified);
  return UploadPlace(platform::json::text(text));
}

Outcome<UploadPoint> UploadPoint::from(const UploadPlace& place) {
  UploadPoint point;
  if (const auto parsed = platform::json::parse(place.text())) {
    const Dictionary text = parsed->dictionaryValue();
    point.creation = text[kCreation].dictionaryValue();
    point.size = count(text[kSize]).value_or(0);
    point.chunk = count(text[kChunk]).value_or(0);
    point.sent = count(text[kSent]).value_or(0);
    if (const std::int64_t* modified = text[kModified].integer()) point.modified = *modified;
  }
  if (!point.record() || point.chunk == 0 || point.sent > point.size) {
    return failureOf(Kind::kInvalidArgument, "resume is no place of an upload");
  }
  return point;
}

std::optional<std::uint64_t> UploadPoint::next() const {
  const Dictionary form = templateIn(creation);
  const Value* inChunks = form.find(keys::kChunkUpload);
  if (inChunks != nullptr && !inChunks->boolValue()) return 0;
  if (form[binary::kTemplateParamDomain] != Value(binary::kMiddlewareDomain)) return std::nullopt;
  if (sent < size || size == 0) return sent;
  return (size - 1) / chunk * chunk;
}

}  // namespace varo::detail
