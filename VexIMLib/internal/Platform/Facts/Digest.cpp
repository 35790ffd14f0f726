#include "VexIMLib/internal/Platform/Facts/Digest.h"

#include <openssl/evp.h>

#include <array>

namespace vexim {

std::string md5Hex(std::string_view bytes) {
    // Fetched once and kept: looking up the algorithm costs more than a short digest.
    static EVP_MD* const md5 = EVP_MD_fetch(nullptr, "MD5", nullptr);
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    unsigned int size = 0;
    if (!md5 || EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, md5, nullptr) != 1)
        return {};

    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(2 * size);
    for (unsigned int i = 0; i < size; ++i) {
        hex.push_back(kDigits[digest[i] >> 4]);
        hex.push_back(kDigits[digest[i] & 15]);
    }
    return hex;
}

}  // namespace vexim
