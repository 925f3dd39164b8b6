// The Walsh-Hadamard transform over a block of 16 lines.
#include "brisel/kernels_avx2.h"
#include "core/avx2/fwht16.h"

void fwht_n16_block_avx2(float* block, uint32_t n) {
    for (uint32_t t = 0; t + 8 <= n; t += 8)
        brisel::fwht_tile_in_place([=](size_t line) { return block + line * n + t; });
}
