#include "Cli/CommandLine.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Arguments.h"
#include "Cli/ByteFormat.h"
#include "Cli/HelpText.h"
#include "Cli/Suggestion.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <functional>
#include <limits>
#include <utility>

namespace varo::cli {

using platform::Dictionary;
using platform::LogLevel;
using platform::Result;

namespace {

/// A day; more is a slip of the pen.
constexpr double kLongestTimeout = 86'400;

[[noreturn]] void reject(const std::string& option, const std::string& reason) {
  throw CLI::ValidationError(option, reason);
}

template <typename T>
T acceptOrReject(const std::string& option, Result<T> result) {
  if (!result) reject(option, result.error()->localizedDescription());
  return std::move(result).value();
}

std::chrono::milliseconds parseSeconds(const std::string& option, const std::string& text) {
  double seconds = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seconds);
  const bool usable = error == std::errc() && stop == end && std::isfinite(seconds) &&
                      seconds >= 0.001 && seconds <= kLongestTimeout;
  if (!usable) reject(option, "'" + text + "' is not a number of seconds between 0.001 and 86400");
  return std::chrono::milliseconds(std::llround(seconds * 1000));
}

std::uint16_t parsePort(const std::string& option, const std::string& text) {
  const auto number = platform::parseInteger(text);
  if (!number || *number < 0 || *number > std::numeric_limits<std::uint16_t>::max()) {
    reject(option, "'" + text + "' is not a port (0 to 65535)");
  }
  return static_cast<std::uint16_t>(*number);
}

LogLevel parseLogLevel(const std::string& option, const std::string& text) {
  const auto level = platform::logLevelNamed(text);
  if (!level) {
    reject(option, "'" + text + "' is not one of " +
                       fmt::format("{}", fmt::join(platform::kLogLevelNames, ", ")));
  }
  return *level;
}

binary::TransferPolicy parsePolicy(const std::string& option, const std::string& text) {
  if (text == "safe") return binary::TransferPolicy::kSafe;
  if (text == "compatible") return binary::TransferPolicy::kCompatible;
  reject(option, "'" + text + "' is neither safe nor compatible");
}

/// Whether a word is a further pair of a list, and not the URL or FILE that may follow it.
bool looksLikePair(std::string_view word) {
  const std::size_t equals = word.find('=');
  if (equals == std::string_view::npos || equals == 0 || word.front() == '-') return false;
  return word.substr(0, equals).find_first_of("/:") == std::string_view::npos;
}

/// "--meta a=1 b=2" (and "--where" alike) becomes "--meta a=1 --meta b=2": left alone, a list would
/// swallow every word up to the next option.
std::vector<std::string> withListsSpelledOut(const std::vector<std::string>& words) {
  constexpr std::array<std::string_view, 2> kLists = {"--meta", "--where"};
  std::vector<std::string> result;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    result.push_back(word);
    const std::string name = word.substr(0, word.find('='));
    if (std::find(kLists.begin(), kLists.end(), name) == kLists.end()) continue;
    if (word == name && i + 1 < words.size()) result.push_back(words[++i]);
    while (i + 1 < words.size() && looksLikePair(words[i + 1])) {
      result.push_back(name);
      result.push_back(words[++i]);
    }
  }
  return result;
}

/// The command line's definition, and what parsing it has filled in so far.
class Parser {
 public:
  Parser();
  ParsedCommandLine parse(std::vector<std::string> arguments, const std::string& tokenVariable,
                          std::ostream& results, std::ostream& messages);

 private:
  using Taker = std::function<void(const std::string&)>;
  /// Rejects what only makes no sense together.
  using Check = std::function<void()>;
  using ListTaker = std::function<void(const std::vector<std::string>&)>;

  void defineGlobal();
  void defineList();
  void defineUpload();
  void defineDownload();
  void defineUpdate();
  void defineDelete();
  void defineAbort();
  void defineSandbox();
  void defineDemo();

  template <typename Options>
  CLI::App* addCommand(
      const std::string& name, Options& options, Check check = [] {});
  static void text(CLI::App* app, const std::string& name, Taker take);
  static void required(CLI::App* app, const std::string& name, std::string& target);
  static void list(CLI::App* app, const std::string& name, ListTaker take);
  static void meta(CLI::App* app, Dictionary& target);

  void addToken(const std::string& tokenVariable);
  [[nodiscard]] std::optional<std::string> complaintAboutRest() const;
  [[nodiscard]] std::string explain(const CLI::ParseError& error) const;
  [[nodiscard]] const CLI::App* chosen() const;
  [[nodiscard]] int usage(const std::string& reason, std::ostream& messages) const;

  CLI::App app_;
  GlobalOptions global_;
  std::string token_;
  ListOptions list_;
  UploadOptions upload_;
  DownloadOptions download_;
  UpdateOptions update_;
  DeleteOptions delete_;
  AbortOptions abort_;
  SandboxCommandOptions sandbox_;
  DemoOptions demo_;
  std::function<CommandOptions()> command_;
};

