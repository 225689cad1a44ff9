// What becomes of each message that the relay receives: exactly one outcome.
//
// A new outcome is a line in one of the lists below, a leaf of that name in
// yang/vx-dhcp-relay-state.yang, and the place where it happens.

#ifndef PROTOCOL_CONTROL_OUTCOME_H_
#define PROTOCOL_CONTROL_OUTCOME_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace dhcp_relay::control {

// clang-format off

// A request that came in through a relay interface.
#define DHCP_RELAY_REQUEST_OUTCOMES(X)                                        \
  X(kRelayed)          /* to one server at least */                           \
  X(kMalformed)        /* message, headers or a checksum */                   \
  X(kTooManyHops)      /* RFC 1542 section 4.1.1 */                           \
  X(kOwnGiaddr)        /* a loop, or a forgery */                             \
  X(kForeignGiaddr)    /* another relay, refused here; RFC 3046 section 2.1 */\
  X(kUntrustedOption)  /* option 82 from a client; RFC 3046 section 2.1.1 */  \
  X(kPolicyDrop)       /* option 82 and policy "drop" */                      \
  X(kOverShare)        /* over the interface's share of the packet ring */    \
  X(kFlood)            /* over the rate of the interface's flood guard */     \
  X(kDiscoverFlood)    /* over that of its guard of DHCPDISCOVERs */          \
  X(kClientFlood)      /* over that of its client's guard */                  \
  X(kNoServer)         /* the instance has none */                            \
  X(kSendFailed)       /* to every server */

// A reply to a relay interface's address.
#define DHCP_RELAY_REPLY_OUTCOMES(X)                                          \
  X(kRelayed)                                                                 \
  X(kClientSide)       /* came in from clients, and not from their server */  \
  X(kUnknownServer)    /* from no server of the instance, where asked for */  \
  X(kMalformed)                                                               \
  X(kNoOption)         /* checked, and our option 82 is missing */            \
  X(kForeignOption)    /* checked, and the option 82 is not ours */           \
  X(kSendFailed)

// A message that matches no relay interface.
#define DHCP_RELAY_UNMATCHED_OUTCOMES(X)                                      \
  X(kNoInterface)      /* a request on an interface that relays for nobody */ \
  X(kNotForUs)         /* a request in transit, or for another station */     \
  X(kUnknownGiaddr)    /* a reply whose giaddr is none of ours */             \
  X(kMalformed)        /* a reply without giaddr, or a request's headers */

// clang-format on

#define DHCP_RELAY_ENUMERATOR(name) name,
enum class RequestOutcome : std::uint8_t { DHCP_RELAY_REQUEST_OUTCOMES(DHCP_RELAY_ENUMERATOR) };
enum class ReplyOutcome : std::uint8_t { DHCP_RELAY_REPLY_OUTCOMES(DHCP_RELAY_ENUMERATOR) };
enum class UnmatchedOutcome : std::uint8_t { DHCP_RELAY_UNMATCHED_OUTCOMES(DHCP_RELAY_ENUMERATOR) };
#undef DHCP_RELAY_ENUMERATOR

#define DHCP_RELAY_COUNT(name) +1  // NOLINT(bugprone-macro-parentheses): a term of a sum
inline constexpr std::size_t kRequestOutcomes = 0 DHCP_RELAY_REQUEST_OUTCOMES(DHCP_RELAY_COUNT);
inline constexpr std::size_t kReplyOutcomes = 0 DHCP_RELAY_REPLY_OUTCOMES(DHCP_RELAY_COUNT);
inline constexpr std::size_t kUnmatchedOutcomes = 0 DHCP_RELAY_UNMATCHED_OUTCOMES(DHCP_RELAY_COUNT);
#undef DHCP_RELAY_COUNT

// The names under which outcomes travel, and which operators see, in the order of the lists:
// "too-many-hops" for kTooManyHops.
std::span<const std::string> RequestOutcomes();
std::span<const std::string> ReplyOutcomes();
std::span<const std::string> UnmatchedOutcomes();

const std::string& Name(RequestOutcome outcome);
const std::string& Name(ReplyOutcome outcome);
const std::string& Name(UnmatchedOutcome outcome);

}  // namespace dhcp_relay::control

#endif  // PROTOCOL_CONTROL_OUTCOME_H_
