#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "Tests/Support/BuildTree.h"

// Runs the tests in the middle of a small office, which a script makes of network namespaces around them.
int main(int count, char** arguments) {
    const bool onlyLists = count > 1 && std::string_view(arguments[1]).starts_with("--gtest_list_tests");
    if (onlyLists || std::getenv("VARK_OFFICE") != nullptr) {
        testing::InitGoogleTest(&count, arguments);
        return RUN_ALL_TESTS();
    }
    const char* inOffice = R"(folder=$(mktemp -d)
"$0" "$folder" "$@"
status=$?
rm -rf "$folder"
[ $status != 77 ] || echo '*** NOT TESTED: the kernel gives no network namespaces here. ***' >&2
exit $status)";
    const std::string office = vark::test::sourceTree() / "Scripts/office-network";
    std::vector<const char*> command{"/bin/sh", "-c", inOffice, office.c_str()};
    command.insert(command.end(), arguments, arguments + count);
    command.push_back(nullptr);
    execv(command[0], const_cast<char* const*>(command.data()));
    std::perror(command[0]);
    return 1;
}