Parser::Parser() : app_("", "varobinary") {
  // What is left over is ours to explain: a mistyped command deserves a suggestion.
  app_.allow_extras();
  app_.require_subcommand(0, 1);
  app_.set_version_flag("--version", versionText());
  app_.formatter_fn([](const CLI::App* app, const std::string&, CLI::AppFormatMode) {
    return helpText(app->get_parent() == nullptr ? std::string() : app->get_name());
  });
  defineGlobal();
  defineList();
  defineUpload();
  defineDownload();
  defineUpdate();
  defineDelete();
  defineAbort();
  defineSandbox();
  defineDemo();
}

void Parser::text(CLI::App* app, const std::string& name, Taker take) {
  app->add_option_function<std::string>(name, std::move(take));
}

void Parser::required(CLI::App* app, const std::string& name, std::string& target) {
  app->add_option(name, target)->required();
}

void Parser::list(CLI::App* app, const std::string& name, ListTaker take) {
  CLI::Option* option = app->add_option_function<std::vector<std::string>>(name, std::move(take));
  option->allow_extra_args(false);
}

void Parser::meta(CLI::App* app, Dictionary& target) {
  list(app, "--meta", [&target](const std::vector<std::string>& pairs) {
    target = acceptOrReject("--meta", textDictionary(pairs));
  });
}

template <typename Options>
CLI::App* Parser::addCommand(const std::string& name, Options& options, Check check) {
  CLI::App* command = app_.add_subcommand(name);
  command->fallthrough();
  command->final_callback([this, &options, check = std::move(check)] {
    check();
    command_ = [&options] { return options; };
  });
  return command;
}

void Parser::defineGlobal() {
  app_.add_flag("--json", global_.json);
  app_.add_option("--home", global_.home);
  list(&app_, "--header", [this](const std::vector<std::string>& headers) {
    for (const std::string& header : headers) {
      TextPair pair = acceptOrReject("--header", parseHeader(header));
      setHeader(global_.headers, std::move(pair.first), std::move(pair.second));
    }
  });
  list(&app_, "--option", [this](const std::vector<std::string>& pairs) {
    global_.options = acceptOrReject("--option", typedDictionary(pairs));
  });
  CLI::Option* token = app_.add_option("--token", token_);
  app_.add_option_function<std::string>("--token-file",
                                        [this](const std::string& path) {
                                          token_ =
                                              acceptOrReject("--token-file", readTokenFile(path));
                                        })
      ->excludes(token);
  text(&app_, "--policy",
       [this](const std::string& value) { global_.policy = parsePolicy("--policy", value); });
  app_.add_option("--cacert", global_.caFile);
  text(&app_, "--connect-timeout", [this](const std::string& value) {
    global_.connectTimeout = parseSeconds("--connect-timeout", value);
  });
  text(&app_, "--stall-timeout", [this](const std::string& value) {
    global_.stallTimeout = parseSeconds("--stall-timeout", value);
  });
  text(&app_, "--log-level", [this](const std::string& value) {
    global_.logLevel = parseLogLevel("--log-level", value);
  });
}

void Parser::defineList() {
  CLI::App* command = addCommand("list", list_);
  required(command, "URL", list_.url);
  command->add_option("--criteria", list_.criteria);
}

void Parser::defineUpload() {
  CLI::App* command = addCommand("upload", upload_);
  required(command, "URL", upload_.url);
  required(command, "FILE", upload_.file);
  command->add_option("--name", upload_.name);
  text(command, "--namespace", [this](const std::string& value) { upload_.nameSpace = value; });
  text(command, "--security-key",
       [this](const std::string& value) { upload_.securityKey = value; });
  meta(command, upload_.meta);
  text(command, "--chunk-size", [this](const std::string& value) {
    upload_.chunkSize = parseByteCount(value);
    if (!upload_.chunkSize) reject("--chunk-size", "'" + value + "' is not a positive size");
  });
  command->add_flag("--raw", upload_.raw);
}

void Parser::defineDownload() {
  CLI::App* command = addCommand("download", download_);
  required(command, "URL", download_.url);
  required(command, "FILE_ID", download_.fileId);
  text(command, "--namespace", [this](const std::string& value) { download_.nameSpace = value; });
  text(command, "--security-key",
       [this](const std::string& value) { download_.securityKey = value; });
}

void Parser::defineUpdate() {
  CLI::App* command = addCommand("update", update_);
  required(command, "URL", update_.url);
  required(command, "FILE_ID", update_.fileId);
  meta(command, update_.meta);
}

