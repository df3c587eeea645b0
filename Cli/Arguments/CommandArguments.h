#pragma once

#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace varo::cli {

struct GlobalOptions;

enum class Presence { kOptional, kRequired };

/// How an option takes pairs.
struct PairRules {
  /// Takes the pairs that follow it, too: "--meta a=1 b=2".
  bool severalAtOnce = true;
  /// Refuses a key that is given twice: only one value of it would count.
  bool keysAreUnique = true;
};

/// Declares the arguments of one command, or the global options. A name with "--" is an option, any
/// other is an argument with a place. What they are bound to gets its value when the command line
/// is read, and must live until then. What cannot be read is wrong usage.
class CommandArguments {
 public:
  /// Both must outlive this.
  CommandArguments(CLI::App& app, const GlobalOptions& global) : app_(app), global_(global) {}

  void text(const std::string& name, std::string& target, Presence presence = Presence::kOptional);
  void text(const std::string& name, std::optional<std::string>& target);
  /// An argument with a place that may be given several times; at least once.
  void words(const std::string& name, std::vector<std::string>& target);
  void flag(const std::string& name, bool& target);
  /// A value that `parse` makes of the text, or refuses with a `Result`'s error.
  template <typename Target, typename Parse>
  void parsed(const std::string& name, Target& target, Parse parse,
              Presence presence = Presence::kOptional) {
    const auto take = [&target, parse](const std::string& value) -> platform::ErrorPtr {
      auto result = parse(value);
      if (!result) return result.error();
      target = std::move(result).value();
      return nullptr;
    };
    taken(name, take, presence);
  }
  /// KEY=VALUE, of which the values are text. May be repeated; see `PairRules`.
  void pairs(const std::string& name, platform::Dictionary& target, PairRules rules = {});
  /// An option that may be repeated; `take` gets all its values.
  void list(const std::string& name,
            std::function<platform::ErrorPtr(const std::vector<std::string>&)> take);
  /// What the value of an option can be, for whoever completes it. Nothing is checked by it.
  void choices(const std::string& name, std::vector<std::string> values);
  void exclude(const std::string& first, const std::string& second);

  /// Called when the arguments of the command have their values: refuses, with `reject`, what only
  /// makes no sense together, or completes them. Once a command.
  void check(std::function<void()> check) { check_ = std::move(check); }
  /// Wrong usage of `what`, an option or a command.
  [[noreturn]] static void reject(const std::string& what, const std::string& reason);

  /// The global options. They have their values where the arguments are checked.
  [[nodiscard]] const GlobalOptions& global() const noexcept { return global_; }

  // For whoever reads the command line.

  /// What `choices` was given for an option; empty where it was not called.
  [[nodiscard]] static std::vector<std::string> choicesOf(const CLI::Option& option);

  /// What `check` was given; empty where it was not called.
  [[nodiscard]] const std::function<void()>& givenCheck() const noexcept { return check_; }
  /// The names of the options that take several pairs at once.
  [[nodiscard]] const std::vector<std::string>& pairLists() const noexcept { return pairLists_; }

 private:
  void taken(const std::string& name, std::function<platform::ErrorPtr(const std::string&)> take,
             Presence presence);

  CLI::App& app_;
  const GlobalOptions& global_;
  std::function<void()> check_;
  std::vector<std::string> pairLists_;
};

}  // namespace varo::cli
