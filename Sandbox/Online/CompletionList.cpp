#include "Sandbox/Online/CompletionList.h"

#include "Platform/Foundation/Text.h"
#include "Sandbox/Http/HttpRequest.h"

#include <expat.h>
#include <new>
#include <utility>

namespace varo::sandbox {
namespace {

// Of one value, in bytes. Numbers and entity tags are far shorter.
constexpr std::size_t kMostText = 1024;

// Of the document. Ten thousand parts take less than half of it.
constexpr std::size_t kMostBytes = std::size_t{4} << 20;

constexpr std::string_view kRoot = "CompleteMultipartUpload";

/// Without its namespace, which clients may leave out.
std::string_view localName(std::string_view name) { return name.substr(name.rfind(' ') + 1); }

}  // namespace

struct CompletionList::Parser {
  Parser() {
    // The namespace is put in front of a name, with a blank between.
    handle.reset(::XML_ParserCreateNS(nullptr, ' '));
    if (!handle) throw std::bad_alloc();
    ::XML_SetUserData(handle.get(), this);
    ::XML_SetElementHandler(
        handle.get(),
        [](void* self, const XML_Char* name, const XML_Char**) {
          static_cast<Parser*>(self)->guard([=](Parser& parser) { parser.open(localName(name)); });
        },
        [](void* self, const XML_Char*) {
          static_cast<Parser*>(self)->guard([](Parser& parser) { parser.close(); });
        });
    ::XML_SetCharacterDataHandler(handle.get(), [](void* self, const XML_Char* piece, int length) {
      static_cast<Parser*>(self)->guard([=](Parser& parser) {
        parser.take({piece, static_cast<std::size_t>(length)});
      });
    });
    // No client has a document type, and one could define texts that grow without end.
    ::XML_SetStartDoctypeDeclHandler(
        handle.get(), [](void* self, const XML_Char*, const XML_Char*, const XML_Char*, int) {
          static_cast<Parser*>(self)->fail();
        });
  }

  /// No exception may pass through the parser, which is C.
  template <typename Step>
  void guard(Step step) noexcept {
    try {
      step(*this);
    } catch (const std::exception&) {
      fail();
    }
  }

  void fail() noexcept {
    isWrong = true;
    ::XML_StopParser(handle.get(), XML_FALSE);
  }

  void open(std::string_view name) {
    ++depth;
    text.clear();
    if (depth == 1 && name != kRoot) fail();
    if (depth == 2 && (name != "Part" || parts.size() == kMostParts)) fail();
    if (depth == 2) part = NamedPart();
    field = depth == 3 ? std::string(name) : "";
  }

  void take(std::string_view piece) {
    if (field.empty()) return;
    if (piece.size() > kMostText - text.size()) return fail();
    text += piece;
  }

  void close() {
    if (depth == 3) endField();
    if (depth == 2 && (part.number == 0 || part.entityTag.empty())) fail();
    if (depth == 2) parts.push_back(std::move(part));
    field.clear();
    --depth;
  }

  void endField() {
    std::string_view value = platform::trimmed(text);
    if (field == "PartNumber") {
      const auto number = parseUnsigned(value);
      if (!number || *number > kMostParts) return fail();
      part.number = *number;
    } else if (field == "ETag") {
      if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        value = value.substr(1, value.size() - 2);
      }
      part.entityTag = value;
    }
  }

  std::unique_ptr<XML_ParserStruct, decltype(&::XML_ParserFree)> handle{nullptr, &::XML_ParserFree};
  int depth = 0;
  std::string field;  ///< The element within a part that is open; empty: none.
  std::string text;   ///< Of that element so far.
  NamedPart part;
  std::vector<NamedPart> parts;
  std::size_t bytes = 0;  ///< Of the document so far.
  bool isWrong = false;
};

CompletionList::CompletionList() : parser_(std::make_unique<Parser>()) {}

CompletionList::~CompletionList() = default;

bool CompletionList::push(std::string_view piece) {
  parser_->bytes += piece.size();
  // The parser holds an element until it has ended, and all that are open.
  if (parser_->bytes > kMostBytes) return false;
  const auto status =
      ::XML_Parse(parser_->handle.get(), piece.data(), static_cast<int>(piece.size()), XML_FALSE);
  return status == XML_STATUS_OK && !parser_->isWrong;
}

std::optional<std::vector<NamedPart>> CompletionList::end() {
  const auto status = ::XML_Parse(parser_->handle.get(), nullptr, 0, XML_TRUE);
  if (status != XML_STATUS_OK || parser_->isWrong || parser_->parts.empty()) return std::nullopt;
  return std::move(parser_->parts);
}

}  // namespace varo::sandbox
