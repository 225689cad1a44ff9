#include "platform/confd/src/path.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace confd {

const char* PathParser::Next(PathStep* step) {
  *step = PathStep();
  if (rest_.front() != '/') return "every node of an absolute path begins with '/'";
  rest_.remove_prefix(1);
  if (const char* error = TakeName(step)) return error;
  return TakeSelector(step);
}

const char* PathParser::TakeName(PathStep* step) {
  const auto ends_name = [](char c) { return c == '/' || c == '{' || c == '['; };
  const auto found = std::find_if(rest_.begin(), rest_.end(), ends_name);
  const auto end = static_cast<std::size_t>(found - rest_.begin());
  step->name = rest_.substr(0, end);
  rest_.remove_prefix(end);
  const std::size_t colon = step->name.find(':');
  if (colon != std::string_view::npos) {
    step->prefix = step->name.substr(0, colon);
    step->name.remove_prefix(colon + 1);
    if (step->prefix.empty()) return "a node has an empty prefix";
  }
  return step->name.empty() ? "a node has no name" : nullptr;
}

const char* PathParser::TakeSelector(PathStep* step) {
  if (rest_.empty() || rest_.front() == '/') return nullptr;
  return rest_.front() == '{' ? TakeKeys(step) : TakePosition(step);
}

const char* PathParser::TakeKeys(PathStep* step) {
  const std::size_t end = rest_.find('}');
  if (end == std::string_view::npos) return "a '{' has no '}'";
  step->selector = PathStep::Selector::kKeys;
  step->keys = rest_.substr(1, end - 1);
  rest_.remove_prefix(end + 1);
  return nullptr;
}

const char* PathParser::TakePosition(PathStep* step) {
  const std::size_t end = rest_.find(']');
  if (end == std::string_view::npos) return "a '[' has no ']'";
  const std::string_view digits = rest_.substr(1, end - 1);
  const auto parsed = std::from_chars(digits.begin(), digits.end(), step->position);
  if (parsed.ec != std::errc() || parsed.ptr != digits.end()) {
    return "a position is not a number of 0 or more";
  }
  step->selector = PathStep::Selector::kPosition;
  rest_.remove_prefix(end + 1);
  return nullptr;
}

}  // namespace confd
