#include "VarkPlatform/Linux/Network/CurlTransfer.h"

#include <fmt/format.h>
#include <openssl/x509_vfy.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <tuple>
#include <utility>

#include "VarkPlatform/Linux/Network/NetlinkRoutes.h"

namespace vark {
namespace {

constexpr long transferBufferBytes = 512L * 1024;
/// A server that has gone is found out after some three minutes, however long a transfer may stand still.
constexpr long secondsBeforeKeepAlive = 60;
constexpr long secondsBetweenKeepAlives = 15;

/// Sets options until one is refused, and keeps why.
class Options {
  public:
    explicit Options(CURL* easy) : easy_(easy) {}
    template <class T>
    void set(CURLoption option, T value) {
        if (result_ == CURLE_OK) result_ = curl_easy_setopt(easy_, option, value);
    }
    CURLcode result() const { return result_; }

  private:
    CURL* easy_;
    CURLcode result_ = CURLE_OK;
};

bool isNamed(const HTTPHeader& header, const char* name) {
    return strcasecmp(header.name.c_str(), name) == 0;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// A request whose body may be empty but is there: its length is told all the same.
bool alwaysHasBody(const std::string& method) {
    return method == "POST" || method == "PUT" || method == "PATCH";
}

CURLcode useTrustStore(CURL*, void* context, void* trust) {
    static_cast<const TrustStore*>(trust)->applyTo(static_cast<ssl_ctx_st*>(context));
    return CURLE_OK;
}

const char* whyUntrusted(CURL* easy) {
    long reason = X509_V_OK;
    curl_easy_getinfo(easy, CURLINFO_SSL_VERIFYRESULT, &reason);
    switch (reason) {
        case X509_V_OK:
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return "its certificate is for another name";
        case X509_V_ERR_CERT_HAS_EXPIRED:
            return "its certificate has run out";
        case X509_V_ERR_CERT_NOT_YET_VALID:
            return "its certificate is not valid yet, or the clock of this computer is wrong";
        case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
        case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
            return "its certificate is from an authority that this computer does not know";
        default:
            return "its certificate is not one to be trusted";
    }
}

bool isOfTheWeb(const URL& url) {
    const std::string scheme = url.scheme();
    return (scheme == "https" || scheme == "http") && !url.host().empty();
}

/// What libcurl's end of a transfer means. `systemError` is the `errno` of its last connection, if any.
HTTPError::Code httpErrorCode(CURLcode result, int systemError) {
    switch (result) {
        // Without a network no name can be looked up, nor an address of the newer kind be tried.
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return leadsOut() ? HTTPError::cannotFindHost : HTTPError::notConnectedToInternet;
        case CURLE_COULDNT_CONNECT:
            if (systemError == ENETUNREACH || systemError == ENETDOWN || systemError == ENONET)
                return HTTPError::notConnectedToInternet;
            if (systemError == EADDRNOTAVAIL && !leadsOut()) return HTTPError::notConnectedToInternet;
            return HTTPError::cannotConnect;
        // No more than that the two did not come to terms: a server that goes down in between, for one.
        case CURLE_SSL_CONNECT_ERROR:
            return HTTPError::cannotConnect;
        case CURLE_GOT_NOTHING:
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
        case CURLE_PARTIAL_FILE:
        case CURLE_SEND_FAIL_REWIND:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
            return HTTPError::connectionLost;
        case CURLE_OPERATION_TIMEDOUT:
            return HTTPError::timedOut;
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CACERT_BADFILE:
            return HTTPError::untrusted;
        case CURLE_FILESIZE_EXCEEDED:
            return HTTPError::answerTooLong;
        default:
            return HTTPError::other;
    }
}

}  // namespace

CurlTransfer::CurlTransfer(CurlLoop& loop, const CurlTransferSettings& settings, const HTTPRequest& request,
                           std::optional<CurlUploadBody> body)
    : loop_(loop), settings_(settings), request_(request), body_(std::move(body)) {
    buildHeaderList();
    if (body_) body_->pipe().setReadable([this] { loop_.resume(*this); });
}

CurlTransfer::CurlTransfer(CurlLoop& loop, const CurlTransferSettings& settings, const HTTPRequest& request,
                           BodySink& sink)
    : loop_(loop), settings_(settings), request_(request), sink_(&sink) {
    buildHeaderList();
}

HTTPResponse CurlTransfer::await_resume() {
    unwatch();
    if (cancelled_) throw CancellationError();
    if (sinkFailure_) std::rethrow_exception(sinkFailure_);
    if (failure_) throw *std::move(failure_);
    return std::move(response_);
}

void CurlTransfer::buildHeaderList() {
    // A large body would wait for leave to be sent, and small ones get a type that they are not of.
    addHeaderLine("Expect:");
    if (std::ranges::none_of(request_.headers, [](auto& header) { return isNamed(header, "Content-Type"); }))
        addHeaderLine("Content-Type:");
    for (const HTTPHeader& header : request_.headers)
        addHeaderLine(header.value.empty() ? header.name + ";" : header.name + ": " + header.value);
}

void CurlTransfer::addHeaderLine(const std::string& line) {
    curl_slist* longer = curl_slist_append(headers_.get(), line.c_str());
    if (longer == nullptr) throw std::bad_alloc();
    std::ignore = headers_.release();
    headers_.reset(longer);
}

CURLcode CurlTransfer::prepare(CURL* easy) {
    handle_ = easy;
    Options options(easy);
    options.set(CURLOPT_URL, request_.url.text().c_str());
    options.set(CURLOPT_PATH_AS_IS, 1L);
    options.set(CURLOPT_PROTOCOLS_STR, "http,https");
    options.set(CURLOPT_DEFAULT_PROTOCOL, "https");
    options.set(CURLOPT_HTTPHEADER, headers_.get());
    options.set(CURLOPT_CUSTOMREQUEST, request_.method.c_str());

    options.set(CURLOPT_NOSIGNAL, 1L);
    // Whoever gives up a host name that is still being looked up does not wait for that.
    options.set(CURLOPT_QUICK_EXIT, 1L);
    options.set(CURLOPT_BUFFERSIZE, transferBufferBytes);
    options.set(CURLOPT_UPLOAD_BUFFERSIZE, transferBufferBytes);

    const long idleSeconds = static_cast<long>(request_.idleLimit.count());
    options.set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    if (!body_ || body_->length() > 0) options.set(CURLOPT_LOW_SPEED_TIME, idleSeconds);
    options.set(CURLOPT_TCP_KEEPALIVE, 1L);
    options.set(CURLOPT_TCP_KEEPIDLE, secondsBeforeKeepAlive);
    options.set(CURLOPT_TCP_KEEPINTVL, secondsBetweenKeepAlives);
    // A download may stand still for days, but a connection comes about soon or never.
    options.set(CURLOPT_CONNECTTIMEOUT, std::min(idleSeconds, static_cast<long>(limits::connecting.count())));
    options.set(CURLOPT_TIMEOUT, static_cast<long>(settings_.resourceLimit.count()));

    // The store takes the place of libcurl's own reading of the system's authorities.
    options.set(CURLOPT_CAINFO, nullptr);
    options.set(CURLOPT_CAPATH, nullptr);
    options.set(CURLOPT_SSL_CTX_FUNCTION, &useTrustStore);
    options.set(CURLOPT_SSL_CTX_DATA, &settings_.trust);

    options.set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    options.set(CURLOPT_HEADERDATA, this);
    options.set(
        CURLOPT_HEADERFUNCTION, +[](char* bytes, std::size_t, std::size_t count, void* self) noexcept {
            return static_cast<CurlTransfer*>(self)->takeHeaderLine({bytes, count});
        });
    options.set(CURLOPT_WRITEDATA, this);
    options.set(
        CURLOPT_WRITEFUNCTION, +[](char* bytes, std::size_t, std::size_t count, void* self) noexcept {
            return static_cast<CurlTransfer*>(self)->takeAnswer({bytes, count});
        });

    if (body_) {
        options.set(CURLOPT_UPLOAD, 1L);
        options.set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(body_->length()));
        options.set(CURLOPT_READDATA, this);
        options.set(
            CURLOPT_READFUNCTION, +[](char* to, std::size_t size, std::size_t count, void* self) noexcept {
                return static_cast<CurlTransfer*>(self)->giveBody({to, size * count});
            });
    } else if (!request_.body.empty() || alwaysHasBody(request_.method)) {
        options.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
        options.set(CURLOPT_POSTFIELDS, request_.body.data());
    }
    // An answer to HEAD tells of a body that does not come.
    if (request_.method == "HEAD") {
        options.set(CURLOPT_NOBODY, 1L);
    } else if (sink_ == nullptr) {
        options.set(CURLOPT_MAXFILESIZE_LARGE,
                    static_cast<curl_off_t>(std::min(request_.longestAnswer, std::size_t{1} << 62)));
    }
    return options.result();
}

void CurlTransfer::ended(CURL* easy, CURLcode result) {
    if (result == CURLE_OK) {
        long status = 0;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        response_.status = static_cast<int>(status);
        if (sink_ != nullptr && succeeds() && !sinkIsTold_) giveToSink("");
    } else {
        failure_ = failure(easy, result);
    }
    complete();
}

void CurlTransfer::dropped() {
    cancelled_ = true;
    complete();
}

/// The sentences are ours throughout: libcurl's texts are none for people, and may quote what was sent.
HTTPError CurlTransfer::failure(CURL* easy, CURLcode result) const {
    if (bodyEndedShort_) return {HTTPError::other, "What was to be sent to the vark ended too early."};
    long systemError = 0;
    curl_easy_getinfo(easy, CURLINFO_OS_ERRNO, &systemError);
    const HTTPError::Code code =
        answerTooLong_ ? HTTPError::answerTooLong : httpErrorCode(result, static_cast<int>(systemError));
    switch (code) {
        case HTTPError::notConnectedToInternet:
            return {code, "This computer is not connected to a network."};
        case HTTPError::connectionLost:
            return {code, "The connection to the vark was lost."};
        case HTTPError::cannotConnect:
            return {code, "No connection to the vark could be made."};
        case HTTPError::cannotFindHost:
            return {code, "The address of the vark could not be found."};
        case HTTPError::timedOut:
            return {code, "The vark took too long to answer."};
        case HTTPError::untrusted:
            return {code, fmt::format("The vark could not prove who it is: {}.", whyUntrusted(easy))};
        case HTTPError::answerTooLong:
            return {code, "The answer of the vark is longer than expected."};
        case HTTPError::other:
            if (!isOfTheWeb(request_.url))
                return {code, "The vark named an address that cannot be asked for anything."};
            if (result == CURLE_UNSUPPORTED_PROTOCOL || result == CURLE_WEIRD_SERVER_REPLY)
                return {code, "The answer of the vark could not be understood."};
            return {code, "The exchange with the vark failed. Try again."};
    }
}

std::size_t CurlTransfer::takeHeaderLine(std::string_view line) {
    // Another answer begins: the one before was only a word in between.
    if (line.starts_with("HTTP/")) response_.headers.clear();
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos) {
        response_.headers.push_back(
            {std::string(trimmed(line.substr(0, colon))), std::string(trimmed(line.substr(colon + 1)))});
    }
    // A refusal ends the sending, but libcurl never notices the end of one that is paused.
    if (body_ && trimmed(line).empty()) loop_.resume(*this);
    return line.size();
}

