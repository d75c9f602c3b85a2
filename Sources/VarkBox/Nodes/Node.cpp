#include "VarkBox/Nodes/Node.h"

#include <fmt/format.h>
#include <unistd.h>

#include <boost/json/serialize.hpp>
#include <charconv>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "VarkBox/HTTP/Authority.h"
#include "VarkBox/HTTP/Faults.h"
#include "VarkBox/HTTP/HTTPServer.h"
#include "VarkBox/HTTP/JSONBody.h"
#include "VarkBox/HTTP/RequestLog.h"
#include "VarkBox/Nodes/AvahiAnnouncer.h"
#include "VarkBox/Nodes/NodeSite.h"
#include "VarkBox/Nodes/Uplink.h"
#include "VarkBox/Store/Names.h"

namespace vark::box {

namespace fs = std::filesystem;

namespace {

CertificateFiles certificatesFor(const NodeOptions& options, const std::string& host) {
    if (!fs::exists(options.authority / "authority-key.pem")) {
        throw std::runtime_error(fmt::format(
            "There is no authority in {}. Give the root of the vark as --authority, once the vark "
            "has been started.",
            options.authority.string()));
    }
    return certificatesIn(options.root, options.authority, {host});
}

/// The vark's knowledge of this node, from here to `end` at the latest.
class Attachment {
  public:
    Attachment(const Uplink& application, std::string host)
        : application_(application), host_(std::move(host)) {
        boost::json::object request{{"host", host_}};
        UplinkAnswer answer = application_.ask("POST", "/control/nodes", boost::json::serialize(request));
        if (answer.status != 201) {
            throw std::runtime_error(fmt::format("The vark would not have this node: it answered {} {}",
                                                 answer.status, answer.body));
        }
        chunkURL_ = JSONBody(answer.body).required<std::string>("chunk_url");
    }
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;
    ~Attachment() { end(); }

    /// Where the vark takes and gives file bytes itself.
    const std::string& chunkURL() const { return chunkURL_; }

    void end() noexcept {
        if (std::exchange(ended_, true)) return;
        try {
            application_.ask("DELETE", "/control/nodes/" + host_, "");
        } catch (const std::exception& failure) {
            // A vark that went first serves the node's addresses itself once it is back.
            std::fprintf(stderr, "vark-box: %s\n", failure.what());
        }
    }

  private:
    const Uplink& application_;
    std::string host_;
    std::string chunkURL_;
    bool ended_ = false;
};

}  // namespace

/// Everything that lives from start to stop, each after what it uses.
struct Node::Running {
    Running(const NodeOptions& options, const std::string& host)
        : certificates(certificatesFor(options, host)),
          application(options.of, certificates.authority, host),
          attachment(application, host),
          chunks(attachment.chunkURL(), certificates.authority, host),
          log(options.root / "requests.jsonl"),
          site(chunks, options.api ? &application : nullptr, faults, log),
          server(site, certificates) {
        for (const std::string& fault : options.faults)
            faults.add(Fault::fromJSON(JSONBody(fault)));
    }
    // Nobody is to be sent here who would find the door closed.
    ~Running() {
        announcer.reset();
        attachment.end();
    }

    CertificateFiles certificates;
    Uplink application;
    Attachment attachment;
    Uplink chunks;
    Faults faults;
    RequestLog log;
    NodeSite site;
    HTTPServer server;
    std::optional<AvahiAnnouncer> announcer;
};

Node::Node(NodeOptions options) : options_(std::move(options)) {}

Node::~Node() {
    stop();
}

void Node::start() {
    std::string host = hostName(options_.host);
    root_.emplace(options_.root);
    auto running = std::make_unique<Running>(options_, host);
    address_ = running->server.listen(Listener::node, options_.listen, Reach::anywhere);
    controlURL_ =
        fmt::format("https://{}", running->server.listen(Listener::control, options_.controlListen));
    running->server.start();
    running_ = std::move(running);
    if (options_.announce) announce(host);
    root_->publishAddress({{"address", address_},
                           {"host", host},
                           {"port", port()},
                           {"control_url", controlURL_},
                           {"authority", fs::absolute(running_->certificates.authority).string()},
                           {"pid", ::getpid()}});
}

void Node::stop() {
    if (!running_) return;
    root_->withdrawAddress();
    running_.reset();
    root_.reset();
}

void Node::announce(const std::string& host) {
    running_->announcer.emplace(AvahiAnnouncer::Announcement{
        .name = options_.name.empty() ? host : options_.name,
        .port = port(),
        .text = {{"host", host}, {"port", fmt::format("{}", port())}, {"api", options_.api ? "1" : "0"}}});
}

std::optional<std::string> Node::trouble() const {
    if (!running_->announcer) return std::nullopt;
    return running_->announcer->trouble();
}

std::uint16_t Node::port() const {
    std::string_view digits = std::string_view(address_).substr(address_.rfind(':') + 1);
    std::uint16_t port = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), port);
    return port;
}

}  // namespace vark::box
