#include "Tests/Support/NginxNode.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <sys/socket.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "Tests/Support/FileWatch.h"

namespace vark::test {
namespace {

/// A port that was free a moment ago.
std::uint16_t freePort() {
    const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* any = reinterpret_cast<sockaddr*>(&address);
    if (bind(socket.get(), any, length) != 0 || getsockname(socket.get(), any, &length) != 0)
        throw std::runtime_error("There is no free port.");
    return ntohs(address.sin_port);
}

void writeCertificate(const ServerContext& context, const std::filesystem::path& path) {
    const std::unique_ptr<FILE, OpenSSLFree<fclose>> file(fopen(path.c_str(), "w"));
    if (!file || PEM_write_X509(file.get(), SSL_CTX_get0_certificate(context.get())) != 1 ||
        PEM_write_PrivateKey(file.get(), SSL_CTX_get0_privatekey(context.get()), nullptr, nullptr, 0, nullptr,
                             nullptr) != 1)
        throw std::runtime_error("The certificate could not be written.");
}

std::string configuration(const std::string& folder, std::uint16_t port) {
    return fmt::format(R"(
daemon off;
master_process off;
pid {0}/pid;
events {{}}
http {{
  access_log off;
  client_body_temp_path {0}/body;
  proxy_temp_path {0}/proxy;
  fastcgi_temp_path {0}/fastcgi;
  uwsgi_temp_path {0}/uwsgi;
  scgi_temp_path {0}/scgi;
  client_max_body_size 0;
  server {{
    listen 127.0.0.1:{1} ssl;
    ssl_certificate {0}/certificate.pem;
    ssl_certificate_key {0}/certificate.pem;
    root {0}/served;
    dav_methods PUT;
    create_full_put_path on;
    location /endless/ {{
      ssi on;
      ssi_types *;
      chunked_transfer_encoding off;
    }}
  }}
}}
)",
                       folder, port);
}

}  // namespace

NginxNode::NginxNode(const ServerContext& context) {
    std::filesystem::create_directory(served());
    writeCertificate(context, folder_ / "certificate.pem");
    for (int tries = 0; tries < 5; ++tries) {
        if (start()) return;
    }
    throw std::runtime_error("nginx did not start:\n" + process_->errors());
}

/// Fails when somebody else has taken the port meanwhile.
bool NginxNode::start() {
    port_ = freePort();
    folder_.file("nginx.conf", configuration(folder_.path(), port_));
    const FileWatch watch(folder_.path());
    process_.emplace(Process::Options{.program = "/usr/sbin/nginx",
                                      .arguments = {"-c", folder_ / "nginx.conf", "-e", folder_ / "errors"},
                                      .environment = {},
                                      .output = folder_ / "output",
                                      .errors = folder_ / "errors",
                                      .largestFile = std::nullopt});
    // It listens before it writes this.
    const auto isUp = [this] { return std::filesystem::exists(folder_ / "pid"); };
    return watch.until(isUp, std::chrono::minutes(1), process_->descriptor());
}

LANRoute NginxNode::routeTo(const std::string& path, const std::string& host) const {
    const std::optional<URL> url = URL::parse(fmt::format("https://127.0.0.1:{}{}", port_, path));
    if (!url) throw std::invalid_argument("no target of a request");
    return {*url, "127.0.0.1", port_, host, path};
}

}  // namespace vark::test
