#pragma once

#include <filesystem>

namespace vark::box {

/// Where the server's certificate and key lie, and the authority that clients are to trust.
struct CertificateFiles {
    std::filesystem::path authority;
    std::filesystem::path certificate;
    std::filesystem::path privateKey;
};

/// Makes an authority under `folder` unless there is one, and a certificate of this machine's own names
/// (localhost, 127.0.0.1, ::1) signed by it unless there is one that is good for some time yet. Private keys
/// are 0600 from the start. Fails with std::runtime_error.
CertificateFiles certificatesIn(const std::filesystem::path& folder);

}  // namespace vark::box
