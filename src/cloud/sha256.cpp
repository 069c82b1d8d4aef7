#include "sha256.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace dro {
namespace {

// FIPS 180-4, 4.2.2: the first 32 bits of the fractional parts of the cube roots of the first 64 primes.
constexpr std::array<std::uint32_t, 64> kRound{
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

constexpr std::size_t kBlock = 64;
constexpr std::size_t kLengthPlace = 56;  // the last block ends with the message's length in bits

std::uint32_t big_endian(const std::uint8_t* bytes) {
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

void hash_block(std::array<std::uint32_t, 8>& state, const std::uint8_t* block) {
    std::array<std::uint32_t, 64> w{};
    for (std::size_t t = 0; t < 16; ++t) {
        w[t] = big_endian(block + 4 * t);
    }
    for (std::size_t t = 16; t < 64; ++t) {
        const std::uint32_t s0 = std::rotr(w[t - 15], 7) ^ std::rotr(w[t - 15], 18) ^ (w[t - 15] >> 3);
        const std::uint32_t s1 = std::rotr(w[t - 2], 17) ^ std::rotr(w[t - 2], 19) ^ (w[t - 2] >> 10);
        w[t] = w[t - 16] + s0 + w[t - 7] + s1;
    }
    auto [a, b, c, d, e, f, g, h] = state;
    for (std::size_t t = 0; t < 64; ++t) {
        const std::uint32_t s1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
        const std::uint32_t choose = (e & f) ^ (~e & g);
        const std::uint32_t t1 = h + s1 + choose + kRound[t] + w[t];
        const std::uint32_t s0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
        const std::uint32_t majority = (a & b) ^ (a & c) ^ (b & c);
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + s0 + majority;
    }
    const std::array<std::uint32_t, 8> round{a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < state.size(); ++i) {
        state[i] += round[i];
    }
}

}  // namespace

void sha256_init(Sha256Context& context) {
    context = {{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19}, {}, 0};
}

void sha256_update(Sha256Context& context, const void* data, std::size_t size) {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    while (size > 0) {
        const std::size_t used = context.length % kBlock;
        const std::size_t taken = std::min(size, kBlock - used);
        std::memcpy(context.block.data() + used, bytes, taken);
        context.length += taken;
        bytes += taken;
        size -= taken;
        if (context.length % kBlock == 0) {
            hash_block(context.state, context.block.data());
        }
    }
}

void sha256_final(Sha256Context& context, std::array<std::uint8_t, kSha256Size>& digest) {
    const std::uint64_t bits = context.length * 8;
    std::size_t used = context.length % kBlock;
    context.block[used++] = 0x80;
    if (used > kLengthPlace) {
        std::fill(context.block.begin() + static_cast<std::ptrdiff_t>(used), context.block.end(), std::uint8_t{0});
        hash_block(context.state, context.block.data());
        used = 0;
    }
    std::fill(context.block.begin() + static_cast<std::ptrdiff_t>(used), context.block.end(), std::uint8_t{0});
    for (std::size_t i = 0; i < 8; ++i) {
        context.block[kLengthPlace + i] = static_cast<std::uint8_t>(bits >> (56 - 8 * i));
    }
    hash_block(context.state, context.block.data());
    for (std::size_t i = 0; i < digest.size(); ++i) {
        digest[i] = static_cast<std::uint8_t>(context.state[i / 4] >> (24 - 8 * (i % 4)));
    }
}

}  // namespace dro
