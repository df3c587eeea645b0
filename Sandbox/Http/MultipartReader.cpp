#include "Sandbox/Http/MultipartReader.h"

#include "Sandbox/Http/HttpRequest.h"

#include <algorithm>
#include <utility>

namespace varo::sandbox {
namespace {

// A head is held in memory until it ends, so one that never ends has to be refused.
constexpr std::size_t kMaxPartHead = std::size_t{16} * 1024;
constexpr std::size_t kMaxBoundary = 70;  // RFC 2046, 5.1.1

}  // namespace

MultipartReader::MultipartReader(std::string_view boundary, Sink sink)
    : MultipartReader(boundary, nullptr, std::move(sink)) {}

MultipartReader::MultipartReader(std::string_view boundary, PartStart partStart, Sink sink)
    : delimiter_("\r\n--" + std::string(boundary)),
      partStart_(std::move(partStart)),
      sink_(std::move(sink)) {}

bool MultipartReader::push(std::string_view piece) {
  if (state_ == State::kEnd) return true;  // What follows the end is to be ignored.
  // A delimiter may be split between two pieces, so what may be the beginning of one is kept.
  pending_.append(piece);
  for (;;) {
    const State before = state_;
    if (!step()) return false;
    // No step was made: the next one needs more bytes.
    if (state_ == before || state_ == State::kEnd) return true;
  }
}

bool MultipartReader::step() {
  switch (state_) {
    case State::kPreamble:
      if (pending_.size() < delimiter_.size()) return true;
      if (!pending_.starts_with(delimiter_)) return fail();
      pending_.erase(0, delimiter_.size());
      state_ = State::kHead;
      return true;
    case State::kHead: {
      // The line break after the delimiter begins the head, so an empty head is found, too.
      const std::size_t end = pending_.find("\r\n\r\n");
      if (end == std::string::npos) return pending_.size() <= kMaxPartHead || fail();
      if (!pending_.starts_with("\r\n")) return fail();
      if (partStart_ && !partStart_(std::string_view(pending_).substr(2, end))) return fail();
      pending_.erase(0, end + 4);
      state_ = State::kContent;
      return true;
    }
    case State::kContent:
      return readContent();
    case State::kAfterPart:
      // Two bytes tell what follows the delimiter: "--" ends the body, a
      // line break begins another part.
      if (pending_.size() < 2) return true;
      if (partStart_ && pending_.starts_with("\r\n")) {
        state_ = State::kHead;
        return true;
      }
      if (!pending_.starts_with("--")) return fail();
      state_ = State::kEnd;
      return true;
    case State::kEnd:
      return true;
    case State::kBroken:
      return false;
  }
  return false;
}

bool MultipartReader::readContent() {
  const std::size_t end = pending_.find(delimiter_);
  const bool found = end != std::string::npos;
  // The tail may be the beginning of a delimiter.
  const std::size_t ready =
      found ? end : pending_.size() - std::min(pending_.size(), delimiter_.size() - 1);
  if (ready > 0 && !sink_(std::string_view(pending_).substr(0, ready))) return fail();
  pending_.erase(0, found ? end + delimiter_.size() : ready);
  if (found) state_ = State::kAfterPart;
  return true;
}

bool MultipartReader::fail() {
  state_ = State::kBroken;
  return false;
}

std::string multipartBoundary(std::string_view value) {
  constexpr std::string_view kType = "multipart/form-data";
  constexpr std::string_view kKey = "boundary=";
  if (!startsIgnoringCase(value, kType)) return {};
  const std::size_t begin = value.find(kKey);
  if (begin == std::string_view::npos) return {};
  value.remove_prefix(begin + kKey.size());
  if (value.starts_with('"')) {
    value.remove_prefix(1);
    // Some clients quote it; quotes are needed where it holds a ":" or "?" (RFC 2046, 5.1.1).
    value = value.substr(0, value.find('"'));
  } else {
    value = value.substr(0, value.find_first_of("; \t"));
  }
  return std::string(value.size() > kMaxBoundary ? std::string_view() : value);
}

}  // namespace varo::sandbox
