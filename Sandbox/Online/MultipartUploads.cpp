#include "Sandbox/Online/MultipartUploads.h"

#include "Sandbox/Online/CompletionList.h"
#include "Sandbox/Online/Digest.h"
#include "Sandbox/Online/ListingQuery.h"
#include "Sandbox/Online/SignatureV4.h"
#include "Sandbox/Online/StoreXml.h"
#include "Sandbox/Storage/BodyReceiver.h"
#include "Sandbox/Storage/DiskWriter.h"
#include "Sandbox/Storage/RandomName.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <span>
#include <utility>

namespace varo::sandbox {
namespace {

constexpr std::size_t kCopyBlock = std::size_t{1024} * 1024;

std::string textUnder(const HttpRequest& request, std::string_view name) {
  const std::string* value = request.parameter(name);
  return value == nullptr ? "" : *value;
}

std::string uploadIdOf(const HttpRequest& request) { return textUnder(request, "uploadId"); }

/// The elements that name the object.
std::string addressXml(const HttpRequest& request) {
  const StoreAddress address = objectAddress(keyOf(request));
  return xmlElement("Bucket", address.bucket) + xmlElement("Key", address.key);
}

StoreError noSuchUpload(const HttpRequest& request) {
  return {404,
          "NoSuchUpload",
          "There is no such upload. It may be complete, or given up.",
          {{"UploadId", uploadIdOf(request)}}};
}

StoreError invalidPart(const HttpRequest& request, const NamedPart& part) {
  return {400,
          "InvalidPart",
          "A part has not arrived, or is another one.",
          {{"UploadId", uploadIdOf(request)},
           {"PartNumber", std::to_string(part.number)},
           {"ETag", part.entityTag}}};
}

/// A whole number of a parameter that lists go on behind; 0 where there is none.
std::uint64_t markerOf(const HttpRequest& request, std::string_view name) {
  return std::min<std::uint64_t>(parseUnsigned(textUnder(request, name)).value_or(0), kMostParts);
}

/// The bytes of a part behind those that `writer` has. False when they cannot be read; what
/// `writer` refuses it says when it is finished.
bool append(const DiskStore::Stored& part, DiskWriter& writer) {
  std::vector<char> block(
      static_cast<std::size_t>(std::min<std::uint64_t>(kCopyBlock, part.state.size)));
  for (std::uint64_t done = 0; done < part.state.size;) {
    const auto piece = std::span(block).first(
        static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), part.state.size - done)));
    if (!part.bytes(done, piece)) return false;
    if (!writer.write({piece.data(), piece.size()})) return true;
    done += piece.size();
  }
  return true;
}

}  // namespace

std::vector<StoreOperation> MultipartUploads::operations() {
  using Target = StoreOperation::Target;
  return {
      {.method = "POST",
       .marker = "uploads",
       .run = [this](const auto& request, auto&) { return begin(request); }},
      {.method = "PUT",
       .marker = "uploadId",
       .others = {"partNumber"},
       .takesBody = true,
       .run = [this](const auto& request, auto& body) { return takePart(request, body); }},
      {.method = "GET",
       .marker = "uploadId",
       .others = {"max-parts", "part-number-marker"},
       .run = [this](const auto& request, auto&) { return listParts(request); }},
      {.method = "POST",
       .marker = "uploadId",
       .takesBody = true,
       .run = [this](const auto& request, auto& body) { return complete(request, body); }},
      {.method = "DELETE",
       .marker = "uploadId",
       .run = [this](const auto& request, auto&) { return giveUp(request); }},
      {.method = "GET",
       .marker = "uploads",
       .others = {"prefix", "key-marker", "upload-id-marker", "max-uploads"},
       .target = Target::kBucket,
       .run = [this](const auto& request, auto&) { return listUploads(request); }},
  };
}

HttpResponse MultipartUploads::begin(const HttpRequest& request) {
  const UploadRecord upload{
      randomName(), keyOf(request),
      std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now())};
  stores_.uploads.insert(upload);
  return xmlDocument("InitiateMultipartUploadResult",
                     addressXml(request) + xmlElement("UploadId", upload.id));
}

