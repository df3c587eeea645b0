#include "Cli/Commands/StoreRequest.h"

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Cli/Arguments/OutputArguments.h"
#include "Cli/Failures/ClientFailure.h"
#include "Cli/Run/ClientRun.h"
#include "Cli/Run/OutputSink.h"
#include "Cli/Run/StandardInput.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/UserDirectories.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace varo::cli {

using platform::Dictionary;
using platform::Value;
namespace fs = std::filesystem;

namespace {

constexpr char kSize[] = "size";
constexpr std::string_view kStandardInput = "-";

Outcome failed(platform::ErrorPtr error) { return {Outcome::Kind::kFailure, std::move(error)}; }

std::string sizeIn(const Dictionary& result) {
  if (!result.contains(kSize)) return {};
  return fmt::format(" ({})",
                     formatBytes(static_cast<std::uint64_t>(result[kSize].integerValue())));
}

/// The last part of the key in the downloads directory, which is made.
platform::Result<std::string> placeOf(const StoreAddress& address) {
  const fs::path directory = platform::UserDirectories::current()->downloads();
  std::error_code failed;
  fs::create_directories(directory, failed);
  if (failed) {
    return platform::Error::fromErrno(failed.value(), "cannot make the directory",
                                      directory.string());
  }
  return (directory / fs::path(address.key).filename()).string();
}

Outcome fetch(Session& session, const StoreArguments& from, const Destination& to,
              GetOptions options) {
  options.partsAtOnce = session.options().parallel;
  const auto store = openStore(session, from);
  if (!store) return failed(errorOf(store.error()));
  return awaitTransfer<ObjectInfo>(
      session, from.address.key,
      [&] { return store->get(ObjectKey(from.address.key), to, options); }, &resultOf);
}

constexpr char kGoesOn[] = "What has arrived is kept: the same command goes on there.";

std::string describeGet(const Dictionary& result) {
  const std::string path = printable(result[binary::kFilePath].textValue());
  // Nothing but the key is known of a file that was kept.
  if (!result.contains(kSize)) {
    return fmt::format("{} was there already, nothing was fetched.\n", path);
  }
  return fmt::format("Downloaded {}{}\n", path, sizeIn(result));
}

/// Of a get that is resumed: hints of others would say that nothing was stored.
FailureText describeKept(const Value& failure) {
  FailureText text = describeStoreFailure(failure);
  if (text.facts.isRetryable) text.hint = kGoesOn;
  return text;
}

}  // namespace

varo::Outcome<ObjectStore> openStore(const Session& session, const StoreArguments& store) {
  Options options = clientOptions(session.options(), {});
  options.credentials = [store]() -> varo::Outcome<Credentials> {
    return Credentials{.accessKey = store.accessKey,
                       .secretKey = store.secretKey,
                       .sessionToken = store.sessionToken};
  };
  return ObjectStore::create(
      S3{.endpoint = store.endpoint, .region = store.region, .bucket = store.address.bucket},
      std::move(options));
}

Dictionary resultOf(const ObjectInfo& info) {
  Dictionary result{{"id", info.key.text()}, {"key", info.key.text()}};
  if (info.size) result.set(kSize, static_cast<std::int64_t>(info.size->count));
  if (!info.entityTag.empty()) result.set("entityTag", info.entityTag);
  if (info.modified) {
    const auto time = std::chrono::system_clock::to_time_t(*info.modified);
    result.set("modified", fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(time)));
  }
  if (!info.contentType.empty()) result.set("contentType", info.contentType);
  if (info.isPrefix) result.set("isPrefix", true);
  if (!info.file.empty()) result.set(binary::kFilePath, info.file.string());
  return result;
}

FailureText describeStoreFailure(const Value& failure) {
  FailureText text = describeFailureOf(Topic::kObject, failure);
  if (isAboutProxy(text)) return text;
  if (text.facts.kind == nameOf(Kind::kUnauthorized)) {
    text.hint =
        "Check --access-key, its secret (--secret-key-file, VARO_SECRET_KEY) and --region, and the "
        "clock of this machine.";
  } else if (text.facts.kind == nameOf(Kind::kNotFound)) {
    text.hint = "'varobinary object list s3://BUCKET' shows the keys that are there.";
  } else if (text.facts.kind == nameOf(Kind::kConflict) && !text.facts.httpStatus) {
    text.hint = "--if-exists replace, keep or number says what else to do.";
  }
  return text;
}

int getFromStore(Session& session, const StoreArguments& store, const StoreGet& get) {
  session.output().begin(fs::path(store.address.key).filename());
  Wording wording{.success = describeGet,
                  .failure = describeStoreFailure,
                  .about = {store.address.text(), store.endpoint}};
  if (get.output == kStandardOutput) {
    const OutputSink sink(session);
    wording.success = [](const Dictionary&) { return std::string(); };
    return session.finish(sink.concluded(fetch(session, store, sink.sink(), {})), wording);
  }
  const platform::Result<std::string> path = get.output ? *get.output : placeOf(store.address);
  if (!path) return session.finish(failed(path.error()));
  if (get.resume) wording.failure = describeKept;
  const Outcome outcome =
      fetch(session, store, fs::path(*path), {.ifExists = get.ifExists, .keepParts = get.resume});
  if (get.resume && outcome.kind == Outcome::Kind::kInterrupted) {
    session.output().note(kGoesOn);
  }
  return session.finish(outcome, wording);
}

int putToStore(Session& session, StoreArguments store, const StorePut& put) {
  std::optional<InputCopy> copy;
  std::string path = put.file;
  const std::string name = put.file == kStandardInput ? "standard input" : put.file;
  if (put.file == kStandardInput) {
    auto made = InputCopy::make(STDIN_FILENO, session.interrupts());
    if (session.interrupts().raised()) return session.finish({Outcome::Kind::kInterrupted, {}});
    if (!made) return session.finish(failed(made.error()));
    copy = std::move(made).value();
    path = copy->path();
  } else if (store.address.key.empty() || store.address.key.ends_with('/')) {
    store.address.key += fs::path(path).filename().string();
  }
  session.output().begin(put.file == kStandardInput ? store.address.key
                                                    : fs::path(path).filename().string());
  const auto opened = openStore(session, store);
  if (!opened) return session.finish(failed(errorOf(opened.error())));
  PutOptions options;
  options.partsAtOnce = session.options().parallel;
  if (put.contentType) options.contentType = *put.contentType;
  if (put.partSize) options.partSize = Bytes(static_cast<std::uint64_t>(*put.partSize));
  const Outcome outcome = awaitTransfer<ObjectInfo>(
      session, store.address.key,
      [&] { return opened->put(ObjectKey(store.address.key), Source::file(path), options); },
      &resultOf);
  return session.finish(outcome, {.success =
                                      [&](const Dictionary& result) {
                                        return fmt::format("Uploaded {} as {}{}\n", printable(name),
                                                           printable(store.address.text()),
                                                           sizeIn(result));
                                      },
                                  .failure = describeStoreFailure,
                                  .about = {name, store.address.text(), store.endpoint}});
}

}  // namespace varo::cli
