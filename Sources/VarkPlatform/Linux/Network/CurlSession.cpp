#include "VarkPlatform/Linux/Network/CurlSession.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <utility>

#include "VarkPlatform/Linux/Network/CurlTransfer.h"

namespace vark {
namespace {

bool haveTheSameName(const HTTPHeader& one, const HTTPHeader& other) {
    return strcasecmp(one.name.c_str(), other.name.c_str()) == 0;
}

/// Adds the session's headers that the request has none of its own for. A line break would let a value pass
/// for a header, or for a request.
void addSessionHeaders(HTTPRequest& request, const std::vector<HTTPHeader>& headers) {
    for (const HTTPHeader& header : headers) {
        if (std::ranges::none_of(request.headers,
                                 [&](const HTTPHeader& own) { return haveTheSameName(own, header); }))
            request.headers.push_back(header);
    }
    constexpr std::string_view breaks("\r\n\0", 3);
    for (const HTTPHeader& header : request.headers) {
        if (header.name.find_first_of(breaks) == std::string::npos &&
            header.value.find_first_of(breaks) == std::string::npos)
            continue;
        throw HTTPError(HTTPError::other, "The request to the vark holds a line break where none may be.");
    }
}

/// Where a GET goes on, if it does.
std::optional<URL> nextAddress(const HTTPRequest& request, const HTTPResponse& response) {
    constexpr std::array redirects{301, 302, 303, 307, 308};
    if (request.method != "GET" || std::ranges::find(redirects, response.status) == redirects.end())
        return std::nullopt;
    const auto location = std::ranges::find_if(
        response.headers, [](const HTTPHeader& header) { return haveTheSameName(header, {"Location", ""}); });
    if (location == response.headers.end()) return std::nullopt;
    return request.url.resolving(location->value);
}

std::uint16_t effectivePort(const URL& url) {
    return url.port().value_or(url.scheme() == "https" ? 443 : 80);
}

bool leadToTheSameServer(const URL& one, const URL& other) {
    return one.scheme() == other.scheme() && strcasecmp(one.host().c_str(), other.host().c_str()) == 0 &&
           effectivePort(one) == effectivePort(other);
}

void redirect(HTTPRequest& request, const URL& next) {
    if (!leadToTheSameServer(request.url, next)) {
        std::erase_if(request.headers, [](const HTTPHeader& header) {
            return haveTheSameName(header, {"Authorization", ""});
        });
    }
    request.url = next;
}

HTTPError tooManyRedirects() {
    return {HTTPError::other, "The vark passed the request on too many times."};
}

}  // namespace

class CurlSession::Machinery {
  public:
    explicit Machinery(HTTPSessionSettings settings)
        : headers(std::move(settings.headers)),
          trust(settings.authorityFile),
          transferSettings{trust, settings.resourceLimit},
          loop(settings.mostConnectionsPerHost) {}

    const std::vector<HTTPHeader> headers;
    const TrustStore trust;
    const CurlTransferSettings transferSettings;
    CurlLoop loop;
};

CurlSession::CurlSession(HTTPSessionSettings settings)
    : machinery_(std::make_unique<Machinery>(std::move(settings))) {}

CurlSession::~CurlSession() = default;

Task<HTTPResponse> CurlSession::data(HTTPRequest request) {
    addSessionHeaders(request, machinery_->headers);
    for (int redirects = 0; redirects <= limits::redirects; ++redirects) {
        HTTPResponse response =
            co_await CurlTransfer(machinery_->loop, machinery_->transferSettings, request);
        const std::optional<URL> next = nextAddress(request, response);
        if (!next) co_return response;
        redirect(request, *next);
    }
    throw tooManyRedirects();
}

Task<HTTPResponse> CurlSession::receive(HTTPRequest request, BodySink& sink, FollowRedirect follow) {
    addSessionHeaders(request, machinery_->headers);
    for (int redirects = 0; redirects <= limits::redirects; ++redirects) {
        HTTPResponse response =
            co_await CurlTransfer(machinery_->loop, machinery_->transferSettings, request, sink);
        const std::optional<URL> next = nextAddress(request, response);
        if (!next || !follow({response.status, *next})) co_return response;
        redirect(request, *next);
    }
    throw tooManyRedirects();
}

Task<HTTPResponse> CurlSession::upload(HTTPRequest request, std::shared_ptr<BytePipe> body,
                                       std::int64_t length) {
    CurlUploadBody owned(std::move(body), length);
    addSessionHeaders(request, machinery_->headers);
    co_return co_await CurlTransfer(machinery_->loop, machinery_->transferSettings, request,
                                    std::move(owned));
}

}  // namespace vark
