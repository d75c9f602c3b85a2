#include <gtest/gtest.h>

#include "VarkCore/Foundation/Domain.h"
#include "VarkCore/Foundation/FileName.h"

namespace vark {
namespace {

TEST(Domain, HostsHaveOneOwnerBelowADomainThatCanBeRegistered) {
    struct Case {
        const char* host;
        const char* other;
        bool isOne;
    };
    for (const Case& each : {
             Case{"node1.acme.com", "vark.acme.com", true},
             Case{"Node1.Acme.COM", "acme.com.", true},
             Case{"localhost", "localhost", true},
             Case{"other.co.uk", "acme.co.uk", false},
             Case{"acme.com.evil.com", "vark.acme.com", false},
             Case{"evilacme.com", "acme.com", false},
             Case{"com", "acme.com", false},
             Case{"node1.localhost", "localhost", false},
             Case{"10.0.0.1", "127.0.0.1", false},
             Case{"::ffff:10.0.0.1", "::ffff:127.0.0.1", false},
         })
        EXPECT_EQ(haveOneOwner(each.host, each.other), each.isOne) << each.host << ' ' << each.other;
}

TEST(FileName, OneThatCouldLeadElsewhereIsNoName) {
    using namespace std::string_view_literals;
    const std::pair<std::string, std::optional<NameFault>> cases[] = {
        {"...", {}},
        {" .b", {}},
        {"line\nend\ttab\x7f", {}},
        {"\u202Ecod.exe", {}},
        {std::string(256, 'x'), NameFault::tooLong},
        {"", NameFault::leadsElsewhere},
        {"..", NameFault::leadsElsewhere},
        {"a/..", NameFault::leadsElsewhere},
        {std::string("a\0b"sv), NameFault::leadsElsewhere},
        {"\x1b[2J", NameFault::holdsControls},
        {"\u009b2J", NameFault::holdsControls},
        {"\x9b", NameFault::holdsControls},
    };
    for (const auto& [name, fault] : cases)
        EXPECT_EQ(faultOf(name), fault) << testing::PrintToString(name);
}

}  // namespace
}  // namespace vark
