#include "Sandbox/Online/ObjectReceiver.h"

#include "Sandbox/Storage/BodyReceiver.h"
#include "Sandbox/Storage/DiskWriter.h"

#include <memory>
#include <utility>

namespace varo::sandbox {

std::variant<ReceivedObject, WriteProblem> receiveObject(const HttpRequest& request,
                                                         RequestBody& body, DiskStore& objects,
                                                         const std::string& key) {
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
