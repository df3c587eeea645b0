#include "Sandbox/Online/ObjectUpload.h"

#include "Sandbox/Http/MultipartReader.h"
#include "Sandbox/ServiceProtocol.h"
#include "Sandbox/Storage/BodyReceiver.h"
#include "Sandbox/Storage/DiskWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace varo::sandbox {
namespace {

constexpr std::size_t kMaxParts = 1000;
constexpr std::size_t kMaxTextBytes = std::size_t{1024} * 1024;  // of all parts together

std::string_view dispositionOf(std::string_view head) {
  constexpr std::string_view kField = "Content-Disposition:";
  while (!head.empty()) {
    const std::string_view line = head.substr(0, head.find("\r\n"));
    if (startsIgnoringCase(line, kField)) return line;
    head.remove_prefix(std::min(head.size(), line.size() + 2));
  }
  return {};
}

std::optional<std::string> parameterOf(std::string_view disposition, std::string_view name) {
  // With the semicolon in front, so that "name" is not found within "filename". Clients differ in
  // the blank behind it.
  for (const char* format : {"; {}=\"", ";{}=\""}) {
    const std::string opening = fmt::format(fmt::runtime(format), name);
    const std::size_t begin = disposition.find(opening);
    if (begin == std::string_view::npos) continue;
    const std::string_view rest = disposition.substr(begin + opening.size());
    if (const std::size_t end = rest.find('"'); end != std::string_view::npos) {
      return std::string(rest.substr(0, end));
    }
  }
  return std::nullopt;
}

class Form {
 public:
  explicit Form(DiskWriter& writer) : writer_(writer) {}

  bool begin(std::string_view head) {
    const std::string_view disposition = dispositionOf(head);
    const auto name = parameterOf(disposition, "name");
    if (!name) return refuse("a part has no name");
    // Names and texts are held in memory until the response is made of them.
    if (parts_.size() == kMaxParts) return refuse("there are too many parts");
    parts_.push_back({*name, parameterOf(disposition, "filename")});
    if (parts_.back().fileName) ++files_;
    return true;
  }

  bool take(std::string_view content) {
    FormPart& part = parts_.back();
    part.size += content.size();
    // Only the first file has somewhere to go. The size of the others is counted above.
    if (part.fileName) return files_ > 1 || writer_.write(content);
    if (content.size() > kMaxTextBytes - textBytes_) return refuse("the texts are too long");
    textBytes_ += content.size();
    part.text += content;
    return true;
  }

  std::variant<std::vector<FormPart>, WriteProblem> end(bool complete) {
    if (problem_) return *std::move(problem_);
    // What the writer refused it says when it is finished.
    if (!complete) refuse("the body is not a multipart/form-data form");
    if (files_ == 0) refuse("the form holds no file");
    if (problem_) return *std::move(problem_);
    return std::move(parts_);
  }

 private:
  bool refuse(std::string reason) {
    if (!problem_) problem_ = WriteProblem{kBadBody, std::move(reason)};
    return false;
  }

  DiskWriter& writer_;
  std::vector<FormPart> parts_;
  std::size_t files_ = 0;
  std::size_t textBytes_ = 0;
  std::optional<WriteProblem> problem_;
};

/// The first file goes into `writer`, further ones are counted, all else is kept as text. Nothing
/// more of a file is held than the piece on its way. `writer` is not finished.
std::variant<std::vector<FormPart>, WriteProblem> receiveForm(const HttpRequest& request,
                                                              RequestBody& body,
                                                              DiskWriter& writer) {
  if (!isMultipart(request)) return WriteProblem{kWrongUploadMode, "the body is no form"};
  Form form(writer);
  MultipartReader reader(
      multipartBoundary(*request.header("Content-Type")),
      [&form](std::string_view head) { return form.begin(head); },
      [&form](std::string_view content) { return form.take(content); });
  const auto end = body.readInto([&reader](std::string_view piece) { return reader.push(piece); });
  if (auto problem = problemOf(end)) return *std::move(problem);
  return form.end(reader.complete());
}

}  // namespace

std::variant<ReceivedObject, WriteProblem> receiveObject(const HttpRequest& request,
                                                         RequestBody& body, DiskStore& objects,
                                                         const std::string& key) {
  // Before the body is read: a second writer is refused at once and not after all of its bytes.
  auto begun = objects.writeWhole(key);
  if (auto* problem = std::get_if<WriteProblem>(&begun)) return std::move(*problem);
  DiskWriter& writer = *std::get<std::unique_ptr<DiskWriter>>(begun);
  std::vector<FormPart> parts;
  if (request.method == "POST") {
    auto form = receiveForm(request, body, writer);
    if (auto* problem = std::get_if<WriteProblem>(&form)) return std::move(*problem);
    parts = std::get<std::vector<FormPart>>(std::move(form));
  } else {
    const auto end =
        body.readInto([&writer](std::string_view piece) { return writer.write(piece); });
    if (auto problem = problemOf(end)) return *std::move(problem);
  }
  if (auto problem = writer.finish()) return *std::move(problem);
  return ReceivedObject{writer.state(), std::move(parts)};
}

}  // namespace varo::sandbox
