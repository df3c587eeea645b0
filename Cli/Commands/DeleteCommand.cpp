#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/PollingSchedule.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Failures/ClientFailure.h"
#include "Cli/Failures/CommandErrors.h"
#include "Cli/Run/ClientRun.h"
#include "Cli/Run/Session.h"
#include "Cli/Run/StandardInput.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/Table.h"
#include "Cli/Terminal/Terminal.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"
#include "varo/files.h"

#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;

namespace {

constexpr std::string_view kHelp =
    R"(Delete a file, or all files with certain metadata.

Usage: varobinary [GLOBAL] delete URL FILE_ID
       varobinary [GLOBAL] delete URL --where K=V [--where K=V]...

  URL                     base URL of the object service
  FILE_ID                 id of the file, as 'list' and 'upload' print it
  --where K=V [K=V]...    delete the files whose metadata hold all these values; may be
                          repeated. --dry-run lists them and deletes nothing. On a terminal
                          the command says how many they are and asks; --yes asks nothing,
                          and nothing is asked in scripts

A service may accept a delete for later. It is then asked up to {} times, with growing
pauses of {} seconds at most together, whether it is done; each time that it is not, a line
on standard error says so. If it still works after that, the delete counts as failed,
although the service may finish it.

Examples:
  varobinary delete $URL 5f2b90c1
  varobinary delete $URL --where file_namespace=drafts owner=ann --dry-run
  varobinary delete $URL --where file_namespace=drafts owner=ann
)";

struct DeleteOptions {
  std::string url;
  /// Either this, or what the metadata of the files must hold.
  std::optional<std::string> fileId;
  platform::Dictionary where;
};

std::string describeFilesWhere(const Dictionary& where) {
  std::string text = "Deleted the files with\n";
  for (const auto& entry : where) {
    text += fmt::format("  {} = {}\n", printable(entry.key), printable(entry.value.textValue()));
  }
  return text;
}

Filter filterOf(const DeleteOptions& options) {
  if (options.fileId) return field(binary::keys::kFileId) == *options.fileId;
  Filter filter;
  for (const auto& entry : options.where) {
    filter = filter && field(entry.key) == entry.value.textValue();
  }
  return filter;
}

constexpr char kRecords[] = "records";
constexpr char kSize[] = "file_size";

Dictionary resultOf(const std::vector<FileRecord>& found) {
  platform::Array records;
  for (const FileRecord& record : found) {
    Dictionary entry{{binary::keys::kFileId, record.id.text()},
                     {binary::keys::kFileName, record.name}};
    if (record.size) entry.set(kSize, static_cast<std::int64_t>(record.size->count));
    records.append(entry);
  }
  return {{"dryRun", true}, {kRecords, records}};
}

/// The files that would be deleted, now.
Outcome find(Session& session, const DeleteOptions& options) {
  const auto client = FileClient::create(clientOptions(session.options(), options.url));
  if (!client) return {Outcome::Kind::kFailure, errorOf(client.error())};
  return awaitTransfer<std::vector<FileRecord>>(
      session, {}, [&] { return client->list(filterOf(options)); }, &resultOf);
}

std::string countOf(const Dictionary& found) {
  const platform::Array* records = found[kRecords].array();
  const std::size_t count = records == nullptr ? 0 : records->size();
  return fmt::format("{} file{}", count, count == 1 ? "" : "s");
}

std::string describeFound(const Dictionary& found) {
  const platform::Array* records = found[kRecords].array();
  if (records == nullptr || records->empty()) return "No files would be deleted.\n";
  Table table({{"FILE ID", Table::Align::kLeft, false},
               {"FILE NAME"},
               {"FILE SIZE", Table::Align::kRight, false}});
  for (const platform::Value& record : *records) {
    const Dictionary entry = record.dictionaryValue();
    const auto size = static_cast<std::uint64_t>(entry[kSize].integerValue());
    table.addRow({entry[binary::keys::kFileId].textValue(),
                  entry[binary::keys::kFileName].textValue(),
                  entry.contains(kSize) ? formatBytes(size) : ""});
  }
  return fmt::format("{}\n{} would be deleted; nothing was.\n",
                     table.text(terminal::width(terminal::Stream::kOutput)), countOf(found));
}

/// Asks whoever sits at the terminal. None: go on, else the end.
std::optional<Outcome> askFirst(Session& session, const DeleteOptions& options) {
  const GlobalOptions& global = session.options();
  // Scripts have never been asked.
  const bool isAsked = !options.fileId && !global.yes && !global.json &&
                       terminal::isTerminal(terminal::Stream::kInput) &&
                       terminal::isTerminal(terminal::Stream::kError);
  if (!isAsked) return std::nullopt;
  const Outcome found = find(session, options);
  if (found.kind != Outcome::Kind::kSuccess) return found;
  session.output().warning(fmt::format("{} will be deleted. Type y and Enter to go on:",
                                       countOf(found.value.dictionaryValue())));
  const std::string answer = readLine(STDIN_FILENO, session.interrupts());
  if (session.interrupts().raised()) return Outcome{Outcome::Kind::kInterrupted, {}};
  if (answer == "y" || answer == "Y" || answer == "yes") return std::nullopt;
  return Outcome{Outcome::Kind::kFailure,
                 platform::Error::make(kCommandLineErrorDomain, kCodeNotConfirmed,
                                       "nothing was deleted: it was not confirmed")};
}

void declare(CommandArguments& arguments, DeleteOptions& options) {
  arguments.parsed("URL", options.url, parseBaseUrl, Presence::kRequired);
  arguments.text("FILE_ID", options.fileId);
  arguments.pairs("--where", options.where);
  arguments.check([&options] {
    const bool byMetadata = !options.where.empty();
    if (!options.fileId && !byMetadata) {
      CommandArguments::reject("delete", "FILE_ID or --where is required");
    }
    if (options.fileId && byMetadata) {
      CommandArguments::reject("delete", "FILE_ID and --where exclude each other");
    }
  });
}

int run(Session& session, const DeleteOptions& options) {
  const GlobalOptions& global = session.options();
  const std::vector<std::string> about{options.fileId.value_or(""), options.url};
  if (global.dryRun) {
    session.output().begin("Looking");
    return session.finish(find(session, options), {.success = describeFound, .about = about});
  }
  if (const auto end = askFirst(session, options)) return session.finish(*end, {.about = about});
  return session.perform("Deleting" + (options.fileId ? " " + *options.fileId : ""),
                         [&](const Session::Blocks& blocks) {
                           if (options.fileId) {
                             BinaryFileStorageInterface::deleteWithUrl(
                                 options.url, options.fileId, {}, global.headers, blocks.onSuccess,
                                 blocks.onFailure, session.operationOptions());
                           } else {
                             BinaryFileStorageInterface::deleteByCriteria(
                                 options.url, options.where, global.headers, blocks.onSuccess,
                                 blocks.onFailure, session.operationOptions());
                           }
                         },
                         {.success =
                              [&](const Dictionary&) {
                                return options.fileId
                                           ? fmt::format("Deleted {}\n", printable(*options.fileId))
                                           : describeFilesWhere(options.where);
                              },
                          .about = about});
}

}  // namespace

/// Deletes one file, or those whose metadata match.
Command makeDeleteCommand() {
  return {.name = "delete",
          .arguments = "URL FILE_ID",
          .summary = "delete a file, or with --where several",
          .help = fmt::format(kHelp, binary::polling::kMaxStatusRequests,
                              binary::polling::kLongestWaits.count()),
          .define = definition(declare, run),
          .hasDryRun = true};
}

}  // namespace varo::cli
