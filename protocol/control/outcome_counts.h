// Lists of outcomes with their counts, as the control protocol carries them.

#ifndef PROTOCOL_CONTROL_OUTCOME_COUNTS_H_
#define PROTOCOL_CONTROL_OUTCOME_COUNTS_H_

#include <cstdint>
#include <span>
#include <string>

#include "protocol/control/control.pb.h"

namespace dhcp_relay::control {

using OutcomeCounts = google::protobuf::RepeatedPtrField<OutcomeCount>;

// Adds what is not zero. counts[i] belongs to names[i].
void AddOutcomes(std::span<const std::string> names, std::span<const std::uint64_t> counts,
                 OutcomeCounts& list);

// Makes the list complete: a count for each of `names`, in that order, then those of other names,
// which a newer manager may send.
void CompleteOutcomes(std::span<const std::string> names, OutcomeCounts& list);

}  // namespace dhcp_relay::control

#endif  // PROTOCOL_CONTROL_OUTCOME_COUNTS_H_
