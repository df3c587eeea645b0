#include "Binary/Binary/Utils/TemplateUtil.h"
#include "tests/fuzz/Require.h"

#include <cstddef>
#include <cstdint>
#include <string>

using varo::binary::TemplateUtil;
using varo::platform::Dictionary;
using varo::platform::ErrorPtr;

/// Whatever the template: its pieces are one more than its placeholders, and it is filled, or there
/// is an error that says why not.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const TemplateUtil text(std::string(reinterpret_cast<const char*>(bytes), size));
  require(text.formattedStrings().size() == text.templateVariables().size() + 1);
  Dictionary values;
  ErrorPtr error;
  const auto without = text.populateJSONTemplate(values, &error);
  require(without.has_value() == (error == nullptr));
  require(!without || text.templateVariables().empty());

  for (const std::string& name : text.templateVariables()) values.set(name, "filled");
  (void)text.populateJSONTemplate(values, &error);
  (void)text.tryPopulateJSONTemplate(values);
  return 0;
}
