#include "Cli/Commands/CommandList.h"
#include "Cli/Pages/CommandPage.h"
#include "Cli/Pages/Completions.h"
#include "Cli/Pages/ManPage.h"
#include "Platform/Foundation/Error.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

using namespace varo::cli;

namespace {

void write(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file.exceptions(std::ios::badbit | std::ios::failbit);
  file << text;
  file.close();
}

}  // namespace

/// Writes the man pages and the completions of `varobinary`:  varobinary_pages DIRECTORY DATE
int main(int count, char** words) try {
  if (count != 3) {
    std::cerr << "usage: varobinary_pages DIRECTORY DATE\n";
    return 2;
  }
  const auto pages = commandPages(commandSet());
  if (!pages) {
    std::cerr << "varobinary_pages: " << pages.error()->localizedDescription() << '\n';
    return 1;
  }
  const std::filesystem::path directory(words[1]);
  for (const CommandPage& page : *pages) {
    write(directory / "man" / (manPageName(page) + ".1"), manPage(page, *pages, words[2]));
  }
  write(directory / "completions/bash/varobinary", completion(Shell::kBash, *pages));
  write(directory / "completions/zsh/_varobinary", completion(Shell::kZsh, *pages));
  write(directory / "completions/fish/varobinary.fish", completion(Shell::kFish, *pages));
} catch (const std::exception& error) {
  std::cerr << "varobinary_pages: " << error.what() << '\n';
  return 1;
}
