#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "Tests/Support/TemporaryFolder.h"

// Runs the tests in the middle of a small office, which a script makes of network namespaces around them.

namespace {

constexpr int namespacesForbidden = 77;

bool onlyLists(int count, char** arguments) {
    for (int place = 1; place < count; ++place) {
        if (std::string_view(arguments[place]).starts_with("--gtest_list_tests")) return true;
    }
    return false;
}

int runInOffice(int count, char** arguments) {
    const vark::TemporaryFolder folder;
    std::vector<const char*> command = {VARK_OFFICE_NETWORK, folder.path().c_str()};
    command.insert(command.end(), arguments, arguments + count);
    command.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execv(command[0], const_cast<char* const*>(command.data()));
        std::perror(command[0]);
        _exit(1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 1;
    if (code == namespacesForbidden)
        std::fprintf(stderr, "*** NOT TESTED: the kernel gives no network namespaces here. ***\n");
    return code;
}

}  // namespace

int main(int count, char** arguments) {
    if (!onlyLists(count, arguments) && std::getenv("VARK_OFFICE") == nullptr)
        return runInOffice(count, arguments);
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