HttpResponse MultipartUploads::takePart(const HttpRequest& request, RequestBody& body) {
  const std::uint64_t number = parseUnsigned(textUnder(request, "partNumber")).value_or(0);
  if (number == 0 || number > kMostParts) {
    return xmlResponse({400, "InvalidArgument", "Parts have numbers from 1 to 10000."}, request);
  }
  if (!hasUpload(request)) return xmlResponse(noSuchUpload(request), request);
  // Under a name of its own each time. So a part that is sent again need not wait for the one
  // before, whose connection may be dead without the store knowing it yet.
  const std::string bytes = randomName();
  auto begun = stores_.parts.writeWhole(bytes);
  if (const auto* problem = std::get_if<WriteProblem>(&begun)) {
    return xmlResponse(storeErrorOf(*problem), request);
  }
  DiskWriter& writer = *std::get<std::unique_ptr<DiskWriter>>(begun);
  Digest digest(Digest::Kind::kMd5);
  const auto end = body.readInto([&](std::string_view piece) {
    digest.update(piece);
    return writer.write(piece);
  });
  auto problem = problemOf(end);
  if (!problem) problem = writer.finish();
  if (problem) return xmlResponse(storeErrorOf(*problem), request);
  const StoredBytes& state = writer.state();
  // As many stores name a part, so that a client can tell whether it is of the bytes that it has.
  const std::string entityTag = "\"" + digest.hex() + "\"";
  const auto replaced = stores_.uploads.putPart(uploadIdOf(request), {.number = number,
                                                                      .bytes = bytes,
                                                                      .size = state.size,
                                                                      .entityTag = entityTag,
                                                                      .modified = state.modified});
  if (!replaced) {
    // Discarded once the writer has let go of them.
    stores_.parts.discard(bytes);
    return xmlResponse(noSuchUpload(request), request);
  }
  if (replaced->bytes) stores_.parts.discard(*replaced->bytes);
  HttpResponse response;
  response.headers.emplace_back("ETag", entityTag);
  return response;
}

HttpResponse MultipartUploads::listParts(const HttpRequest& request) const {
  if (!hasUpload(request)) return xmlResponse(noSuchUpload(request), request);
  const auto read = listedAtMost(request, "max-parts");
  if (const auto* problem = std::get_if<StoreError>(&read)) return xmlResponse(*problem, request);
  const auto most = std::get<std::size_t>(read);
  const std::uint64_t marker = markerOf(request, "part-number-marker");
  // One more than fits tells whether there are more.
  auto parts = stores_.uploads.parts(uploadIdOf(request), marker, most + 1);
  const bool isTruncated = most > 0 && parts.size() > most;
  parts.resize(std::min(parts.size(), most));
  std::string xml = addressXml(request) + xmlElement("UploadId", uploadIdOf(request)) +
                    xmlElement("PartNumberMarker", std::to_string(marker)) +
                    xmlElement("MaxParts", std::to_string(most)) +
                    xmlElement("IsTruncated", isTruncated ? "true" : "false");
  if (!parts.empty()) {
    xml += xmlElement("NextPartNumberMarker", std::to_string(parts.back().number));
  }
  for (const PartRecord& part : parts) {
    xml += xmlParent("Part", xmlElement("PartNumber", std::to_string(part.number)) +
                                 xmlElement("LastModified", xmlTime(part.modified)) +
                                 xmlElement("ETag", part.entityTag) +
                                 xmlElement("Size", std::to_string(part.size)));
  }
  return xmlDocument("ListPartsResult", xml);
}

HttpResponse MultipartUploads::complete(const HttpRequest& request, RequestBody& body) {
  CompletionList list;
  const auto end = body.readInto([&list](std::string_view piece) { return list.push(piece); });
  if (const auto problem = problemOf(end)) return xmlResponse(storeErrorOf(*problem), request);
  if (!hasUpload(request)) return xmlResponse(noSuchUpload(request), request);
  const auto named = end == RequestBody::End::kComplete ? list.end() : std::nullopt;
  if (!named) {
    return xmlResponse({400, "MalformedXML", "The body is no list of parts."}, request);
  }
  const auto chosen = chosenParts(request, *named);
  if (const auto* problem = std::get_if<StoreError>(&chosen)) return xmlResponse(*problem, request);
  const auto joined = join(request, std::get<std::vector<PartRecord>>(chosen));
  if (const auto* problem = std::get_if<StoreError>(&joined)) return xmlResponse(*problem, request);
  const std::string* host = request.header("Host");
  const std::string path = sigv4::uriEncoded(request.path, sigv4::Slash::kKept);
  return xmlDocument(
      "CompleteMultipartUploadResult",
      xmlElement("Location", fmt::format("http://{}{}", host == nullptr ? "" : *host, path)) +
          addressXml(request) + xmlElement("ETag", std::get<std::string>(joined)));
}

