#pragma once

#include "Cli/Arguments/StoreArguments.h"
#include "Cli/Commands/Checkup.h"
#include "Platform/Foundation/Value.h"

#include <string>

/// What the steps are for each kind of server. Nothing is changed there. Each stops where the next
/// step cannot work, and when the user interrupts.
namespace varo::cli {

/// An object service.
void checkFileService(Session& session, Checkup& checkup, const std::string& url);

/// An object store that is addressed directly.
void checkStore(Session& session, Checkup& checkup, const StoreArguments& store);

/// A service of blobs, by the configuration of `blob download`.
void checkBlobService(Session& session, Checkup& checkup, const platform::Dictionary& config);

/// A service of upload templates, by the configuration of `object put`, and the store that its
/// template names.
void checkTemplates(Session& session, Checkup& checkup, const platform::Dictionary& config);

/// Where objects come from, by the configuration of `object get`.
void checkObjectSource(Session& session, Checkup& checkup, const platform::Dictionary& config);

}  // namespace varo::cli
