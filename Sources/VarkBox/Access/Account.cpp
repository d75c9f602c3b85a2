#include "VarkBox/Access/Account.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "VarkBox/HTTP/Exchange.h"
#include "VarkBox/Store/Hasher.h"

namespace vark::box {

namespace {

constexpr int lowestWritingLevel = 4;
constexpr std::array<std::string_view, 7> labels = {"No access", "Guest",   "Viewer", "Reader",
                                                    "Editor",    "Manager", "Owner"};

std::string hashOf(std::string_view token) {
    Hasher hasher;
    hasher.add(token);
    return hasher.digest();
}

}  // namespace

Account::Account(Database& database, std::string client, const std::string& token, int level)
    : database_(database), client_(std::move(client)), email_("somebody@vark.example"), level_(level) {
    {
        Turn turn = database_.write();
        std::string hash = hashOf(token);
        // The token of the start may have been exchanged since the last one.
        turn.query("DELETE FROM devices WHERE is_first = 1 AND token_hash <> ?").with(hash).run();
        turn.query("INSERT OR IGNORE INTO devices(token_hash, name, is_first) VALUES(?, ?, 1)")
            .with(hash, "This device")
            .run();
        turn.commit();
    }
    load();
}

void Account::load() {
    std::map<std::string, Device, std::less<>> devices;
    Turn turn = database_.read();
    Query query = turn.query("SELECT token_hash, name, signed_out, code FROM devices");
    while (query.next()) {
        Device device{.name = query.text(1)};
        if (query.integer(2) != 0) device.signOut = SignOut();
        if (device.signOut && !query.isNull(3)) device.signOut->code = query.text(3);
        devices.emplace(query.text(0), std::move(device));
    }
    Locked guard(lock_);
    devicesByHash_ = std::move(devices);
}

int Account::level() const {
    Locked guard(lock_);
    return level_;
}

std::string_view Account::levelLabel() const {
    int last = static_cast<int>(labels.size()) - 1;
    return labels.at(static_cast<std::size_t>(std::clamp(level(), 0, last)));
}

void Account::setLevel(int level) {
    Locked guard(lock_);
    level_ = level;
}

std::string Account::addDevice(const std::string& name) {
    std::string token = randomHex(32);
    {
        Turn turn = database_.write();
        turn.query("INSERT INTO devices(token_hash, name, is_first) VALUES(?, ?, 0)")
            .with(hashOf(token), name)
            .run();
        turn.commit();
    }
    load();
    return token;
}

void Account::signOut(const SignOut& how) {
    {
        Turn turn = database_.write();
        turn.query("UPDATE devices SET signed_out = 1, code = ?").with(how.code).run();
        turn.commit();
    }
    load();
}

void Account::signIn() {
    {
        Turn turn = database_.write();
        turn.query("UPDATE devices SET signed_out = 0, code = NULL").run();
        turn.commit();
    }
    load();
}

void Account::checkToken(const std::optional<std::string>& token) const {
    if (!token) throw Refusal(401, "This call needs the token of a device. Sign in first.");
    Locked guard(lock_);
    auto device = devicesByHash_.find(hashOf(*token));
    if (device == devicesByHash_.end())
        throw Refusal(401, "The vark does not know this device. Sign in again.");
    const std::optional<SignOut>& signOut = device->second.signOut;
    if (!signOut) return;
    boost::json::object extras;
    if (signOut->code) {
        extras["code"] = *signOut->code;
    } else {
        extras["sign_out"] = true;
    }
    throw Refusal(401, "This device has been signed out. Sign in again.", extras);
}

std::string Account::deviceName(const std::string& token) const {
    Locked guard(lock_);
    auto device = devicesByHash_.find(hashOf(token));
    return device == devicesByHash_.end() ? std::string() : device->second.name;
}

void Account::checkMayWrite() const {
    if (level() >= lowestWritingLevel) return;
    throw Refusal(403, fmt::format("Your level, {}, may look at files but not change them. Ask {} for more.",
                                   levelLabel(), client_));
}

}  // namespace vark::box
