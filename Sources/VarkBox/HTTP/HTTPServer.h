#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VarkBox/HTTP/Authority.h"
#include "VarkBox/HTTP/Exchange.h"

namespace vark::box {

/// Who may reach a listener.
enum class Reach { thisMachine, anywhere };

/// HTTP/1.1 with keep-alive, over TLS unless there are no certificates. Two threads of its own; bodies go to
/// the site in pieces as they arrive, or on to the vark of a node. `stop`, or its end, cuts every connection
/// and awaits the threads; the site must live until then.
class HTTPServer {
  public:
    HTTPServer(Site& site, const std::optional<CertificateFiles>& certificates);
    HTTPServer(const HTTPServer&) = delete;
    HTTPServer& operator=(const HTTPServer&) = delete;
    ~HTTPServer();

    /// Before `start`. Takes "127.0.0.1:8443", with the port 0 for any that is free, and gives the address
    /// with the port that it got. Fails with std::runtime_error and a sentence, also for an address that is
    /// not loopback though the reach is this machine.
    std::string listen(Listener listener, std::string_view address, Reach reach = Reach::thisMachine);
    /// For connections from now on. Any thread.
    void useCertificates(const CertificateFiles& files);
    void start();
    void stop();

  private:
    class Machine;
    std::unique_ptr<Machine> machine_;
};

}  // namespace vark::box
