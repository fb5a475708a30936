#include "reed_solomon.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace tessary::sender {

namespace {

constexpr std::size_t DataBytes = 188;
constexpr std::size_t ParityBytes = 16;

std::uint8_t multiply(unsigned a, unsigned b)
{
    unsigned product = 0;
    for (; b != 0; b >>= 1) {
        if ((b & 1U) != 0)
            product ^= a;
        a <<= 1;
        if ((a & 0x100U) != 0)
            a ^= 0x11DU;
    }
    return static_cast<std::uint8_t>(product);
}

using Row = std::array<std::uint8_t, ParityBytes>;

/// Row f: f times the generator polynomial's coefficients of x^15 down to x^0.
std::array<Row, 256> makeProducts()
{
    std::array<unsigned, ParityBytes + 1> generator{}; // generator[i]: coefficient of x^i
    generator[0] = 1;
    unsigned root = 1;
    for (std::size_t degree = 0; degree < ParityBytes; ++degree) {
        for (std::size_t i = degree + 1; i > 0; --i)
            // cppcheck-suppress containerOutOfBounds ; it takes the array to be one shorter than it is
            generator[i] = generator[i - 1] ^ multiply(generator[i], root);
        generator[0] = multiply(generator[0], root);
        root = multiply(root, 2);
    }
    std::array<Row, 256> products{};
    for (unsigned factor = 0; factor < 256; ++factor) {
        for (std::size_t i = 0; i < ParityBytes; ++i)
            products[factor][i] = multiply(generator[ParityBytes - 1 - i], factor);
    }
    return products;
}

} // namespace

void reedSolomonParity(const std::uint8_t* packet, std::uint8_t* parity)
{
    static const std::array<Row, 256> products = makeProducts();
    Row remainder{};
    for (std::size_t i = 0; i < DataBytes; ++i) {
        const Row& row = products[packet[i] ^ remainder[0]];
        for (std::size_t k = 0; k + 1 < ParityBytes; ++k)
            remainder[k] = remainder[k + 1] ^ row[k];
        remainder[ParityBytes - 1] = row[ParityBytes - 1];
    }
    std::copy(remainder.begin(), remainder.end(), parity);
}

} // namespace tessary::sender
