#pragma once

#include <cstdint>

namespace tessary::sender {

/// Computes the 16 parity bytes of the shortened Reed-Solomon code RS(204,188) of ETSI EN 300 429, 5.3.2
/// (field polynomial x^8+x^4+x^3+x^2+1, generator roots 2^0 to 2^15). `packet` is 188 bytes, `parity`
/// takes 16.
void reedSolomonParity(const std::uint8_t* packet, std::uint8_t* parity);

} // namespace tessary::sender
