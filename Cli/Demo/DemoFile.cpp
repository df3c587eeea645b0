#include "Cli/Demo/DemoFile.h"

#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/File.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

namespace varo::cli {

using platform::Data;
using platform::File;
using platform::Result;

namespace {

constexpr std::uint64_t kPiece = 1 << 20;

Result<void> fill(File& file, std::uint64_t size, std::mt19937_64& random) {
  std::vector<std::uint64_t> words(kPiece / sizeof(std::uint64_t));
  for (std::uint64_t offset = 0; offset < size; offset += kPiece) {
    std::generate(words.begin(), words.end(), std::ref(random));
    std::string piece(std::min(kPiece, size - offset), '\0');
    std::memcpy(piece.data(), words.data(), piece.size());
    if (auto written = file.writeAt(offset, piece); !written) return written;
  }
  return {};
}

}  // namespace

Result<DemoFile> makeDemoFile(const std::string& directory, std::string name, std::uint64_t size) {
  DemoFile demo{std::move(name), {}, size, {}};
  demo.path = directory + "/" + demo.name;
  const auto file = File::createNew(demo.path);
  if (!file) return file.error();
  std::seed_seq seed(demo.name.begin(), demo.name.end());
  std::mt19937_64 random(seed);
  if (auto filled = fill(**file, size, random); !filled) return filled.error();
  Result<std::string> digest = digestOfFile(demo.path);
  if (!digest) return digest.error();
  demo.digest = std::move(digest).value();
  return demo;
}

Result<std::string> digestOfFile(const std::string& path) {
  const Result<Data> data = Data::fromFile(path);
  if (!data) return data.error();
  const auto digest = platform::Sha256::of(*data);
  if (!digest) return digest.error();
  return digest->hex();
}

bool sameBytes(const std::string& left, const std::string& right) {
  const Result<Data> leftData = Data::fromFile(left);
  const Result<Data> rightData = Data::fromFile(right);
  return leftData && rightData && *leftData == *rightData;
}

}  // namespace varo::cli
