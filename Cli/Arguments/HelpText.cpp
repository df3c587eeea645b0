#include "Cli/Arguments/HelpText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>

namespace varo::cli {

namespace {

constexpr std::string_view kIntroduction =
    R"(Move files between this machine and the object service of a back end.

Usage: varobinary [GLOBAL] COMMAND [ARGUMENTS]

Commands:
)";

constexpr std::string_view kGlobalOptions =
    R"(
URL is the base URL of the object service, without "/objects/File".
'varobinary COMMAND --help' tells all about a command.

Global options, before or after the command:
  --json                  print one JSON object a line on standard output, for scripts
  --quiet                 neither progress nor notes on standard error
  --yes                   ask nothing
  --dry-run               of 'delete': list what would be deleted, and delete nothing
  --home DIR              use DIR/Documents, DIR/Downloads and DIR/Library
                          (default: the directories of the desktop, such as ~/Downloads)
  --header 'NAME: VALUE'  send a request header; may be repeated
  --token T               send the authorization token T. Other users of this machine can
                          see it in the list of processes: prefer one of the next two
  --token-file FILE       take the token from the first line of FILE
  --option K=V            set an entry of the options dictionary; may be repeated.
                          true, false and whole numbers are typed, the rest is text
  --policy P              safe: whatever could lose data is an error (default)
                          compatible: behave as existing back ends and clients expect
  --connect-timeout S     seconds until a connection stands (default 30)
  --stall-timeout S       seconds without a byte moving (default 60)
  --retry N               send what fails for the moment up to N times more, where that does no
                          harm (default 3, with --policy compatible 0)
  --retry-max-time S      seconds that an operation waits for that altogether (default 300),
                          and that a service may ask it to wait (default 60)
  --limit-rate RATE       bytes in a second at most, such as 200K
  --proxy URL             go through the proxy [http|https|socks5|...://][USER[:PASSWORD]@]HOST.
                          Others can see a password here in the list of processes: prefer
                          the next option or VARO_PROXY_PASSWORD
  --proxy-password-file FILE
                          take the password of USER from the first line of FILE
  --proxy-env             go through the proxies that http_proxy, https_proxy, all_proxy and
                          no_proxy name
  --cacert FILE           trust the certificates (PEM) in FILE as well
  --cert FILE             show this certificate (PEM) to services that ask who connects
  --cert-key, --key FILE  its private key (PEM), where it is not in the same file. Behind a
                          'blob' command --key is of the record: put this one before it
  --key-password-file FILE
                          take the password of that key from the first line of FILE (or from
                          VARO_KEY_PASSWORD)
  --pinned-key SHA256     accept only https servers with this public key, the Base64 of its
                          digest; may be repeated
  --user-agent TEXT       the header "User-Agent"
  --parallel N            transfers at once where a command has several, and parts of one object
                          of s3:// (default 5)
  --trace FILE            write each request as a span, one JSON object a line, into FILE
  --log-level L           trace, debug, info, warning (default), error, fatal or off; on
                          standard error. Without this option, lines that the command says
                          in its own words anyway are left out
  -h, --help              show this help, or a command's
  -V, --version           show the version

Sizes are bytes, or end in K, M or G (powers of 1024). '--' ends the options: what stands
behind it is an argument, also where it begins with a dash.

Environment:
  VARO_TOKEN              the authorization token, where no option gives one
  VARO_ENDPOINT, VARO_REGION, VARO_ACCESS_KEY, VARO_SECRET_KEY, VARO_SESSION_TOKEN
                          an object store and its keys, likewise
  VARO_PROXY_PASSWORD, VARO_KEY_PASSWORD
                          passwords of the proxy and of the key, likewise
  NO_COLOR                set to anything: no colours

Exit status: 0 success, 1 the operation failed, 2 wrong usage, 130 interrupted.

First steps:
  varobinary demo
  varobinary sandbox --port 8080       # in one terminal; prints the URL to use
  varobinary upload URL photo.jpg      # in another
  varobinary list URL
)";

/// Where the summaries begin in the overview and in the help of a group.
constexpr std::size_t kOverviewIndent = 33;
constexpr std::size_t kGroupIndent = 26;

/// "  NAME    SUMMARY", the further lines of the summary below its first one, and that below a name
/// that leaves no room.
std::string entry(std::string_view name, std::string_view summary, std::size_t indent) {
  std::string text = fmt::format("  {:<{}}", name, indent - 2);
  if (!text.ends_with("  ")) text += '\n' + std::string(indent, ' ');
  for (const char c : summary) {
    text += c;
    if (c == '\n') text.append(indent, ' ');
  }
  return text + '\n';
}

/// "blob" of "blob path"; empty for a command of no group.
std::string_view groupOf(const Command& command) {
  const std::size_t blank = command.name.find(' ');
  return blank == std::string_view::npos ? std::string_view() : command.name.substr(0, blank);
}

/// "blob download, path, delete".
std::string namesIn(const CommandSet& commands, std::string_view group) {
  std::string names(group);
  std::string_view separator = " ";
  for (const Command& command : commands.commands) {
    if (groupOf(command) != group) continue;
    names.append(separator).append(command.name.substr(group.size() + 1));
    separator = ", ";
  }
  return names;
}

const CommandGroup* findGroup(const CommandSet& commands, std::string_view name) {
  const auto found = std::find_if(commands.groups.begin(), commands.groups.end(),
                                  [&](const CommandGroup& group) { return group.name == name; });
  return found == commands.groups.end() ? nullptr : &*found;
}

/// A group stands where the first of its commands would.
std::string overview(const CommandSet& commands) {
  std::string text(kIntroduction);
  std::string_view lastGroup;
  for (const Command& command : commands.commands) {
    const CommandGroup* group = findGroup(commands, groupOf(command));
    if (group == nullptr) {
      text += entry(fmt::format("{} {}", command.name, command.arguments), command.summary,
                    kOverviewIndent);
    } else if (group->name != lastGroup) {
      lastGroup = group->name;
      text += entry(namesIn(commands, group->name), group->summary, kOverviewIndent);
    }
  }
  return text.append(kGlobalOptions);
}

std::string groupHelp(const CommandSet& commands, const CommandGroup& group) {
  std::string text(group.introduction);
  for (const Command& command : commands.commands) {
    if (groupOf(command) == group.name) text += entry(command.name, command.summary, kGroupIndent);
  }
  return text.append(group.closing);
}

std::string commandHelp(const CommandSet& commands, std::string_view name) {
  const auto found = std::find_if(commands.commands.begin(), commands.commands.end(),
                                  [&](const Command& command) { return command.name == name; });
  assert(found != commands.commands.end());
  return found->help;
}

}  // namespace

std::string helpBody(const CommandSet& commands, std::string_view name) {
  if (name.empty()) return overview(commands);
  const CommandGroup* group = findGroup(commands, name);
  return group == nullptr ? commandHelp(commands, name) : groupHelp(commands, *group);
}

std::string helpText(const CommandSet& commands, std::string_view name) {
  const std::string body = helpBody(commands, name);
  return name.empty() ? body : body + "\nGlobal options: see 'varobinary --help'.\n";
}

std::string versionText() { return "varobinary " VARO_VERSION; }

}  // namespace varo::cli
