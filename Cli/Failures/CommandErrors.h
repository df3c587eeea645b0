#pragma once

#include <cstdint>
#include <string_view>

/// Domains and codes of the errors that the command line itself reports, except of wrong usage,
/// which `Arguments.h` has. docs/errors.md says of each what to do.
namespace varo::cli {

inline constexpr std::string_view kCommandLineErrorDomain = "CommandLine";
/// The operation ended without a word, as some do under the compatible policy.
inline constexpr std::int64_t kCodeSilent = 1;
inline constexpr std::int64_t kCodeInterrupted = 2;
/// No memory, or an exception that nobody expected.
inline constexpr std::int64_t kCodeUnexpected = 3;
/// An exception, which the text names.
inline constexpr std::int64_t kCodeExceptionThrown = 4;
/// The object was spread over several files, as it may be under the compatible policy.
inline constexpr std::int64_t kCodeSeveralFiles = 5;
/// Whoever was asked did not want it.
inline constexpr std::int64_t kCodeNotConfirmed = 6;

/// Of several things some could not be moved; each was told.
inline constexpr std::int64_t kCodeSomeFailed = 7;
/// A check of `doctor` has found something wrong.
inline constexpr std::int64_t kCodeCheckFailed = 8;
/// A file has a name that the service cannot note.
inline constexpr std::int64_t kCodeUnusableName = 9;
/// The file of `--trace` cannot be made.
inline constexpr std::int64_t kCodeTraceNotOpened = 10;

inline constexpr std::string_view kClientErrorDomain = "Client";
/// What the typed client has found itself; "kind" tells what it was.
inline constexpr std::int64_t kCodeFoundByClient = 0;

inline constexpr std::string_view kSandboxErrorDomain = "Sandbox";
/// The sandbox could not start, or its example database could not be made.
inline constexpr std::int64_t kCodeSandboxFailed = 1;

inline constexpr std::string_view kDemoErrorDomain = "Demo";
inline constexpr std::int64_t kCodeStepsWentWrong = 1;
/// The sandbox of the tour could not start.
inline constexpr std::int64_t kCodeDemoNotStarted = 2;

}  // namespace varo::cli
