#include <charconv>
#include <cstring>
#include <optional>
#include <system_error>

#include <limidmgr/limidmgr.h>

namespace {

constexpr unsigned kNumberBits = 24;

std::optional<uint32_t> ParseNumber(const char* text) {
  const char* const end = text + std::strlen(text);
  uint32_t number = 0;
  const auto [rest, error] = std::from_chars(text, end, number);
  if (error != std::errc() || rest != end || number > limid_max_number) return std::nullopt;
  return number;
}

}  // namespace

int limid_from_intfname_suffix(limid_t* id, const char* suffix, limid_type_t type) {
  if (id == nullptr || suffix == nullptr || type != limid_type_vrf) return -1;
  const auto number = ParseNumber(suffix);
  if (!number) return -1;
  *id = (static_cast<limid_t>(type) << kNumberBits) | *number;
  return 0;
}

unsigned limid_type_of(limid_t id) { return id >> kNumberBits; }

uint32_t limid_number_of(limid_t id) { return id & limid_max_number; }
