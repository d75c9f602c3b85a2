// The provider's rules that ask no vark: items and errors, names, patience, comparisons, offers.

#include <gtest/gtest.h>

#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Names.h"
#include "VarkProvider/BinnedEcho.h"
#include "VarkProvider/Patience.h"
#include "VarkProvider/ProviderError.h"
#include "VarkProvider/Reimport.h"
#include "VarkProvider/VarkProviderItem.h"
#include "VarkProvider/WorkingSet.h"

namespace vark {
namespace {

template <class Error>
std::exception_ptr thrown(Error error) {
    return std::make_exception_ptr(std::move(error));
}
std::exception_ptr server(int status) {
    return thrown(VarkAPIError::server(status, "said"));
}

TEST(ItemIdentity, TurnsNumbersIntoIdentifiersAndBack) {
    const ItemIdentity identity{40};
    for (const char* text : {"", "12a", " 12", "+-12", "9223372036854775808"})
        EXPECT_EQ(identity.varkID(ItemIdentifier::item(text)), std::nullopt) << text;
    EXPECT_EQ(identity.varkID(ItemIdentifier::item("+12")), 12);
    EXPECT_TRUE(identity.isRoot(ItemIdentifier::item("40")) &&
                !identity.isRoot(ItemIdentifier::workingSet()));
    EXPECT_EQ(ItemIdentity{0}.identifier(0), ItemIdentifier::root());
}

TEST(VarkProviderItem, AnswersForFilesFoldersAndTheTop) {
    const auto typeOf = [](std::string_view extension) { return std::optional<std::string>(extension); };
    const VarkProviderItem top({.id = 40, .parent = 7, .isDir = true}, {40}, 4, true);
    const VarkProviderItem file({.id = 5, .name = ".x", .parent = 40, .size = 3}, {40}, 4, true);
    EXPECT_EQ(top.parentItemIdentifier(), ItemIdentifier::root());
    EXPECT_EQ(file.parentItemIdentifier(), ItemIdentifier::root());
    EXPECT_EQ(std::pair(top.capabilities(), file.capabilities()),
              std::pair(Capabilities{3}, Capabilities{47}));
    EXPECT_EQ(VarkProviderItem({}, {40}, 3, true).capabilities(), Capabilities{1});
    EXPECT_EQ(file.contentType(typeOf), ContentType::data()) << "a name that begins with its only dot";
    // Systems have stored versions of this form: "3|0.0|" and "40|.x".
    EXPECT_EQ(file.itemVersion(),
              (ItemVersion{"909267e30bf6a196cc53db9b35f6e906", "791f1bbfa03ed1e0be5cbf03f348fb1a"}));
}

TEST(ProviderError, GivesEveryFailureTheSystemsNumber) {
    using Domain = ProviderError::Domain;
    const Domain files = Domain::fileProvider;
    const FileError full("write", "/a", ENOSPC);
    // clang-format off
    const std::tuple<std::exception_ptr, Domain, int, std::optional<std::string>> cases[] = {
        {server(403), files, -1000, "said"}, {server(404), files, -1005, "said"}, {server(410), files, -1005, "said"},
        {server(413), files, -1003, "said"}, {server(400), files, -1004, "said"}, {server(500), files, -1004, "said"},
        {thrown(VarkAPIError::unauthorized("said", "device_revoked")), files, -1000, "said"},
        {thrown(VarkAPIError::notConnected()), files, -1000, VarkAPIError::notConnected().what()},
        {thrown(VarkAPIError::transport("said")), files, -1004, "said"},
        {thrown(VarkAPIError::transport("")), files, -1004, "Vark could not do that."},
        {thrown(VarkAPIError::badResponse("x")), files, -1004, VarkAPIError::badResponse("x").what()},
        {thrown(VarkAPIError::wrongChunkRoute("said")), files, -1004, "said"},
        {thrown(VarkAPIError::uploadGone()), files, -1004, VarkAPIError::uploadGone().what()},
        {thrown(VarkAPIError::nameTaken("said")), files, -2005, "said"},
        {thrown(CancellationError()), Domain::cocoa, 3072, {}}, {thrown(full), Domain::posix, ENOSPC, full.what()},
        {thrown(std::runtime_error("said")), Domain::other, 0, "said"},
    };
    // clang-format on
    for (const auto& [failure, domain, code, description] : cases) {
        const ProviderError error = providerError(failure);
        EXPECT_EQ(std::tie(error.domain, error.code, error.description), std::tie(domain, code, description))
            << code;
        EXPECT_FALSE(error.isRefusedPlace()) << "which says nothing";
    }
}

TEST(Names, NextCountsInBracketsBeforeTheExtension) {
    // clang-format off
    const std::pair<const char*, const char*> cases[] = {
        {"a.txt", "a (2).txt"}, {"a (2).txt", "a (3).txt"}, {"a (99).txt", "a (100).txt"},
        {"a (100).txt", "a (100) (2).txt"}, {"a (1).txt", "a (1) (2).txt"}, {"a (0)", "a (0) (2)"},
        {"a (b)", "a (b) (2)"}, {"a ()", "a () (2)"}, {"a (2) b", "a (2) b (2)"}, {"a(2)", "a(2) (2)"},
        {"a (2) (3)", "a (2) (4)"}, {"a.tar.gz", "a.tar (2).gz"}, {"a.b c", "a.b c (2)"}, {"a.", "a. (2)"},
        {"a.1234567890", "a (2).1234567890"}, {"a.12345678901", "a.12345678901 (2)"},
        {"a.éééééééééé", "a (2).éééééééééé"}, {".profile", ".profile (2)"}, {"", " (2)"},
    };
    // clang-format on
    for (const auto& [name, next] : cases)
        EXPECT_EQ(Names::next(name), next);
}

TEST(Patience, WaitsForWhatMayPassByItself) {
    for (const int status : {408, 429, 499, 500, 404})
        EXPECT_EQ(Patience::worthWaiting(server(status)), status != 499 && status != 404) << status;
    EXPECT_FALSE(Patience::worthWaiting(thrown(CancellationError())));
}

// Each letter is an item: n as it was, r renamed, d doubtful, g gone, u gone there and unsent here.
TEST(WorkingSet, ReconcilesAllOfAPassOrNothing) {
    using Said = WorkingSet::Said;
    // clang-format off
    const std::pair<std::string_view, std::string> cases[] = {
        {"", "gone  renamed"}, {"nrng", "gone 3 renamed 1"}, {"gggg", "gone 0 1 2 3 renamed"}, {"gnnnn", "gone 0 renamed"},
        {"guunn", "gone 0 renamed"}, {"uuuuu", "gone  renamed"}, {"ggnnnnnnnn", "gone 0 1 renamed"},
        {"ggnnn", "the vark called 2 of 5 things gone in one pass, which is more than it should be; nothing was deleted"},
        {"rdgd", "the vark could not say what it has (1); nothing was changed"},
    };
    // clang-format on
    for (const auto& [said, comesTo] : cases) {
        std::vector<WorkingSet::Item> items;
        std::map<std::int64_t, std::string> holding;
        for (const char letter : said) {
            const auto id = static_cast<std::int64_t>(items.size());
            auto answer = letter == 'd' ? Said::couldNotSay(std::to_string(id)) : Said::gone();
            if (letter == 'n' || letter == 'r') answer = Said::here({.id = id, .name = {letter}});
            items.push_back({id, answer, letter == 'u'});
            holding[id] = "n";
        }
        const WorkingSet::Reconciled reconciled = WorkingSet::reconcile(items, holding);
        if (const auto* changes = std::get_if<WorkingSet::Changes>(&reconciled)) {
            std::string text = fmt::format("gone {} renamed", fmt::join(changes->gone, " "));
            for (const VarkItem& item : changes->renamed)
                text += fmt::format(" {}", item.id);
            EXPECT_EQ(text, comesTo) << said;
        } else {
            EXPECT_EQ(std::get<WorkingSet::TryAgain>(reconciled).why, comesTo) << said;
        }
    }
    const WorkingSet::Reconciled stranger =
        WorkingSet::reconcile({{1, Said::here({.id = 1, .name = "new"})}}, {});
    EXPECT_EQ(stranger, WorkingSet::Reconciled(WorkingSet::Changes{})) << "not held";
}

TEST(WorkingSet, KnowsWhatIsUnsentByItsWholePath) {
    SyncSummary summary;
    summary.sending = {SyncOp(SyncOp::Kind::upload, "Jobs/a", 1, {})};
    summary.waiting = {SyncOp(SyncOp::Kind::move, "Jobs/b", 1, {})};
    summary.problems = {SyncOp(SyncOp::Kind::bin, "Jobs/c", 1, {})};
    for (const std::string path : {"Jobs/a", "Jobs/b", "Jobs/c", "Jobs", "Jobs/a/x", "a", ""})
        EXPECT_EQ(WorkingSet::unsent(path, summary), path.size() == 6) << path;
}

TEST(Reimport, NeitherCopiesNorBringsBackNorLosesWhatIsOffered) {
    using Vark = std::optional<VarkItem>;
    const Vark none, file = VarkItem{}, dir = VarkItem{.isDir = true};
    const BinnedItem bin{.id = 9, .size = 5, .sha256 = "ab"}, binDir{.id = 9, .isDir = true},
        hashless{.id = 9, .size = 5};
    const BinnedItem otherSize{.id = 9, .size = 6, .sha256 = "ab"}, nameless{.size = 5, .sha256 = "ab"};
    const Reimport::HandBack handBack;
    const Reimport::PutItInTheVark put;
    const Reimport::BackToDeleted back{9};
    using Text = std::optional<std::string>;
    // clang-format off
    const std::tuple<const char*, bool, Vark, Vark, std::optional<BinnedItem>, Text, Reimport::Answer> cases[] = {
        {"known by its number, whatever the Bin says", false, file, none, bin, "ab", handBack},
        {"known by its number, of the other kind", false, dir, none, {}, "ab", put},
        {"known by its path alone", false, dir, file, bin, "ab", handBack},
        {"a folder where the vark has a file", true, file, file, {}, {}, put},
        {"a binned folder, offered", true, none, none, binDir, {}, back},
        {"a folder offered, a file binned", true, none, none, bin, "ab", put},
        {"a file offered, a folder binned", false, none, none, binDir, "ab", put},
        {"the binned bytes", false, none, none, bin, "ab", back},
        {"other bytes than the binned", false, none, none, bin, "cd", put},
        {"bytes that nobody has read", false, none, none, bin, {}, put},
        {"another size", false, none, none, otherSize, "ab", put},
        {"binned without a hash", false, none, none, hashless, "", put},
        {"binned without a number", false, none, none, nameless, "ab", put},
    };
    // clang-format on
    for (const auto& [name, wantFolder, knows, has, binned, hash, answer] : cases)
        EXPECT_EQ(Reimport::answer(knows, has, binned, wantFolder, 5, hash), answer) << name;
}

TEST(ReimportPolicy, WantsOneForEachVersionAndNotTwiceInAnHour) {
    // This version, the last one, how many seconds ago, whether a person asks; whether it is wanted.
    // clang-format off
    const std::tuple<const char*, std::optional<std::string>, std::optional<double>, bool, bool> cases[] = {
        {"2", "1", {}, false, true}, {"2", "2", {}, false, false}, {"2", {}, {}, false, true}, {"", {}, {}, false, false},
        {"2", "1", 3599, false, false}, {"2", "1", 3600, false, true}, {"2", "1", -1, false, true}, {"", "2", 10, true, true},
    };
    // clang-format on
    for (const auto& [thisVersion, lastVersion, ago, asked, wanted] : cases) {
        const auto last = ago ? std::optional(Date{1e6} - *ago) : std::nullopt;
        EXPECT_EQ(ReimportPolicy::wanted(thisVersion, lastVersion, last, Date{1e6}, asked), wanted)
            << ago.value_or(-9);
    }
}

TEST(BinnedEcho, HoldsTheLastSoManyByTheirFirstMention) {
    BinnedEcho echo(2), least(0);
    for (const auto& [id, path] : {std::pair(1, "a"), {2, "b"}, {1, "moved"}, {3, "c"}})
        echo.remember(id, path);
    EXPECT_EQ(std::tuple(echo.path(1), echo.path(2), echo.count()), std::tuple(std::nullopt, "b", 2U));
    least.remember(1, "a");
    EXPECT_EQ(least.path(1), "a");
}

}  // namespace
}  // namespace vark
