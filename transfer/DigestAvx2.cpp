// The hash again, for processors that have 256-bit vectors (AVX2); compiled for
// those alone. Nothing else belongs here: a function that another source shares
// would run anywhere.

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "transfer/DigestUpdate.h"

void UpdateWithAvx2(XXH3_state_s* state, const char* data, std::size_t size) {
  XXH3_128bits_update(state, data, size);
}
