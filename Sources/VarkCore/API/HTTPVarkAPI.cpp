#include "VarkCore/API/HTTPVarkAPI.h"

#include <utility>

namespace vark {

HTTPVarkAPI::HTTPVarkAPI(const Host& host, URL baseURL, TokenProvider token)
    : session_(host.session),
      lan_(host.lan),
      nodes_(host.nodes),
      ways_(host.ways),
      writerPool_(host.writers),
      now_(host.now),
      baseURL_(std::move(baseURL)),
      token_(std::move(token)),
      downloads_(host.executor, host.clock) {}

Task<APIAnswer> HTTPVarkAPI::send(std::string method, std::string path, std::optional<std::string> json,
                                  Auth auth) {
    std::optional<URL> url = baseURL_.resolving(path);
    if (!url) throw VarkAPIError::badResponse("bad url " + path);
    HTTPRequest request{std::move(method), std::move(*url), {}, {}};
    if (auth == Auth::token) request.headers.push_back(authorization());
    if (json) {
        request.headers.push_back({"Content-Type", "application/json"});
        request.body = std::move(*json);
    } else if (request.method == "POST") {
        request.headers.push_back({"Content-Length", "0"});
    }
    std::optional<LANRoute> route = co_await lanAPIRoute(request.url);
    if (route) {
        std::optional<APIAnswer> answer = co_await sendOverNode(request, std::move(*route), auth);
        if (answer) co_return std::move(*answer);
    }
    co_return co_await sendDirectly(std::move(request), auth);
}

Task<APIAnswer> HTTPVarkAPI::sendDirectly(HTTPRequest request, Auth auth) {
    HTTPResponse response;
    std::optional<HTTPError> failure;
    try {
        response = co_await session_.data(std::move(request));
    } catch (const HTTPError& error) {
        failure = error;
    }
    if (failure) {
        // Some systems report the end of a cancelled transfer as a failure of its own.
        co_await checkCancellation();
        throw VarkAPIError::transport(describeURLError(*failure));
    }
    if (response.status == 401 && auth == Auth::token) throw serverErrorFor(401, response.body);
    co_return APIAnswer{response.status, std::move(response.body)};
}

HTTPHeader HTTPVarkAPI::authorization() const {
    const std::optional<std::string> token = token_();
    if (!token) throw VarkAPIError::notConnected();
    return {"Authorization", "Bearer " + *token};
}

}  // namespace vark
