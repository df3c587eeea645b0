#include "examples/metrics.h"
#include "examples/spans.h"

#include <fstream>
#include <iostream>
#include <span>
#include <string>
#include <varo/client.h>

// Sends a file to the service and gets it back. What happened stands in a file of spans, and as
// metrics on standard output:
//   watched_transfers URL FILE SPANS
int main(int count, char** words) try {
  if (count != 4) return 2;
  std::ofstream file(words[3]);
  Metrics metrics;
  Spans spans(file);
  const auto files = varo::FileClient::create({.url = words[1],
                                               .onRequest =
                                                   [&](const varo::RequestEvent& event) {
                                                     metrics.add(event);
                                                     spans.add(event);
                                                   },
                                               .onOperation =
                                                   [&](const varo::OperationEvent& event) {
                                                     metrics.add(event);
                                                     spans.add(event);
                                                   }})
                         .value();
  const auto sent = files.upload(varo::Source::file(words[2])).get().value();
  const auto drop = [](std::span<const std::byte> /*bytes*/) {};
  static_cast<void>(files.download(sent.id, varo::Sink(drop)).get().value());
  static_cast<void>(varo::shutDown());  // from here on nobody uses what is above
  metrics.write(std::cout);
  return file.flush() ? 0 : 1;
} catch (const varo::BadOutcome& failed) {
  std::cerr << failed.what() << '\n';
  return 1;
}
