#include "Cli/Program.h"

#include "Cli/CommandLine.h"
#include "Cli/Console.h"
#include "Cli/ConsoleLogSink.h"
#include "Cli/HumanOutput.h"
#include "Cli/Interrupts.h"
#include "Cli/JsonOutput.h"
#include "Cli/Session.h"
#include "Cli/Terminal.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Logging/VaroNativeFacade.h"

#include <cstdlib>
#include <iostream>
#include <memory>
#include <variant>

namespace varo::cli {

namespace {

/// Where a terminal does not tell how wide it is.
constexpr std::size_t kUsualWidth = 80;

std::size_t messageWidth() {
  return terminal::width(terminal::Stream::kError).value_or(kUsualWidth);
}

std::shared_ptr<Output> makeOutput(const GlobalOptions& options, Console& console) {
  if (options.json) return std::make_shared<JsonOutput>(std::cout);
  return std::make_shared<HumanOutput>(std::cout, console, messageWidth);
}

std::shared_ptr<platform::LogSink> makeLogSink(const GlobalOptions& options, Console& console) {
  const bool wanted = options.json || options.logLevel;
  using Lines = ConsoleLogSink::OperationLines;
  return std::make_shared<ConsoleLogSink>(console, wanted ? Lines::kShown : Lines::kOnlyFatal);
}

int runCommand(const Invocation& invocation, Interrupts& interrupts) {
  Console console(std::cerr, {terminal::isTerminal(terminal::Stream::kError),
                              terminal::mayColour(terminal::Stream::kError)});
  platform::VaroNativeFacade::setSink(makeLogSink(invocation.global, console));
  int status = 0;
  {
    Session session(invocation.global, makeOutput(invocation.global, console), interrupts);
    status =
        std::visit([&](const auto& options) { return run(session, options); }, invocation.command);
    // Ends what an interrupt left under way. After it nothing uses the console or the output.
    platform::Runtime::shared().shutdown();
    if (!session.output().allWritten()) {
      console.print("standard output could not be written", "error: ", Console::Style::kError);
      status = status == 0 ? kExitFailure : status;
    }
  }
  platform::VaroNativeFacade::setSink(nullptr);
  return status;
}

}  // namespace

int runProgram(const std::vector<std::string>& arguments) {
  Interrupts interrupts;
  const char* token = std::getenv("VARO_TOKEN");
  const ParsedCommandLine parsed =
      parseCommandLine(arguments, token == nullptr ? "" : token, std::cout, std::cerr);
  return parsed.invocation ? runCommand(*parsed.invocation, interrupts) : parsed.exitStatus;
}

}  // namespace varo::cli
