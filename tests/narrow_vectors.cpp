// Keeps what it is linked with to AVX2, so that the tests run that path on every processor.
#include "core/avx512/units.h"

bool brisel::wide_vectors() {
    return false;
}
