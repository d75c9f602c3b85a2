#include "VarkBox/Box.h"

#include <fmt/format.h>
#include <unistd.h>

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <optional>
#include <stdexcept>

#include "VarkBox/Account.h"
#include "VarkBox/Authority.h"
#include "VarkBox/BoxSite.h"
#include "VarkBox/Database.h"
#include "VarkBox/Hasher.h"
#include "VarkBox/HTTPServer.h"
#include "VarkBox/JSONBody.h"
#include "VarkBox/ObjectFiles.h"
#include "VarkBox/RequestLog.h"
#include "VarkBox/Services.h"
#include "VarkBox/Tree.h"
#include "VarkBox/Uploads.h"

namespace vark::box {

namespace fs = std::filesystem;

namespace {

FileLock lockRoot(const fs::path& root) {
    fs::create_directories(root);
    std::optional<FileLock> lock = FileLock::tryExclusive(root / "lock");
    if (!lock) {
        throw std::runtime_error(fmt::format(
            "Another vark-box is serving {} already. Stop it, or choose another --root.", root.string()));
    }
    return std::move(*lock);
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
    Running(const BoxOptions& options, const std::string& token,
            const std::optional<CertificateFiles>& certificates)
        : database(options.root / "records.sqlite"),
          files(options.root),
          uploads(database, files, {options.chunkSize, options.checkInlineBelow}),
          account(options.client, token, options.level),
          log(options.root / "requests.jsonl"),
          services{database, files, uploads, account, faults, std::nullopt},
          site(services, log),
          server(site, certificates) {
        furnish(database);
        for (const std::string& fault : options.faults)
            faults.add(Fault::fromJSON(JSONBody(fault)));
    }

    Database database;
    ObjectFiles files;
    Uploads uploads;
    Account account;
    Faults faults;
    RequestLog log;
    Services services;
    BoxSite site;
    HTTPServer server;
};

Box::Box(BoxOptions options) : options_(std::move(options)) {}

Box::~Box() {
    stop();
}

void Box::start() {
    lock_ = lockRoot(options_.root);
    // Left by a box that was killed: whoever waits for the file must not find the old one.
    fs::remove(options_.root / "address.json");
    token_ = readOrMakeToken();
    std::optional<CertificateFiles> certificates;
    if (!options_.plain) {
        certificates = certificatesIn(options_.root);
        authority_ = fs::absolute(certificates->authority);
    }
    auto running = std::make_unique<Running>(options_, token_, certificates);
    const char* scheme = options_.plain ? "http" : "https";
    url_ = fmt::format("{}://{}", scheme, running->server.listen(Listener::app, options_.listen));
    chunkURL_ = fmt::format("{}://{}", scheme, running->server.listen(Listener::chunk, options_.chunkListen));
    if (options_.givesChunkURL) running->services.chunkURL = chunkURL_;
    running->server.start();
    running_ = std::move(running);
    writeAddress();
}

void Box::stop() {
    if (!running_) return;
    fs::remove(options_.root / "address.json");
    running_.reset();
    lock_.reset();
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

void Box::writeAddress() const {
    boost::json::object address{{"url", url_}, {"chunk_url", chunkURL_}, {"pid", ::getpid()}};
    if (!options_.plain) address["authority"] = authority_.string();
    writeAtomically(options_.root / "address.json", boost::json::serialize(address) + "\n", 0600,
                    Durability::cached);
}

}  // namespace vark::box
