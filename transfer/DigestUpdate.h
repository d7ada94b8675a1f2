#pragma once

#include <cstddef>

struct XXH3_state_s;

/// As XXH3_128bits_update, on the same state; only where the processor has AVX2.
void UpdateWithAvx2(XXH3_state_s* state, const char* data, std::size_t size);
