#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vark::box {

/// Where the server's certificate and key lie, and the authority that clients are to trust.
struct CertificateFiles {
    std::filesystem::path authority;
    std::filesystem::path certificate;
    std::filesystem::path privateKey;
};

/// Makes an authority under `authority` unless there is one, and under `folder` a certificate signed by it,
/// unless there is one that is good for some time yet: of this machine's own names (localhost, 127.0.0.1,
/// ::1) and of `hosts`, which are names as `hostName` gives them. Private keys are 0600 from the start. Fails
/// with std::runtime_error.
CertificateFiles certificatesIn(const std::filesystem::path& folder, const std::filesystem::path& authority,
                                const std::vector<std::string>& hosts);

}  // namespace vark::box
