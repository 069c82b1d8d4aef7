// sha256.h - the SHA-256 hash of FIPS 180-4. Each context belongs to one thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace dro {

inline constexpr std::size_t kSha256Size = 32;

struct Sha256Context {
    std::array<std::uint32_t, 8> state;
    std::array<std::uint8_t, 64> block;  // holds length % 64 bytes not hashed yet
    std::uint64_t length;                // bytes received so far
};

void sha256_init(Sha256Context& context);
void sha256_update(Sha256Context& context, const void* data, std::size_t size);
// Writes the digest. The context must be initialised again before further use.
void sha256_final(Sha256Context& context, std::array<std::uint8_t, kSha256Size>& digest);

}  // namespace dro
