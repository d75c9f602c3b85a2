#include "VarkBox/Access/Tickets.h"

#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <charconv>

#include "VarkBox/HTTP/Exchange.h"
#include "VarkBox/Store/Hasher.h"

namespace vark::box {

Tickets::Tickets() : key_(randomHex(32)) {}

std::string Tickets::issue(std::int64_t item, std::int64_t now) const {
    std::string claim = fmt::format("{}-{}", item, now + lifetimeSeconds);
    return fmt::format("{}-{}", claim, signatureOf(claim));
}

std::int64_t Tickets::open(std::string_view ticket, std::int64_t now) const {
    Refusal refusal(403, "This address of a file is not good any more. Ask the vark for the file again.");
    std::size_t end = ticket.rfind('-');
    if (end == std::string_view::npos) throw refusal;
    std::string_view claim = ticket.substr(0, end);
    std::string_view signature = ticket.substr(end + 1);
    std::string right = signatureOf(claim);
    bool isOurs =
        signature.size() == right.size() && CRYPTO_memcmp(signature.data(), right.data(), right.size()) == 0;
    if (!isOurs) throw refusal;
    std::int64_t item = 0;
    std::int64_t until = 0;
    const char* bytes = claim.data();
    auto [dash, wrong] = std::from_chars(bytes, bytes + claim.size(), item);
    std::from_chars(dash + 1, bytes + claim.size(), until);
    if (until <= now) throw refusal;
    return item;
}

std::string Tickets::signatureOf(std::string_view claim) const {
    std::array<unsigned char, EVP_MAX_MD_SIZE> code{};
    unsigned size = 0;
    HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
         reinterpret_cast<const unsigned char*>(claim.data()), claim.size(), code.data(), &size);
    std::string text;
    for (unsigned i = 0; i < size; ++i)
        text += fmt::format("{:02x}", code.at(i));
    return text;
}

}  // namespace vark::box
