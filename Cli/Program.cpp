#include "Cli/Program.h"

#include "Cli/Arguments/CommandLine.h"
#include "Cli/Commands/CommandList.h"
#include "Cli/Run/HumanOutput.h"
#include "Cli/Run/Interrupts.h"
#include "Cli/Run/JsonOutput.h"
#include "Cli/Run/LastEvent.h"
#include "Cli/Run/Session.h"
#include "Cli/Run/TraceFile.h"
#include "Cli/Run/WaitNotices.h"
#include "Cli/Terminal/Console.h"
#include "Cli/Terminal/ConsoleLogSink.h"
#include "Cli/Terminal/Terminal.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string_view>

namespace varo::cli {

namespace {

/// Where a terminal does not tell how wide it is.
constexpr std::size_t kUsualWidth = 80;

std::size_t messageWidth() {
  return terminal::width(terminal::Stream::kError).value_or(kUsualWidth);
}

std::shared_ptr<Output> makeOutput(const GlobalOptions& options, Console& console) {
  if (options.json) return std::make_shared<JsonOutput>(std::cout);
  const auto asides = options.quiet ? HumanOutput::Asides::kNone : HumanOutput::Asides::kShown;
  return std::make_shared<HumanOutput>(std::cout, console, messageWidth, asides);
}

std::shared_ptr<platform::LogSink> makeLogSink(const Invocation& invocation, Console& console,
                                               const std::shared_ptr<Output>& output) {
  using Lines = ConsoleLogSink::OperationLines;
  const auto lines = std::make_shared<ConsoleLogSink>(
      console, invocation.global.logLevel ? Lines::kShown : Lines::kOnlyFatal);
  return std::make_shared<WaitNotices>(lines, invocation.leastLogLevel, output);
}

int runCommand(const Invocation& invocation, Interrupts& interrupts) {
  Console console(std::cerr, {terminal::canReplaceLines(terminal::Stream::kError),
                              terminal::mayColour(terminal::Stream::kError)});
  const auto output = makeOutput(invocation.global, console);
  std::optional<Session> session;
  std::shared_ptr<TraceFile> trace;
  int status = runToItsLastEvent(*output, [&] {
    platform::VaroNativeFacade::setSink(makeLogSink(invocation, console, output));
    if (const std::string& path = invocation.global.traceFile; !path.empty()) {
      auto opened = TraceFile::open(path, invocation.command);
      if (!opened) {
        output->failure(opened.error());
        return kExitFailure;
      }
      trace = std::move(opened).value();
      platform::VRONetworkUtility::setObserver(trace);
    }
    session.emplace(invocation.global, output, interrupts);
    return invocation.run(*session);
  });
  // Ends what an interrupt left under way. After it nothing uses the console or the output.
  platform::Runtime::shared().shutdown();
  if (!output->allWritten()) {
    console.print("standard output could not be written", "error: ", Console::Style::kError);
    status = status == 0 ? kExitFailure : status;
  }
  if (trace != nullptr && !trace->finish(status)) {
    console.print("the file of --trace could not be written", "error: ", Console::Style::kError);
    status = status == 0 ? kExitFailure : status;
  }
  // After the shutdown: what was still running has used the session's transport.
  session.reset();
  platform::VaroNativeFacade::setSink(nullptr);
  return status;
}

}  // namespace

int runProgram(const std::vector<std::string>& words) {
  // First of all: the next file that is opened would otherwise become standard output.
  terminal::occupyClosedStreams();
  // Before any other thread, which would take the signals otherwise.
  Interrupts interrupts;
  const char* token = std::getenv("VARO_TOKEN");
  const auto arguments = words.empty() ? words.begin() : words.begin() + 1;
  ParsedCommandLine parsed = parseCommandLine(commandSet(), {arguments, words.end()},
                                              token == nullptr ? "" : token, std::cout, std::cerr);
  if (!parsed.invocation) return parsed.exitStatus;
  if (!words.empty()) parsed.invocation->global.program = words.front();
  return runCommand(*parsed.invocation, interrupts);
}

void tellThatNothingBegan(std::span<char* const> words, const char* reason) noexcept {
  // Nothing was parsed yet, or the parser itself has failed; the words alone have to do.
  const bool scriptReads = std::any_of(words.begin(), words.end(), [](const char* word) {
    return word == std::string_view("--json");
  });
  if (scriptReads) JsonOutput::writeFixedFailure(std::cout);
  std::cerr << "varobinary: " << reason << '\n';
}

}  // namespace varo::cli
