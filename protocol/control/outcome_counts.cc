#include "protocol/control/outcome_counts.h"

#include <algorithm>
#include <cstddef>

namespace dhcp_relay::control {
namespace {

void Add(const std::string& name, std::uint64_t count, OutcomeCounts& list) {
  OutcomeCount& outcome = *list.Add();
  outcome.set_outcome(name);
  outcome.set_count(count);
}

}  // namespace

void AddOutcomes(std::span<const std::string> names, std::span<const std::uint64_t> counts,
                 OutcomeCounts& list) {
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (counts[i] != 0) Add(names[i], counts[i], list);
  }
}

void CompleteOutcomes(std::span<const std::string> names, OutcomeCounts& list) {
  OutcomeCounts complete;
  for (const std::string& name : names) {
    const auto found = std::ranges::find(list, name, &OutcomeCount::outcome);
    Add(name, found == list.end() ? 0 : found->count(), complete);
  }
  for (const OutcomeCount& outcome : list) {
    if (std::ranges::find(names, outcome.outcome()) == names.end()) *complete.Add() = outcome;
  }
  list.Swap(&complete);
}

}  // namespace dhcp_relay::control
