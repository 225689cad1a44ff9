// What a fuzz target claims.

#ifndef TESTS_FUZZ_REQUIRE_H_
#define TESTS_FUZZ_REQUIRE_H_

#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Ends the process when the claim does not hold, so that the fuzzer keeps the input.
inline void Require(bool holds, const char* claim) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", claim);
  std::abort();
}

}  // namespace fuzz

#endif  // TESTS_FUZZ_REQUIRE_H_