std::size_t CurlTransfer::takeAnswer(std::string_view bytes) {
    if (sink_ != nullptr) {
        long status = 0;
        curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
        response_.status = static_cast<int>(status);
        if (succeeds()) return giveToSink(bytes) ? bytes.size() : 0;
    }
    if (bytes.size() > request_.longestAnswer - response_.body.size()) {
        answerTooLong_ = true;
        return 0;
    }
    response_.body += bytes;
    return bytes.size();
}

bool CurlTransfer::succeeds() const {
    return response_.status / 100 == 2;
}

bool CurlTransfer::giveToSink(std::string_view bytes) {
    sinkIsTold_ = true;
    try {
        sink_->take(response_, bytes);
        return true;
    } catch (...) {
        sinkFailure_ = std::current_exception();
        return false;
    }
}

std::size_t CurlTransfer::giveBody(std::span<char> to) {
    if (!body_) return CURL_READFUNC_ABORT;
    const auto missing = static_cast<std::size_t>(body_->length() - sent_);
    if (missing == 0) return 0;
    const BytePipe::Read read = body_->pipe().read(to.first(std::min(to.size(), missing)));
    switch (read.state) {
        case BytePipe::ReadState::bytes:
            sent_ += static_cast<std::int64_t>(read.count);
            // How long the answer may take now is for whoever wants it.
            if (sent_ == body_->length()) curl_easy_setopt(handle_, CURLOPT_LOW_SPEED_TIME, 0L);
            return read.count;
        case BytePipe::ReadState::nothingYet:
            return CURL_READFUNC_PAUSE;
        case BytePipe::ReadState::end:
            bodyEndedShort_ = true;
            return CURL_READFUNC_ABORT;
    }
}

}  // namespace vark
