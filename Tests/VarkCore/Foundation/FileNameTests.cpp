#include "VarkCore/Foundation/FileName.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace vark {
namespace {

TEST(FileName, OneThatCouldLeadElsewhereIsNoName) {
    using namespace std::string_view_literals;
    const std::pair<std::string, std::optional<NameFault>> cases[] = {
        {"a", {}},
        {"...", {}},
        {" .b", {}},
        {"line\nend\ttab\x7f", {}},
        {"\u202Ecod.exe", {}},
        {std::string(255, 'x'), {}},
        {std::string(256, 'x'), NameFault::tooLong},
        {"", NameFault::leadsElsewhere},
        {".", NameFault::leadsElsewhere},
        {"..", NameFault::leadsElsewhere},
        {"/", NameFault::leadsElsewhere},
        {"a/..", NameFault::leadsElsewhere},
        {"../../etc/passwd", NameFault::leadsElsewhere},
        {std::string("a\0b"sv), NameFault::leadsElsewhere},
        {"\x1b[2J", NameFault::holdsControls},
        {"a\r", NameFault::holdsControls},
        {"\u009b2J", NameFault::holdsControls},
        {"\x9b", NameFault::holdsControls},
    };
    for (const auto& [name, fault] : cases)
        EXPECT_EQ(faultOf(name), fault) << testing::PrintToString(name);
}

}  // namespace
}  // namespace vark