std::variant<std::vector<PartRecord>, StoreError> MultipartUploads::chosenParts(
    const HttpRequest& request, const std::vector<NamedPart>& named) const {
  const bool isAscending =
      std::adjacent_find(named.begin(), named.end(), [](const auto& one, const auto& next) {
        return one.number >= next.number;
      }) == named.end();
  if (!isAscending) {
    return StoreError{400, "InvalidPartOrder", "The numbers of the parts do not ascend."};
  }
  const auto arrived = stores_.uploads.parts(uploadIdOf(request), 0, kMostParts);
  std::vector<PartRecord> chosen;
  for (const NamedPart& part : named) {
    const auto found = std::lower_bound(
        arrived.begin(), arrived.end(), part.number,
        [](const PartRecord& one, std::uint64_t number) { return one.number < number; });
    const bool isThere = found != arrived.end() && found->number == part.number;
    if (!isThere || found->entityTag != fmt::format("\"{}\"", part.entityTag)) {
      return invalidPart(request, part);
    }
    if (found->size < leastPartBytes_ && part.number != named.back().number) {
      return StoreError{400,
                        "EntityTooSmall",
                        "Only the last part may be so small.",
                        {{"ProposedSize", std::to_string(found->size)},
                         {"MinSizeAllowed", std::to_string(leastPartBytes_)},
                         {"PartNumber", std::to_string(part.number)},
                         {"ETag", part.entityTag}}};
    }
    chosen.push_back(*found);
  }
  return chosen;
}

std::variant<std::string, StoreError> MultipartUploads::join(const HttpRequest& request,
                                                             const std::vector<PartRecord>& parts) {
  // Nobody else writes the object from here on, so that of two requests to complete one upload the
  // second is refused.
  auto begun = stores_.objects.writeWhole(keyOf(request));
  if (const auto* problem = std::get_if<WriteProblem>(&begun)) return storeErrorOf(*problem);
  DiskWriter& writer = *std::get<std::unique_ptr<DiskWriter>>(begun);
  for (const PartRecord& part : parts) {
    const auto stored = stores_.parts.open(part.bytes);
    if (stored && append(*stored, writer)) continue;
    // Another one has taken its place meanwhile, or the upload has ended.
    if (!hasUpload(request)) return noSuchUpload(request);
    return invalidPart(request, {part.number, part.entityTag});
  }
  // First the upload, then the object: whoever was told that the upload is given up must not see
  // its object appear afterwards.
  const auto bytes = stores_.uploads.remove(uploadIdOf(request));
  if (!bytes) return noSuchUpload(request);
  auto problem = writer.finish();
  for (const std::string& part : *bytes) stores_.parts.discard(part);
  if (problem) return storeErrorOf(*problem);
  return writer.state().entityTag;
}

HttpResponse MultipartUploads::giveUp(const HttpRequest& request) {
  if (!hasUpload(request)) return xmlResponse(noSuchUpload(request), request);
  // Nothing, where it ends otherwise at this very moment: then that request removes the bytes.
  const auto bytes = stores_.uploads.remove(uploadIdOf(request));
  if (!bytes) return xmlResponse(noSuchUpload(request), request);
  for (const std::string& part : *bytes) stores_.parts.discard(part);
  HttpResponse response;
  response.status = 204;
  return response;
}

HttpResponse MultipartUploads::listUploads(const HttpRequest& request) const {
  const auto read = listedAtMost(request, "max-uploads");
  if (const auto* problem = std::get_if<StoreError>(&read)) return xmlResponse(*problem, request);
  const auto most = std::get<std::size_t>(read);
  const std::string bucket = bucketPrefixOf(request);
  const std::string prefix = textUnder(request, "prefix");
  const std::string* keyMarker = request.parameter("key-marker");
  auto uploads = stores_.uploads.list(bucket + prefix, keyMarker ? bucket + *keyMarker : "",
                                      textUnder(request, "upload-id-marker"), most + 1);
  const bool isTruncated = most > 0 && uploads.size() > most;
  uploads.resize(std::min(uploads.size(), most));
  std::string xml = xmlElement("Bucket", bucket.substr(0, bucket.find('/'))) +
                    xmlElement("Prefix", prefix) +
                    xmlElement("KeyMarker", textUnder(request, "key-marker")) +
                    xmlElement("UploadIdMarker", textUnder(request, "upload-id-marker")) +
                    xmlElement("MaxUploads", std::to_string(most)) +
                    xmlElement("IsTruncated", isTruncated ? "true" : "false");
  if (isTruncated) {
    xml += xmlElement("NextKeyMarker", uploads.back().key.substr(bucket.size())) +
           xmlElement("NextUploadIdMarker", uploads.back().id);
  }
  for (const UploadRecord& upload : uploads) {
    xml += xmlParent("Upload", xmlElement("Key", upload.key.substr(bucket.size())) +
                                   xmlElement("UploadId", upload.id) +
                                   xmlElement("Initiated", xmlTime(upload.begun)));
  }
  return xmlDocument("ListMultipartUploadsResult", xml);
}

bool MultipartUploads::hasUpload(const HttpRequest& request) const {
  return stores_.uploads.contains(uploadIdOf(request), keyOf(request));
}

}  // namespace varo::sandbox
