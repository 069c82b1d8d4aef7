#include "dro_utils_token.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "dro_get_dalfld.h"
#include "dro_log.h"
#include "provisioning.h"
#include "sha256.h"

namespace dro {
namespace {

constexpr std::size_t kSecretSize = 16;

// Writes two lower-case digits per byte, as many as fit with the NUL.
void hex_encode(const std::uint8_t* bytes, std::size_t count, char* text, std::size_t space) {
    for (std::size_t i = 0; i < count && space > 2; ++i) {
        std::snprintf(text, space, "%02x", bytes[i]);
        text += 2;
        space -= 2;
    }
}

// Assembles the secret. The volatile mask prevents the compiler from computing it at build time and storing the result.
std::array<std::uint8_t, kSecretSize> build_secret() {
    volatile std::uint8_t mask = 0;
    std::array<std::uint8_t, kSecretSize> secret{};
    for (unsigned i = 0; i < kSecretSize; ++i) {
        mask = provisioning::secretMask(i);
        const auto& half = i % 2 == 0 ? provisioning::kSecretEven : provisioning::kSecretOdd;
        secret[i] = static_cast<std::uint8_t>(half[i / 2] ^ mask);
    }
    return secret;
}

}  // namespace

int get_token(const char* serial, char* timestamp, char* token, std::size_t timestampSize, std::size_t tokenSize) {
    if (tokenSize == 0 || timestampSize == 0) {
        LOG_ERROR("Invalid token Length");
        return -1;
    }
    auto secret = build_secret();
    FixedText<48> hexSecret;
    hex_encode(secret.data(), secret.size(), hexSecret.data(), FixedText<48>::capacity());

    std::snprintf(timestamp, timestampSize, "%ld", static_cast<long>(std::time(nullptr)));
    LOG_TRACE("TimeStamp : %s\n", timestamp);
    FixedText<64> input;
    input.format("%s:%s:%s", serial, timestamp, hexSecret.c_str());

    Sha256Context context;
    std::array<std::uint8_t, kSha256Size> digest{};
    sha256_init(context);
    sha256_update(context, input.c_str(), input.view().size());
    sha256_final(context, digest);
    hex_encode(digest.data(), digest.size(), token, tokenSize);

    explicit_bzero(&context, sizeof context);
    explicit_bzero(hexSecret.data(), FixedText<48>::capacity());
    explicit_bzero(input.data(), FixedText<64>::capacity());
    explicit_bzero(secret.data(), secret.size());
    return 0;
}

RequestToken make_request_token() {
    RequestToken made;
    made.serial = tv().FSN;
    get_token(made.serial.c_str(), made.timestamp.data(), made.token.data(), made.timestamp.capacity(),
              made.token.capacity());
    return made;
}

SignedStart signed_start(const RequestToken& request) {
    SignedStart start;
    start.format("{\"token\":\"%s\",\"ePOCHTimeStamp\":\"%s\",\"serialNumber\":\"%s\"", request.token.c_str(),
                 request.timestamp.c_str(), request.serial.c_str());
    return start;
}

}  // namespace dro
