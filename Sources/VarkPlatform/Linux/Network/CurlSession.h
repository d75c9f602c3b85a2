#pragma once

#include <memory>

#include "VarkCore/Services/HTTPSession.h"

namespace vark {

/// HTTP by libcurl, on one thread of its own. Owned by the host, and ended when no request is under way; any
/// thread may call.
class CurlSession final : public HTTPSession {
  public:
    /// Fails with `std::runtime_error`, a sentence for people, when the file of authorities cannot be used.
    explicit CurlSession(HTTPSessionSettings settings = {});
    ~CurlSession() override;

    Task<HTTPResponse> data(HTTPRequest request) override;
    Task<HTTPResponse> upload(HTTPRequest request, std::shared_ptr<BytePipe> body,
                              std::int64_t length) override;
    /// The sink is called on the session's own thread.
    Task<HTTPResponse> receive(HTTPRequest request, BodySink& sink, FollowRedirect follow) override;

  private:
    class Machinery;
    const std::unique_ptr<Machinery> machinery_;
};

}  // namespace vark
