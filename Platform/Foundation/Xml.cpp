#include "Platform/Foundation/Xml.h"

#include "Platform/Foundation/Error.h"

#include <fmt/format.h>

#include <algorithm>
#include <expat.h>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace varo::platform::xml {
namespace {

/// Takes in the parser's events. What goes wrong inside one is kept, since no exception may pass
/// through the parser, and ends the parsing.
class TreeBuilder {
 public:
  TreeBuilder(XML_Parser parser, const Limits& limits) : parser_(parser), limits_(limits) {
    XML_SetUserData(parser, this);
    XML_SetElementHandler(parser, &TreeBuilder::onStart, &TreeBuilder::onEnd);
    XML_SetCharacterDataHandler(parser, &TreeBuilder::onText);
    XML_SetStartDoctypeDeclHandler(parser, &TreeBuilder::onDocumentType);
  }

  [[nodiscard]] std::int64_t problem() const noexcept { return problem_; }
  [[nodiscard]] Element takeRoot() noexcept { return std::move(root_); }

 private:
  static void XMLCALL onStart(void* self, const char* name, const char** /*attributes*/) {
    static_cast<TreeBuilder*>(self)->guarded([name](TreeBuilder& tree) { tree.begin(name); });
  }
  static void XMLCALL onEnd(void* self, const char* /*name*/) {
    static_cast<TreeBuilder*>(self)->guarded([](TreeBuilder& tree) { tree.open_.pop_back(); });
  }
  static void XMLCALL onText(void* self, const char* text, int length) {
    static_cast<TreeBuilder*>(self)->guarded([=](TreeBuilder& tree) {
      tree.open_.back()->text.append(text, static_cast<std::size_t>(length));
    });
  }
  static void XMLCALL onDocumentType(void* self, const char* /*name*/, const char* /*systemId*/,
                                     const char* /*publicId*/, int /*hasInternalSubset*/) {
    static_cast<TreeBuilder*>(self)->stop(kHasDocumentType);
  }

  template <typename Event>
  void guarded(const Event& event) noexcept {
    // A stopped parser still delivers the events of what it has read.
    if (problem_ != 0) return;
    try {
      event(*this);
    } catch (const std::bad_alloc&) {
      stop(kTooManyElements);
    }
  }

  void stop(std::int64_t problem) noexcept {
    problem_ = problem;
    static_cast<void>(XML_StopParser(parser_, XML_FALSE));
  }

  void begin(std::string_view name) {
    if (open_.size() == limits_.depth) return stop(kTooDeep);
    if (++count_ > limits_.elements) return stop(kTooManyElements);
    Element element{std::string(name.substr(name.find(':') + 1)), {}, {}};
    if (open_.empty()) {
      root_ = std::move(element);
      return open_.push_back(&root_);
    }
    // The siblings before it, which may move, are closed: none of them is in `open_`.
    auto& siblings = open_.back()->children;
    siblings.push_back(std::move(element));
    open_.push_back(&siblings.back());
  }

  const XML_Parser parser_;
  const Limits limits_;
  Element root_;
  std::vector<Element*> open_;
  std::size_t count_ = 0;
  std::int64_t problem_ = 0;
};

std::string_view textOfProblem(std::int64_t problem) {
  switch (problem) {
    case kTooDeep:
      return "it nests too deeply";
    case kTooManyElements:
      return "it has too many elements";
    default:
      return "it has a document type";
  }
}

}  // namespace

const Element* Element::child(std::string_view childName) const noexcept {
  const auto found = std::find_if(children.begin(), children.end(),
                                  [childName](const Element& e) { return e.name == childName; });
  return found != children.end() ? &*found : nullptr;
}

std::string Element::textOf(std::string_view childName) const {
  const Element* found = child(childName);
  return found != nullptr ? found->text : std::string();
}

Result<Element> parse(std::string_view text, const Limits& limits) {
  const auto failed = [](std::int64_t code, std::string_view what) {
    return Error::make(kErrorDomain, code, fmt::format("The XML cannot be used: {}", what));
  };
  if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    return failed(kTooManyElements, "it is too long");
  }
  const std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser(
      XML_ParserCreate(nullptr), &XML_ParserFree);
  if (parser == nullptr) return failed(kNotXml, "out of memory");
  TreeBuilder tree(parser.get(), limits);
  const auto status = XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE);
  if (status == XML_STATUS_OK && tree.problem() == 0) return tree.takeRoot();
  if (tree.problem() != 0) return failed(tree.problem(), textOfProblem(tree.problem()));
  return failed(kNotXml,
                fmt::format("{} in line {}", XML_ErrorString(XML_GetErrorCode(parser.get())),
                            XML_GetCurrentLineNumber(parser.get())));
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

}  // namespace varo::platform::xml
