#include "VarkBox/Box.h"

#include <fmt/format.h>
#include <unistd.h>

#include <boost/json/object.hpp>
#include <optional>
#include <stdexcept>

#include "VarkBox/Access/Account.h"
#include "VarkBox/BoxSite.h"
#include "VarkBox/HTTP/Authority.h"
#include "VarkBox/HTTP/HTTPServer.h"
#include "VarkBox/HTTP/JSONBody.h"
#include "VarkBox/HTTP/RequestLog.h"
#include "VarkBox/Routes/Services.h"
#include "VarkBox/Store/Database.h"
#include "VarkBox/Store/Hasher.h"
#include "VarkBox/Store/ObjectFiles.h"
#include "VarkBox/Store/Tree.h"
#include "VarkBox/Store/Uploads.h"

namespace vark::box {

namespace fs = std::filesystem;

namespace {

/// The job book has entries of every completeness.
void fillJobBook(Turn& turn) {
    struct Job {
        const char* ref;
        const char* title;
        const char* client;
        const char* artist;
        const char* date;
    };
    for (const Job& job : {Job{"J-1042", "Summer", "Northwind", "A. Lindqvist", "2025-03-03"},
                           Job{"J-1043", "Harbour at night", "Northwind", "", "2025-03-10"},
                           Job{"J-1044", "", "Bakery & Sons", "", "2025-04-01"},
                           Job{"J-1045", "Autumn lookbook", "", "", ""}, Job{"J-1046", "", "", "", ""}}) {
        turn.query("INSERT INTO jobs(ref, title, client, artist, date) VALUES(?, ?, ?, ?, ?)")
            .with(job.ref, job.title, job.client, job.artist, job.date)
            .run();
    }
}

/// What a new vark holds before anybody has put anything into it.
void furnish(Database& database) {
    Turn turn = database.write();
    Tree tree(turn);
    if (!tree.children(rootID, "", 1).empty()) return;
    tree.makeFolder("Jobs");
    tree.makeFolder("Templates");
    tree.setArea(tree.makeFolder("Fridge").id, "fridge");
    tree.setArea(tree.makeFolder("Archive").id, "archive");
    fillJobBook(turn);
    turn.commit();
}

std::string withoutLineEnd(std::string text) {
    while (text.ends_with('\n') || text.ends_with('\r'))
        text.pop_back();
    return text;
}

}  // namespace

/// Everything that lives from start to stop, each after what it uses.
struct Box::Running {
    Running(const BoxOptions& options, const std::string& token)
        : root(options.root),
          database(root / "records.sqlite"),
          files(root),
          uploads(database, files, {options.chunkSize, options.checkInlineBelow}),
          account(database, options.client, token, options.level),
          nodes(database),
          signIns(options.signInLastsSeconds),
          log(root / "requests.jsonl"),
          services{database, files, uploads, account, faults, nodes, tickets, signIns, options.hasJobBook},
          site(services, log) {
        furnish(database);
        for (const std::string& fault : options.faults)
            faults.add(Fault::fromJSON(JSONBody(fault)));
        if (!options.plain) certificates = certificatesIn(root, root, nodes.known());
        server.emplace(site, certificates);
        services.givesChunkURL = options.givesChunkURL;
        services.certify = [this](const std::vector<std::string>& hosts) {
            if (certificates) server->useCertificates(certificatesIn(root, root, hosts));
        };
    }

    std::filesystem::path root;
    Database database;
    ObjectFiles files;
    Uploads uploads;
    Account account;
    Faults faults;
    Nodes nodes;
    Tickets tickets;
    SignIns signIns;
    RequestLog log;
    Services services;
    BoxSite site;
    std::optional<CertificateFiles> certificates;
    std::optional<HTTPServer> server;
};

Box::Box(BoxOptions options) : options_(std::move(options)) {}

Box::~Box() {
    stop();
}

void Box::start() {
    root_.emplace(options_.root);
    token_ = readOrMakeToken();
    auto running = std::make_unique<Running>(options_, token_);
    if (running->certificates) authority_ = fs::absolute(running->certificates->authority);
    const char* scheme = options_.plain ? "http" : "https";
    HTTPServer& server = *running->server;
    url_ = fmt::format("{}://{}", scheme, server.listen(Listener::app, options_.listen));
    chunkURL_ = fmt::format("{}://{}", scheme, server.listen(Listener::chunk, options_.chunkListen));
    running->services.url = url_;
    running->services.chunkURL = chunkURL_;
    server.start();
    running_ = std::move(running);
    boost::json::object address{{"url", url_}, {"chunk_url", chunkURL_}, {"pid", ::getpid()}};
    if (!options_.plain) address["authority"] = authority_.string();
    root_->publishAddress(address);
}

void Box::stop() {
    if (!running_) return;
    root_->withdrawAddress();
    running_.reset();
    root_.reset();
}

std::string Box::readOrMakeToken() const {
    fs::path path = options_.tokenFile.empty() ? options_.root / "token" : options_.tokenFile;
    if (options_.tokenFile.empty() && !fs::exists(path))
        writeAtomically(path, randomHex(32) + "\n", 0600, Durability::cached);
    std::string token = withoutLineEnd(readWholeFile(path));
    if (token.empty()) {
        throw std::runtime_error(
            fmt::format("The token file {} is empty. Write a token into it.", path.string()));
    }
    return token;
}

}  // namespace vark::box
