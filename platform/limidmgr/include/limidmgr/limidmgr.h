// Interface identifiers: one 32-bit number that names an interface of any kind on the device.
//
// Layout: the kind (limid_type_t) in the upper 8 bits, the number of the interface among its kind
// in the lower 24. 0 is no interface at all, since no kind is 0.

#ifndef LIMIDMGR_LIMIDMGR_H_
#define LIMIDMGR_LIMIDMGR_H_

#include <stdint.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t limid_t;

typedef enum {
  limid_type_vrf = 1,
} limid_type_t;

enum { limid_max_number = 0xFFFFFF };

// Fills `*id` with the identifier of the interface of kind `type` whose name ends in `suffix`, a
// decimal number from 0 to limid_max_number without sign or blanks. Returns 0, or -1 with `*id`
// untouched when `id` or `suffix` is null, the suffix is no such number, or the kind is unknown.
int limid_from_intfname_suffix(limid_t* id, const char* suffix, limid_type_t type);

// The kind and the number that an identifier was made from.
unsigned limid_type_of(limid_t id);
uint32_t limid_number_of(limid_t id);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop

#endif  // LIMIDMGR_LIMIDMGR_H_
