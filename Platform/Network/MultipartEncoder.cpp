#include "Platform/Network/MultipartEncoder.h"

#include "Platform/Foundation/Value.h"
#include "Platform/Network/HeaderRules.h"
#include "Platform/Network/HttpTransportError.h"

#include <fmt/format.h>

#include <optional>
#include <random>
#include <utility>

namespace varo::platform {
namespace {

/// A boundary that a part header happens to contain is replaced this often; a source that keeps
/// repeating itself is an error, not an endless loop.
constexpr int kBoundaryAttempts = 8;

struct Part {
  std::string headers;  // complete lines
  Data content;
};

ErrorPtr invalid(std::string description) {
  return makeTransportError(HttpTransportError::kInvalidBody, std::move(description));
}

std::optional<Data> contentOf(const Value& value) {
  if (const Data* bytes = value.data()) return *bytes;
  if (const std::string* text = value.text()) return Data::fromBytes(*text);
  return std::nullopt;
}

Result<Part> readPart(const Value& description) {
  const Array* entries = description.array();
  if (entries == nullptr) return invalid("A multipart part is not an array of entries.");
  Part part;
  bool hasContent = false;
  for (const Value& item : *entries) {
    for (const auto& entry : item.dictionaryValue()) {
      if (entry.key == kPartContent) {
        auto content = contentOf(entry.value);
        if (!content) return invalid("A multipart part's content is neither bytes nor text.");
        if (std::exchange(hasContent, true)) return invalid("A multipart part has two contents.");
        part.content = *std::move(content);
      } else {
        const std::string value = entry.value.textValue();
        if (auto valid = checkHeader(entry.key, value); !valid) return valid.error();
        part.headers += fmt::format("{}: {}\r\n", entry.key, value);
      }
    }
  }
  if (!hasContent) return invalid("A multipart part has no content.");
  return part;
}

Result<std::vector<Part>> readParts(const Dictionary& description) {
  const Array* items = description[kMultipartParts].array();
  if (items == nullptr || items->empty()) return invalid("A multipart body has no parts.");
  std::vector<Part> parts;
  parts.reserve(items->size());
  for (const Value& item : *items) {
    auto part = readPart(item);
    if (!part) return part.error();
    parts.push_back(std::move(part).value());
  }
  return parts;
}

bool occursInHeaders(const std::vector<Part>& parts, const std::string& boundary) {
  for (const Part& part : parts) {
    if (part.headers.find(boundary) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

std::string randomBoundary() {
  std::random_device random;  // the system's generator, not a seeded one
  static_assert(sizeof(std::random_device::result_type) == 4);
  return fmt::format("varo-boundary-{:08x}{:08x}{:08x}{:08x}", random(), random(), random(),
                     random());
}

Result<MultipartBody> encodeMultipart(const Dictionary& description,
                                      const BoundarySource& nextBoundary) {
  auto parts = readParts(description);
  if (!parts) return parts.error();

  std::string boundary = nextBoundary();
  // Only the heads are searched. The contents may be files, and 128 random bits do not stand in one
  // by chance.
  for (int attempt = 1; occursInHeaders(*parts, boundary); ++attempt) {
    if (attempt == kBoundaryAttempts) return invalid("No multipart boundary could be found.");
    boundary = nextBoundary();
  }

  MultipartBody body;
  body.contentType = fmt::format("multipart/form-data; boundary={}", boundary);
  std::string_view lineBreak;  // ends the content of the part before
  for (const Part& part : *parts) {
    body.pieces.push_back(
        Data::fromBytes(fmt::format("{}--{}\r\n{}\r\n", lineBreak, boundary, part.headers)));
    // Not copied: a file's bytes are read when they are sent.
    body.pieces.push_back(part.content);
    lineBreak = "\r\n";
  }
  body.pieces.push_back(Data::fromBytes(fmt::format("\r\n--{}--\r\n", boundary)));
  return body;
}

}  // namespace varo::platform
