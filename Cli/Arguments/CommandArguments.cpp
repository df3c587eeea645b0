#include "Cli/Arguments/CommandArguments.h"

#include "Cli/Arguments/Arguments.h"
#include "Platform/Foundation/Error.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <string_view>

namespace varo::cli {

using platform::Dictionary;
using platform::ErrorPtr;

namespace {

constexpr std::string_view kOr = "|";

void rejectIf(const std::string& name, const ErrorPtr& error) {
  if (error != nullptr) CommandArguments::reject(name, error->localizedDescription());
}

}  // namespace

void CommandArguments::reject(const std::string& what, const std::string& reason) {
  throw CLI::ValidationError(what, reason);
}

void CommandArguments::text(const std::string& name, std::string& target, Presence presence) {
  app_.add_option(name, target)->required(presence == Presence::kRequired);
}

void CommandArguments::text(const std::string& name, std::optional<std::string>& target) {
  app_.add_option_function<std::string>(name,
                                        [&target](const std::string& value) { target = value; });
}

void CommandArguments::words(const std::string& name, std::vector<std::string>& target) {
  app_.add_option(name, target)->required();
}

void CommandArguments::flag(const std::string& name, bool& target) { app_.add_flag(name, target); }

void CommandArguments::taken(const std::string& name,
                             std::function<ErrorPtr(const std::string&)> take, Presence presence) {
  const auto orReject = [name, take = std::move(take)](const std::string& value) {
    rejectIf(name, take(value));
  };
  app_.add_option_function<std::string>(name, orReject)->required(presence == Presence::kRequired);
}

void CommandArguments::list(const std::string& name,
                            std::function<ErrorPtr(const std::vector<std::string>&)> take) {
  const auto orReject = [name, take = std::move(take)](const std::vector<std::string>& values) {
    rejectIf(name, take(values));
  };
  app_.add_option_function<std::vector<std::string>>(name, orReject)->allow_extra_args(false);
}

void CommandArguments::pairs(const std::string& name, Dictionary& target, PairRules rules) {
  if (rules.severalAtOnce) pairLists_.push_back(name);
  list(name, [&target, rules](const std::vector<std::string>& pairs) -> ErrorPtr {
    auto read = textDictionary(pairs);
    if (!read) return read.error();
    target = std::move(read).value();
    const bool isRepeated = rules.keysAreUnique && target.size() < pairs.size();
    return isRepeated ? usageError("a key is given twice") : nullptr;
  });
}

void CommandArguments::choices(const std::string& name, std::vector<std::string> values) {
  // CLI11 has no place for them but the name of the type, which its messages show.
  app_.get_option(name)->type_name(fmt::format("{}", fmt::join(values, kOr)));
}

std::vector<std::string> CommandArguments::choicesOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  if (type.find(kOr) == std::string::npos) return {};
  return CLI::detail::split(type, kOr.front());
}

void CommandArguments::exclude(const std::string& first, const std::string& second) {
  app_.get_option(first)->excludes(app_.get_option(second));
}

}  // namespace varo::cli
