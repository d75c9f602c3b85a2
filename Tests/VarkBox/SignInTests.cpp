#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include "Tests/VarkBox/BoxFixture.h"
#include "VarkBox/Exchange.h"
#include "VarkBox/SignIns.h"

namespace vark::box {

namespace json = boost::json;

namespace {

/// The status of the refusal, or 0 without one.
int refusalOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Refusal& refusal) {
        return refusal.status();
    }
    return 0;
}

}  // namespace

TEST(BoxSignIns, ACodeServesOnceAndForAWhile) {
    SignIns signIns(100);
    std::string code = signIns.makeCode(0);
    EXPECT_EQ(code.size(), 6u);
    EXPECT_EQ(code.find_first_not_of("0123456789"), std::string::npos);
    EXPECT_EQ(refusalOf([&] { signIns.spendCode(code.substr(0, 3) + " - " + code.substr(3), 99); }), 0);
    EXPECT_EQ(refusalOf([&] { signIns.spendCode(code, 99); }), 404);
    code = signIns.makeCode(0);
    EXPECT_EQ(refusalOf([&] { signIns.spendCode(code, 100); }), 404);
    EXPECT_EQ(refusalOf([&] { signIns.spendCode("", 0); }), 404);
}

TEST(BoxSignIns, ThePersonDecidesOnceAndTheDeviceIsToldWhenItAsksSlowlyEnough) {
    struct Answered {
        double at;
        bool yes;
    };
    struct Case {
        std::vector<Answered> answers;
        double polledAt;
        SignInState state;
    };
    for (const Case& signIn : std::vector<Case>{{{}, 99, SignInState::pending},
                                                {{}, 100, SignInState::expired},
                                                {{{99, true}}, 150, SignInState::connected},
                                                {{{99, false}}, 150, SignInState::refused},
                                                {{{1, false}, {2, true}}, 3, SignInState::refused},
                                                {{{100, true}}, 101, SignInState::expired}}) {
        SignIns signIns(100);
        SignIns::Begun begun = signIns.begin("Laptop", 0);
        int made = 0;
        auto connect = [&made](const std::string& name) { return fmt::format("{} {}", name, ++made); };
        for (const Answered& answer : signIn.answers)
            signIns.answer(begun.key, answer.yes, answer.at);
        EXPECT_EQ(signIns.look(begun.key, signIn.polledAt).state, signIn.state);
        SignIns::Poll poll = signIns.poll(begun.nonce, signIn.polledAt, connect);
        EXPECT_EQ(poll.state, signIn.state);
        EXPECT_EQ(poll.token, signIn.state == SignInState::connected ? "Laptop 1" : "");
        EXPECT_EQ(refusalOf([&] { signIns.poll(begun.nonce, signIn.polledAt + 0.4, connect); }), 429);
        EXPECT_EQ(signIns.poll(begun.nonce, signIn.polledAt + 1, connect).token, poll.token);
        // What the browser is shown is not enough to get the token, nor the other way round.
        EXPECT_EQ(refusalOf([&] { signIns.poll(begun.key, 0, connect); }), 404);
        EXPECT_EQ(refusalOf([&] { signIns.answer(begun.nonce, true, 0); }), 404);
        signIns.begin("Another", 201);
        EXPECT_EQ(refusalOf([&] { signIns.poll(begun.nonce, 201, connect); }), 404);
    }
}

class BoxSignIn : public BoxFixture {
  protected:
    void SetUp() override { start(); }

    Answer beginOn(std::string_view device) {
        return nobody().post("/api/device/begin", {{"device_name", device}});
    }
    BoxClient nobody() { return {box->url(), box->authority(), ""}; }
    std::string urlOf(const Answer& begun) { return std::string(begun.json().at("url").as_string()); }
    Answer poll(const Answer& begun) {
        return nobody().get("/api/device/poll/" + std::string(begun.json().at("nonce").as_string()));
    }
    Answer whoamiWith(const json::value& claim) {
        client->setToken(std::string(claim.at("token").as_string()));
        return client->get("/api/whoami");
    }
};

TEST_F(BoxSignIn, ACodeOfThePortalGivesTheDeviceATokenOfItsOwn) {
    EXPECT_EQ(nobody().get("/portal").status, 200);
    std::string shown = nobody().send("POST", "/portal/code").body;
    std::string code = shown.substr(shown.find("\"code\">") + 7, 6);
    json::object request{{"code", code}, {"device_name", "Laptop"}};
    Answer claim = nobody().post("/api/device/claim", request);
    EXPECT_EQ(claim.status, 200);
    EXPECT_EQ(claim.json().at("client_name"), "Acme");
    EXPECT_NE(claim.json().at("token"), json::value(box->token()));
    EXPECT_EQ(whoamiWith(claim.json()).json().at("device_name"), "Laptop");
    EXPECT_EQ(whoamiWith(claim.json()).json().at("email"), claim.json().at("email"));
    Answer again = nobody().post("/api/device/claim", request);
    EXPECT_EQ(again.status, 404);
    EXPECT_FALSE(again.error().empty());
    request["code"] = client->control("POST", "/control/codes").json().at("code");
    EXPECT_EQ(nobody().post("/api/device/claim", request).status, 200);
}

