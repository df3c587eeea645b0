#include "Client/FileDestination.h"

#include "Client/Failures.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/File.h"

#include <fmt/format.h>

#include <cerrno>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace varo::detail {

using platform::Data;
using platform::Durability;
using platform::Error;
using platform::File;
using platform::Result;
namespace fs = std::filesystem;

namespace {

/// Names tried before giving up: "photo (1).jpg" and so on.
constexpr int kMostNumbers = 10000;

bool isThere(const fs::path& path) {
  return platform::fileKindAt(path.string()) != platform::FileKind::kNothing;
}

fs::path numbered(const fs::path& path, int number) {
  return path.parent_path() /
         fmt::format("{} ({}){}", path.stem().string(), number, path.extension().string());
}

bool isTaken(const Result<void>& stored) {
  return !stored && stored.error()->domain() == platform::kPosixErrorDomain &&
         stored.error()->code() == EEXIST;
}

/// How a file gets a name: in place of what is there, or only where nothing is.
struct Naming {
  std::function<Result<void>(const std::string& name)> replace;
  std::function<Result<void>(const std::string& name)> make;
};

Naming namingOf(const Data& bytes) {
  const auto with = [&bytes](auto store) {
    return [&bytes, store](const std::string& name) {
      return store(name, bytes, Durability::kSynced);
    };
  };
  return {with(platform::storeFile), with(platform::storeNewFile)};
}

Naming namingOf(const File& file) {
  const auto with = [&file](auto move) {
    return [&file, move](const std::string& name) { return move(file, name, Durability::kSynced); };
  };
  return {with(platform::moveFile), with(platform::moveNewFile)};
}

Result<std::string> storeAt(const fs::path& path, IfExists ifExists, const Naming& naming) {
  fs::path name = path;
  if (ifExists == IfExists::kReplace) {
    if (auto stored = naming.replace(name.string()); !stored) return stored.error();
    return name.string();
  }
  for (int number = 1;; ++number) {
    // A second attempt to store has to copy all bytes, so names that are taken cost a look alone.
    while (ifExists == IfExists::kNumber && number <= kMostNumbers && isThere(name)) {
      name = numbered(path, number++);
    }
    // Somebody else may make the file at any moment, so storing it decides, not the look before.
    const auto stored = naming.make(name.string());
    if (stored) return name.string();
    if (isTaken(stored) && ifExists == IfExists::kKeep) return name.string();
    if (!isTaken(stored) || ifExists == IfExists::kFail || number > kMostNumbers) {
      return stored.error();
    }
    name = numbered(path, number);
  }
}

}  // namespace

Outcome<PreparedFile> prepare(fs::path path, IfExists ifExists) {
  if (!path.has_filename()) {
    return failureOf(Kind::kInvalidArgument,
                     fmt::format("The destination \"{}\" names no file", path.string()));
  }
  const fs::path directory = path.has_parent_path() ? path.parent_path() : fs::path(".");
  std::error_code none;
  if (!fs::is_directory(directory, none)) {
    return failureOf(Kind::kLocalFile, fmt::format("There is no directory \"{}\" for the download",
                                                   directory.string()));
  }
  if (isThere(path) && ifExists == IfExists::kFail) {
    return failureOf(Kind::kConflict,
                     fmt::format("\"{}\" is there already; nothing was fetched", path.string()));
  }
  const bool isFile = ifExists == IfExists::kKeep
                          ? fs::is_regular_file(path, none)
                          : platform::fileKindAt(path.string()) == platform::FileKind::kRegular;
  if (isThere(path) && ifExists != IfExists::kNumber && !isFile) {
    return failureOf(
        Kind::kLocalFile,
        fmt::format("\"{}\" is there and no file; nothing was fetched", path.string()));
  }
  PreparedFile prepared;
  if (isThere(path) && ifExists == IfExists::kKeep) prepared.kept = path;
  prepared.directory = directory.string();
  prepared.store = [path, ifExists](const Data& bytes) {
    return storeAt(path, ifExists, namingOf(bytes));
  };
  prepared.move = [path, ifExists](const File& file) {
    return storeAt(path, ifExists, namingOf(file));
  };
  prepared.path = std::move(path);
  return prepared;
}

Outcome<void> handTo(const Sink& sink, const Data& bytes, const std::string& about) {
  const auto threw = [&about](std::string_view what) {
    return failureOf(Kind::kLocalFile, fmt::format("{}: the sink threw{}", about, what));
  };
  try {
    const auto read = bytes.forEachPiece([&sink](std::string_view piece) -> Result<void> {
      sink(std::as_bytes(std::span(piece)));
      return {};
    });
    return read ? Outcome<void>() : Outcome<void>(failureFrom(read.error(), about));
  } catch (const std::exception& thrown) {
    return threw(fmt::format(": {}", thrown.what()));
  } catch (...) {  // an application's code may throw anything
    return threw("");
  }
}

}  // namespace varo::detail
