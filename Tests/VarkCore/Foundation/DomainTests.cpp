#include "VarkCore/Foundation/Domain.h"

#include <gtest/gtest.h>

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
             Case{"a.b.acme.co.uk", "vark.acme.co.uk", true},
             Case{"node1.box.test", "vark.box.test", true},
             Case{"localhost", "localhost", true},
             Case{"127.0.0.1", "127.0.0.1", true},
             Case{"other.co.uk", "acme.co.uk", false},
             Case{"other.github.io", "acme.github.io", false},
             Case{"acme.com.evil.com", "vark.acme.com", false},
             Case{"evilacme.com", "acme.com", false},
             Case{"com", "acme.com", false},
             Case{"node1.localhost", "localhost", false},
             Case{"10.0.0.1", "127.0.0.1", false},
             Case{"::ffff:10.0.0.1", "::ffff:127.0.0.1", false},
             Case{"node1.box.test", "127.0.0.1", false},
             Case{"", "", false},
         })
        EXPECT_EQ(haveOneOwner(each.host, each.other), each.isOne) << each.host << ' ' << each.other;
}

}  // namespace
}  // namespace vark