void Parser::defineDelete() {
  CLI::App* command = addCommand("delete", delete_, [this] {
    const bool byMetadata = !delete_.where.empty();
    if (!delete_.fileId && !byMetadata) reject("delete", "FILE_ID or --where is required");
    if (delete_.fileId && byMetadata) reject("delete", "FILE_ID and --where exclude each other");
  });
  required(command, "URL", delete_.url);
  text(command, "FILE_ID", [this](const std::string& value) { delete_.fileId = value; });
  list(command, "--where", [this](const std::vector<std::string>& pairs) {
    delete_.where = acceptOrReject("--where", textDictionary(pairs));
    // Only one of them would count, and more would be deleted than was meant.
    if (delete_.where.size() < pairs.size()) reject("--where", "a key is given twice");
  });
}

void Parser::defineAbort() {
  CLI::App* command = addCommand("abort", abort_);
  required(command, "URL", abort_.url);
  required(command, "FILE_ID", abort_.fileId);
}

void Parser::defineSandbox() {
  CLI::App* command = addCommand("sandbox", sandbox_);
  text(command, "--port",
       [this](const std::string& value) { sandbox_.port = parsePort("--port", value); });
  text(command, "--store-port",
       [this](const std::string& value) { sandbox_.storePort = parsePort("--store-port", value); });
  command->add_option("--data", sandbox_.dataDirectory);
  command->add_option("--example-db", sandbox_.exampleDatabase);
  command->add_option("--token-required", sandbox_.requiredToken);
  command->add_option("--listen", sandbox_.address);
}

void Parser::defineDemo() { addCommand("demo", demo_); }

const CLI::App* Parser::chosen() const {
  const auto commands = app_.get_subcommands();
  return commands.empty() ? nullptr : commands.front();
}

std::optional<std::string> Parser::complaintAboutRest() const {
  const std::vector<std::string> rest = app_.remaining();
  if (rest.empty()) return chosen() == nullptr ? std::optional("no command given") : std::nullopt;

  const std::string& first = rest.front();
  const bool isOption = first.size() > 1 && first.front() == '-';
  std::vector<std::string> candidates;
  if (isOption) {
    for (const CLI::App* app : {static_cast<const CLI::App*>(&app_), chosen()}) {
      if (app == nullptr) continue;
      for (const CLI::Option* option : app->get_options()) {
        for (const std::string& name : option->get_lnames()) candidates.push_back("--" + name);
      }
    }
  } else if (chosen() == nullptr) {
    for (const CLI::App* app : app_.get_subcommands({})) candidates.push_back(app->get_name());
  } else {
    return fmt::format("'{}' is one argument too many", first);
  }
  const auto closest = closestTo(first.substr(0, first.find('=')), candidates);
  return fmt::format("there is no {} '{}'{}", isOption ? "option" : "command", first,
                     closest ? fmt::format("; did you mean '{}'?", *closest) : "");
}

std::string Parser::explain(const CLI::ParseError& error) const {
  // An unknown option may be the cause of what was found missing after it.
  const auto complaint = complaintAboutRest();
  const bool knowsCommand = chosen() != nullptr;
  if (complaint && (!app_.remaining().empty() || !knowsCommand)) return *complaint;
  return error.what();
}

int Parser::usage(const std::string& reason, std::ostream& messages) const {
  const CLI::App* command = chosen();
  messages << "varobinary: " << reason << "\nTry 'varobinary "
           << (command != nullptr ? command->get_name() + " " : "") << "--help'.\n"
           << std::flush;
  return kExitUsage;
}

void Parser::addToken(const std::string& tokenVariable) {
  const bool fromOptions = !token_.empty();
  if (!fromOptions && hasHeader(global_.headers, binary::kVaroAuthorization)) return;
  const std::string& token = fromOptions ? token_ : tokenVariable;
  if (token.empty()) return;
  // One rule for what may stand in a header.
  TextPair header =
      acceptOrReject(fromOptions ? "--token" : "VARO_TOKEN",
                     parseHeader(std::string(binary::kVaroAuthorization) + ": " + token));
  setHeader(global_.headers, std::move(header.first), std::move(header.second));
}

ParsedCommandLine Parser::parse(std::vector<std::string> arguments,
                                const std::string& tokenVariable, std::ostream& results,
                                std::ostream& messages) {
  try {
    std::reverse(arguments.begin(), arguments.end());  // as CLI11 takes them
    app_.parse(std::move(arguments));
    if (const auto complaint = complaintAboutRest())
      return {std::nullopt, usage(*complaint, messages)};
    addToken(tokenVariable);
  } catch (const CLI::Success& help) {
    return {std::nullopt, app_.exit(help, results, messages)};
  } catch (const CLI::ParseError& error) {
    return {std::nullopt, usage(explain(error), messages)};
  }
  return {Invocation{std::move(global_), command_()}, 0};
}

}  // namespace

ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments,
                                   const std::string& tokenVariable, std::ostream& results,
                                   std::ostream& messages) {
  std::vector<std::string> words = withListsSpelledOut(arguments);
  // "help upload" is what many try first.
  if (!words.empty() && words.front() == "help") {
    words.erase(words.begin());
    words.emplace_back("--help");
  }
  return Parser().parse(std::move(words), tokenVariable, results, messages);
}

}  // namespace varo::cli
