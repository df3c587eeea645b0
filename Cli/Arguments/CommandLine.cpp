#include "Cli/Arguments/CommandLine.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Arguments/Arguments.h"
#include "Cli/Arguments/HelpText.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Arguments/Suggestion.h"
#include "Platform/Foundation/Error.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <utility>

namespace varo::cli {

using platform::Dictionary;
using platform::Result;

namespace {

/// Options that take one or more pairs.
constexpr std::array<std::string_view, 3> kPairLists = {"--key", "--meta", "--where"};

[[noreturn]] void reject(const std::string& option, const std::string& reason) {
  throw CLI::ValidationError(option, reason);
}

template <typename T>
T acceptOrReject(const std::string& option, Result<T> result) {
  if (!result) reject(option, result.error()->localizedDescription());
  return std::move(result).value();
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
  void defineBlob();
  void defineObject();
  void defineSandbox();
  void defineDemo();

  template <typename Options>
  CLI::App* addCommand(
      CLI::App* group, const std::string& name, Options& options, Check check = [] {});
  template <typename Options>
  CLI::App* addBlobCommand(CLI::App* group, const std::string& name, Options& options);
  /// An option whose value `parse` reads or refuses.
  template <typename Target, typename Parse>
  static CLI::Option* parsed(CLI::App* app, const std::string& name, Target& target, Parse parse);
  static CLI::Option* text(CLI::App* app, const std::string& name, Taker take);
  static void required(CLI::App* app, const std::string& name, std::string& target);
  static void list(CLI::App* app, const std::string& name, ListTaker take);
  /// Pairs that all have to hold. A key given twice is refused: only one value of it would count.
  static void uniquePairs(CLI::App* app, const std::string& name, Dictionary& target);
  static void meta(CLI::App* app, Dictionary& target);

  void addToken(const std::string& tokenVariable);
  /// Takes the store's secret from the environment where no option gives it.
  void completeStore();
  [[nodiscard]] std::optional<std::string> complaintAboutRest() const;
  [[nodiscard]] std::string explain(const CLI::ParseError& error) const;
  /// The command that was named, or the group that it would be in, such as "blob"; null for none.
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
  BlobDownloadOptions blobDownload_;
  BlobPathOptions blobPath_;
  BlobDeleteOptions blobDelete_;
  ObjectGetOptions objectGet_;
  ObjectPutOptions objectPut_;
  SandboxCommandOptions sandbox_;
  DemoOptions demo_;
  std::function<CommandOptions()> command_;
};

/// "blob download" for the command of that name in that group; empty for the program itself.
std::string commandName(const CLI::App* command) {
  if (command == nullptr || command->get_parent() == nullptr) return {};
  const std::string group = commandName(command->get_parent());
  return group.empty() ? command->get_name() : group + " " + command->get_name();
}

bool isGroup(const CLI::App* command) { return !command->get_subcommands({}).empty(); }

Parser::Parser() : app_("", "varobinary") {
  // What is left over is ours to explain: a mistyped command deserves a suggestion.
  app_.allow_extras();
  app_.require_subcommand(0, 1);
  app_.set_version_flag("--version", versionText());
  app_.formatter_fn([](const CLI::App* app, const std::string&, CLI::AppFormatMode) {
    return helpText(commandName(app));
  });
  defineGlobal();
  defineList();
  defineUpload();
  defineDownload();
  defineUpdate();
  defineDelete();
  defineAbort();
  defineBlob();
  defineObject();
  defineSandbox();
  defineDemo();
}

template <typename Target, typename Parse>
CLI::Option* Parser::parsed(CLI::App* app, const std::string& name, Target& target, Parse parse) {
  return text(app, name, [name, &target, parse](const std::string& value) {
    target = acceptOrReject(name, parse(value));
  });
}

CLI::Option* Parser::text(CLI::App* app, const std::string& name, Taker take) {
  return app->add_option_function<std::string>(name, std::move(take));
}

void Parser::required(CLI::App* app, const std::string& name, std::string& target) {
  app->add_option(name, target)->required();
}

void Parser::list(CLI::App* app, const std::string& name, ListTaker take) {
  CLI::Option* option = app->add_option_function<std::vector<std::string>>(name, std::move(take));
  option->allow_extra_args(false);
}

void Parser::uniquePairs(CLI::App* app, const std::string& name, Dictionary& target) {
  list(app, name, [name, &target](const std::vector<std::string>& pairs) {
    target = acceptOrReject(name, textDictionary(pairs));
    if (target.size() < pairs.size()) reject(name, "a key is given twice");
  });
}

void Parser::meta(CLI::App* app, Dictionary& target) {
  list(app, "--meta", [&target](const std::vector<std::string>& pairs) {
    target = acceptOrReject("--meta", textDictionary(pairs));
  });
}

template <typename Options>
CLI::App* Parser::addCommand(CLI::App* group, const std::string& name, Options& options,
                             Check check) {
  CLI::App* command = group->add_subcommand(name);
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
  parsed(&app_, "--token-file", token_, [](const std::string& path) {
    return readSecretFile(path, "token");
  })->excludes(token);
  parsed(&app_, "--policy", global_.policy, parsePolicy);
  app_.add_option("--cacert", global_.caFile);
  parsed(&app_, "--connect-timeout", global_.connectTimeout, parseSeconds);
  parsed(&app_, "--stall-timeout", global_.stallTimeout, parseSeconds);
  parsed(&app_, "--log-level", global_.logLevel, parseLogLevel);
}

void Parser::defineList() {
  CLI::App* command = addCommand(&app_, "list", list_);
  required(command, "URL", list_.url);
  command->add_option("--criteria", list_.criteria);
}

void Parser::defineUpload() {
  CLI::App* command = addCommand(&app_, "upload", upload_);
  required(command, "URL", upload_.url);
  required(command, "FILE", upload_.file);
  command->add_option("--name", upload_.name);
  text(command, "--namespace", [this](const std::string& value) { upload_.nameSpace = value; });
  text(command, "--security-key",
       [this](const std::string& value) { upload_.securityKey = value; });
  meta(command, upload_.meta);
  parsed(command, "--chunk-size", upload_.chunkSize, parseChunkSize);
  command->add_flag("--raw", upload_.raw);
}

void Parser::defineDownload() {
  CLI::App* command = addCommand(&app_, "download", download_);
  required(command, "URL", download_.url);
  required(command, "FILE_ID", download_.fileId);
  text(command, "--namespace", [this](const std::string& value) { download_.nameSpace = value; });
  text(command, "--security-key",
       [this](const std::string& value) { download_.securityKey = value; });
}

void Parser::defineUpdate() {
  CLI::App* command = addCommand(&app_, "update", update_);
  required(command, "URL", update_.url);
  required(command, "FILE_ID", update_.fileId);
  meta(command, update_.meta);
}

void Parser::defineDelete() {
  CLI::App* command = addCommand(&app_, "delete", delete_, [this] {
    const bool byMetadata = !delete_.where.empty();
    if (!delete_.fileId && !byMetadata) reject("delete", "FILE_ID or --where is required");
    if (delete_.fileId && byMetadata) reject("delete", "FILE_ID and --where exclude each other");
  });
  required(command, "URL", delete_.url);
  text(command, "FILE_ID", [this](const std::string& value) { delete_.fileId = value; });
  uniquePairs(command, "--where", delete_.where);
}

void Parser::defineAbort() {
  CLI::App* command = addCommand(&app_, "abort", abort_);
  required(command, "URL", abort_.url);
  required(command, "FILE_ID", abort_.fileId);
}

template <typename Options>
CLI::App* Parser::addBlobCommand(CLI::App* group, const std::string& name, Options& options) {
  BlobRecord& record = options.record;
  CLI::App* command = addCommand(group, name, options, [&record] {
    if (record.keys.empty()) reject("--key", "at least one pair is required");
  });
  required(command, "--db", record.database);
  required(command, "--table", record.table);
  required(command, "--column", record.column);
  uniquePairs(command, "--key", record.keys);
  return command;
}

void Parser::defineBlob() {
  CLI::App* group = app_.add_subcommand("blob");
  group->fallthrough();
  group->require_subcommand(0, 1);
  CLI::App* download = addBlobCommand(group, "download", blobDownload_);
  parsed(download, "--config", blobDownload_.config, readBlobConfiguration)->required();
  addBlobCommand(group, "path", blobPath_);
  addBlobCommand(group, "delete", blobDelete_)->add_flag("--before-sync", blobDelete_.beforeSync);
}

void Parser::defineObject() {
  CLI::App* group = app_.add_subcommand("object");
  group->fallthrough();
  group->require_subcommand(0, 1);
  CLI::App* get = addCommand(group, "get", objectGet_, [this] {
    if (objectGet_.stream && global_.json)
      reject("object get", "--stream and --json exclude each other");
  });
  parsed(get, "--config", objectGet_.config, readJsonFile)->required();
  uniquePairs(get, "--param", objectGet_.params);
  parsed(get, "--options", objectGet_.options, readJsonFile);
  get->add_flag("--stream", objectGet_.stream);
  CLI::App* put = addCommand(group, "put", objectPut_);
  parsed(put, "--config", objectPut_.config, readJsonFile)->required();
  text(put, "--file", [this](const std::string& value) { objectPut_.file = value; });
  parsed(put, "--options", objectPut_.options, readJsonFile);
}

void Parser::defineSandbox() {
  CLI::App* command = addCommand(&app_, "sandbox", sandbox_, [this] { completeStore(); });
  parsed(command, "--port", sandbox_.port, parsePort);
  parsed(command, "--store-port", sandbox_.storePort, parsePort);
  command->add_option("--data", sandbox_.dataDirectory);
  command->add_option("--example-db", sandbox_.exampleDatabase);
  command->add_option("--token-required", sandbox_.requiredToken);
  command->add_option("--listen", sandbox_.address);
  parsed(command, "--object-store", sandbox_.objectStore, parseStoreUrl);
  command->add_option("--access-key", sandbox_.accessKey);
  CLI::Option* secret = command->add_option("--secret-key", sandbox_.secretKey);
  constexpr const char* kSecretFile = "--secret-key-file";
  command
      ->add_option_function<std::string>(kSecretFile,
                                         [this](const std::string& path) {
                                           sandbox_.secretKey = acceptOrReject(
                                               kSecretFile, readSecretFile(path, "secret key"));
                                         })
      ->excludes(secret);
  command->add_option("--region", sandbox_.region);
  command->add_flag("--allow-unsigned", sandbox_.allowsUnsigned);
}

void Parser::completeStore() {
  const char* variable = std::getenv("VARO_SECRET_KEY");
  if (sandbox_.secretKey.empty() && variable != nullptr) sandbox_.secretKey = variable;
  const bool hasKeys = !sandbox_.accessKey.empty() && !sandbox_.secretKey.empty();
  // The sandbox's own keys open nothing elsewhere.
  if (!sandbox_.objectStore.empty() && !hasKeys) {
    reject("--object-store",
           "needs --access-key, and the secret from --secret-key-file, VARO_SECRET_KEY or "
           "--secret-key");
  }
}

void Parser::defineDemo() { addCommand(&app_, "demo", demo_); }

const CLI::App* Parser::chosen() const {
  const CLI::App* command = &app_;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
  return command == &app_ ? nullptr : command;
}

std::optional<std::string> Parser::complaintAboutRest() const {
  const CLI::App* command = chosen();
  const CLI::App* group = command == nullptr ? &app_ : command;
  const std::string name = commandName(group);
  const std::vector<std::string> rest = app_.remaining(true);
  if (rest.empty()) {
    if (!isGroup(group)) return std::nullopt;
    return fmt::format("no {}command given", name.empty() ? "" : name + " ");
  }

  const std::string& first = rest.front();
  const bool isOption = first.size() > 1 && first.front() == '-';
  std::vector<std::string> candidates;
  if (isOption) {
    for (const CLI::App* app = group; app != nullptr; app = app->get_parent()) {
      for (const CLI::Option* option : app->get_options()) {
        for (const std::string& word : option->get_lnames()) candidates.push_back("--" + word);
      }
    }
  } else if (isGroup(group)) {
    for (const CLI::App* app : group->get_subcommands({})) candidates.push_back(app->get_name());
  } else {
    return fmt::format("'{}' is one argument too many", first);
  }
  const std::string prefix = isOption || name.empty() ? "" : name + " ";
  const auto closest = closestTo(first.substr(0, first.find('=')), candidates);
  return fmt::format("there is no {} '{}{}'{}", isOption ? "option" : "command", prefix, first,
                     closest ? fmt::format("; did you mean '{}{}'?", prefix, *closest) : "");
}

std::string Parser::explain(const CLI::ParseError& error) const {
  // An unknown option or command may be the cause of what was found missing after it.
  const auto complaint = complaintAboutRest();
  const bool isComplete = chosen() != nullptr && !isGroup(chosen());
  if (complaint && (!app_.remaining(true).empty() || !isComplete)) return *complaint;
  return error.what();
}

int Parser::usage(const std::string& reason, std::ostream& messages) const {
  const std::string name = commandName(chosen());
  messages << "varobinary: " << reason << "\nTry 'varobinary " << (name.empty() ? "" : name + " ")
           << "--help'.\n"
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
  global_.token = header.second;
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
  std::vector<std::string> words = withListsSpelledOut(arguments, kPairLists);
  // "help upload" is what many try first.
  if (!words.empty() && words.front() == "help") {
    words.erase(words.begin());
    words.emplace_back("--help");
  }
  return Parser().parse(std::move(words), tokenVariable, results, messages);
}

}  // namespace varo::cli
