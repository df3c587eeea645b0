#pragma once

namespace varo::cli {

class DemoStage;

// The sections of the tour, in the order in which they build on each other. Each says what it does
// and records how it went; none throws or stops the tour.

/// Files of several sizes go up on every way that a service may ask for.
void showUploads(DemoStage& stage);
/// The files are listed, all and by criteria.
void showLists(DemoStage& stage);
/// Metadata change, bytes do not.
void showUpdates(DemoStage& stage);
/// The files come down and are compared.
void showDownloads(DemoStage& stage);
/// What goes wrong is said clearly, and nothing is left half-written.
void showFailures(DemoStage& stage);
/// The files go, at once and later.
void showDeletes(DemoStage& stage);
/// Binary columns of a database's records come down, through pauses and broken connections.
void showOfflineBlobs(DemoStage& stage);
/// Objects go to the store and come back, signed; a wrong signature is refused.
void showSignedTransfers(DemoStage& stage);

}  // namespace varo::cli
