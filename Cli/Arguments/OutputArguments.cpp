#include "Cli/Arguments/OutputArguments.h"

#include "Cli/Arguments/GlobalOptions.h"
#include "Cli/Arguments/OptionValues.h"

#include <filesystem>
#include <system_error>

namespace varo::cli {

void declareOutput(CommandArguments& arguments, std::optional<std::string>& output,
                   std::optional<IfExists>& ifExists) {
  arguments.text("-o,--output", output);
  arguments.parsed("--if-exists", ifExists, parseIfExists);
  arguments.choices("--if-exists", {kIfExistsNames.begin(), kIfExistsNames.end()});
}

void checkOutput(const GlobalOptions& global, const std::string& command,
                 const std::optional<std::string>& output,
                 const std::optional<IfExists>& ifExists) {
  if (output == "") CommandArguments::reject(command, "-o needs a file");
  std::error_code none;
  if (output && (output->ends_with('/') || std::filesystem::is_directory(*output, none))) {
    CommandArguments::reject(command, "'" + *output + "' is a directory: -o names a file");
  }
  if (output != kStandardOutput) return;
  if (global.json) CommandArguments::reject(command, "-o - and --json exclude each other");
  if (ifExists) CommandArguments::reject(command, "-o - and --if-exists exclude each other");
}

}  // namespace varo::cli
