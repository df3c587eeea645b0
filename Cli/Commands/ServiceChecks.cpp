#include "Cli/Commands/ServiceChecks.h"

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Commands/BlobServiceConfig.h"
#include "Cli/Commands/ObjectRequest.h"
#include "Cli/Commands/Probe.h"
#include "Cli/Commands/StoreRequest.h"
#include "Cli/Failures/ClientFailure.h"
#include "Cli/Run/ClientRun.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Redaction.h"
#include "varo/files.h"
#include "varo/objects.h"

#include <fmt/format.h>

#include <optional>
#include <vector>

namespace varo::cli {

using platform::Dictionary;
using platform::Value;

namespace {

constexpr int kUnauthorized = 401;
constexpr int kForbidden = 403;

bool isRefusal(int status) { return status == kUnauthorized || status == kForbidden; }

/// Of an outcome that is none of the user's interrupt.
bool isKind(const FailureText& failure, Kind kind) { return failure.facts.kind == nameOf(kind); }

std::string_view tokenText(const GlobalOptions& global) {
  return global.token ? "the token was accepted" : "none was given, and none is asked for";
}

/// What an answer to a request without a record or an object says of the token.
bool checkToken(Session& session, Checkup& checkup, const Reply& reply) {
  if (!isRefusal(reply.status)) {
    checkup.notTried(steps::kToken, "it shows with a record or an object alone");
    return true;
  }
  const bool isGiven = session.options().token.has_value();
  checkup.wrong(
      steps::kToken,
      problem(Kind::kUnauthorized,
              fmt::format("{} (HTTP status {})",
                          isGiven ? "the token was refused" : "a token is asked for", reply.status),
              "Give a valid token with --token-file FILE or in VARO_TOKEN."));
  return false;
}

/// A file that no service has.
constexpr char kNoFile[] = "varobinary-doctor";

}  // namespace

void checkFileService(Session& session, Checkup& checkup, const std::string& url) {
  const auto reply = reach(session, checkup, {url + "/objects/File", session.options().headers});
  if (!reply) return;
  const auto client = FileClient::create(clientOptions(session.options(), url));
  if (!client) {
    return checkup.wrong(steps::kConfiguration, describeFailure(errorOf(client.error())));
  }
  const Outcome listed = awaitTransfer<std::vector<FileRecord>>(
      session, {}, [&] { return client->list(field(binary::keys::kFileId) == kNoFile); },
      [](const std::vector<FileRecord>&) { return Dictionary(); });
  if (listed.kind == Outcome::Kind::kInterrupted) return;
  if (listed.kind == Outcome::Kind::kSuccess) {
    checkup.good(steps::kService, "it lists files");
    checkup.good(steps::kToken, std::string(tokenText(session.options())));
    checkup.notTried(steps::kTemplate, "the service gives one with each upload");
    checkup.notTried(steps::kStore, "the template of an upload or a file names it");
  } else {
    const FailureText failure = describeFailure(listed.value);
    if (isKind(failure, Kind::kUnauthorized)) {
      checkup.good(steps::kService, "it answers");
      checkup.wrong(steps::kToken, failure);
    } else {
      checkup.wrong(steps::kService, failure);
    }
  }
  checkClock(checkup, *reply);
}

void checkStore(Session& session, Checkup& checkup, const StoreArguments& store) {
  const auto reply = reach(session, checkup, {store.endpoint + "/"});
  if (!reply) return;
  const auto opened = openStore(session, store);
  if (!opened) {
    return checkup.wrong(steps::kConfiguration, describeFailure(errorOf(opened.error())));
  }
  const Outcome listed = awaitTransfer<std::vector<ObjectInfo>>(
      session, {}, [&] { return opened->list({.prefix = {}, .delimiter = {}, .most = 1}); },
      [](const std::vector<ObjectInfo>&) { return Dictionary(); });
  if (listed.kind == Outcome::Kind::kInterrupted) return;
  const std::string keys = store.accessKey.empty() ? "nothing is signed, and that is enough"
                                                   : "the signature was accepted";
  if (listed.kind == Outcome::Kind::kSuccess) {
    checkup.good(steps::kToken, keys);
    checkup.good(steps::kStore, fmt::format("the bucket {} can be listed", store.address.bucket));
  } else {
    const FailureText failure = describeStoreFailure(listed.value);
    const bool isOfKeys = isKind(failure, Kind::kUnauthorized);
    checkup.wrong(isOfKeys ? steps::kToken : steps::kStore, failure);
    if (isOfKeys) checkup.notTried(steps::kStore, "the keys do not open it");
  }
  checkClock(checkup, *reply);
}

void checkBlobService(Session& session, Checkup& checkup, const Dictionary& config) {
  const auto reply = reach(
      session, checkup, {config[binary::kURL].textValue(), blobHeaders(session.options(), config)});
  if (!reply) return;
  checkup.notTried(
      steps::kService,
      fmt::format("it answers (HTTP status {}); more shows with a record alone", reply->status));
  (void)checkToken(session, checkup, *reply);
  checkClock(checkup, *reply);
}

void checkTemplates(Session& session, Checkup& checkup, const Dictionary& config) {
  const Dictionary request = objectConfiguration(session.options(), config);
  const auto reply =
      reach(session, checkup,
            {config[binary::kURL].textValue(), request[binary::keys::kHeaders].dictionaryValue(),
             config[binary::keys::kUploadParams].dictionaryValue()});
  if (!reply) return;
  constexpr int kOk = 200;
  if (isRefusal(reply->status)) {
    checkup.good(steps::kService, "it answers");
    (void)checkToken(session, checkup, *reply);
    return checkClock(checkup, *reply);
  }
  if (reply->status != kOk) {
    checkup.wrong(
        steps::kService,
        problem(Kind::kServer, fmt::format("it answers with HTTP status {}", reply->status),
                "Is \"URL\" the address that upload templates come from?"));
    return checkClock(checkup, *reply);
  }
  const auto given = platform::json::parse(reply->body);
  const Dictionary made = given ? given->dictionaryValue() : Dictionary();
  if (made.empty()) {
    checkup.wrong(steps::kService,
                  problem(Kind::kNotOurService, "it answers with something that is no template",
                          "Is \"URL\" the address that upload templates come from?"));
    return checkClock(checkup, *reply);
  }
  checkup.good(steps::kService, "it answers");
  checkup.good(steps::kToken, "the service lets us in");
  const std::string store = originOf(made[binary::kTemplateParamEndpointUrl].textValue());
  const std::string place =
      store.empty() ? originOf(made[binary::kTemplateParamDomain].textValue()) : store;
  if (place.empty()) {
    checkup.wrong(steps::kTemplate, problem(Kind::kServer, "it does not say where the file goes",
                                            "The service may want other \"uploadParams\"."));
    return checkClock(checkup, *reply);
  }
  checkup.good(steps::kTemplate, fmt::format("it sends files to {}", place));
  // The steps below the store are told under their own names: they are about another server now.
  if (const auto answer = reach(session, checkup, {place + "/"})) {
    checkup.good(steps::kStore,
                 fmt::format("{} answers; the keys show with an upload alone", place));
    checkClock(checkup, *answer);
  }
}

void checkObjectSource(Session& session, Checkup& checkup, const Dictionary& config) {
  const std::string endpoint = config[binary::kTemplateParamEndpointUrl].textValue();
  const std::string address =
      endpoint.empty() ? config[binary::kTemplateParamDomain].textValue() : endpoint;
  const std::string place = originOf(address);
  const auto reply = reach(session, checkup, {place.empty() ? address : place + "/"});
  if (!reply) return;
  checkup.good(steps::kStore, fmt::format("{} answers; the keys show with an object alone", place));
  checkClock(checkup, *reply);
}

}  // namespace varo::cli