TEST_F(BoxSignIn, ThePageInTheBrowserDecidesWhatTheDeviceIsTold) {
    struct Case {
        std::string press;
        json::value state;
        std::string shown;
    };
    const std::string mac = "&lt;b&gt;&#39;s Mac";
    for (const Case& answer : {Case{"/yes", "connected", mac + " is connected to Acme"},
                               Case{"/no", "refused", mac + " was not connected"},
                               Case{"", "pending", mac + " wants to connect to Acme"}}) {
        Answer begun = beginOn("<b>'s Mac");
        EXPECT_EQ(begun.status, 201);
        EXPECT_EQ(begun.json().at("expires_in"), 600.0);
        std::string before = nobody().get(urlOf(begun)).body;
        EXPECT_NE(before.find(mac + " wants to connect to Acme"), std::string::npos) << before;
        EXPECT_EQ(before.find("<b>"), std::string::npos);
        if (!answer.press.empty()) {
            std::string path = urlOf(begun).substr(box->url().size()) + answer.press;
            EXPECT_NE(before.find("action=\"" + path + "\""), std::string::npos) << before;
            EXPECT_EQ(nobody().send("POST", path).status, 200);
        }
        EXPECT_NE(nobody().get(urlOf(begun)).body.find(answer.shown), std::string::npos);
        json::value told = poll(begun).json();
        EXPECT_EQ(told.at("state"), answer.state);
        if (answer.state != "connected") continue;
        EXPECT_EQ(told.at("device_name"), "<b>'s Mac");
        EXPECT_EQ(whoamiWith(told).json().at("device_name"), "<b>'s Mac");
    }
    EXPECT_EQ(nobody().get("/portal/connect/none").status, 404);
    EXPECT_EQ(nobody().send("POST", "/portal/connect/none/yes").status, 404);
}

TEST_F(BoxSignIn, ASignInThatRanOutSaysSoOnBothSides) {
    box.reset();
    options.signInLastsSeconds = 0;
    start();
    Answer begun = beginOn("Laptop");
    EXPECT_EQ(nobody().get(urlOf(begun)).status, 410);
    EXPECT_EQ(nobody().send("POST", urlOf(begun) + "/yes").status, 410);
    EXPECT_EQ(poll(begun).json(), json::value({{"state", "expired"}}));
}

TEST_F(BoxSignIn, ASignOutMeetsTheDevicesOfItsTimeWithOrWithoutACodeAndOutlivesARestart) {
    auto claim = [&] {
        json::value code = client->control("POST", "/control/codes").json().at("code");
        return nobody().post("/api/device/claim", {{"code", code}, {"device_name", "Laptop"}}).json();
    };
    json::value early = claim();
    for (const json::value& how : {json::value(nullptr), json::value(json::object()),
                                   json::value{{"code", "VARK-410"}}, json::value{{"code", "OTHER"}}}) {
        EXPECT_EQ(client->control("POST", "/control/sign-out", how).status, 200);
        for (const std::string& token : {box->token(), std::string(early.at("token").as_string())}) {
            client->setToken(token);
            json::object said = client->get("/api/whoami").json().as_object();
            bool hasCode = how.is_object() && how.get_object().contains("code");
            EXPECT_EQ(said.contains("sign_out"), !hasCode) << how;
            EXPECT_EQ(said.contains("code"), hasCode) << how;
            if (hasCode) EXPECT_EQ(said.at("code"), how.at("code"));
        }
    }
    json::value late = claim();
    box.reset();
    start();
    EXPECT_EQ(whoamiWith(early).status, 401);
    EXPECT_EQ(whoamiWith(late).status, 200);
    client->control("POST", "/control/sign-in");
    EXPECT_EQ(whoamiWith(early).status, 200);
}

TEST_F(BoxFixture, ATokenThatTheBoxIsNoLongerStartedWithIsForgotten) {
    options.tokenFile = folder.path() / "given";
    for (std::string_view token : {"first", "second"}) {
        writeAtomically(options.tokenFile, token, 0600, Durability::cached);
        box.reset();
        start();
    }
    EXPECT_EQ(client->get("/api/whoami").status, 200);
    client->setToken("first");
    EXPECT_EQ(client->get("/api/whoami").status, 401);
}

}  // namespace vark::box
