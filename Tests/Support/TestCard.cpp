#include "Tests/Support/TestCard.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <stdexcept>

#include "Tests/Support/Process.h"

namespace vark::test {

namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t sizeOfDisk = 64 << 20;

bool run(const char* program, std::vector<std::string> arguments, const fs::path& folder) {
    if (!fs::exists(program)) return false;
    Process::Options options;
    options.program = program;
    options.arguments = std::move(arguments);
    options.environment = {{"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"}};
    options.output = folder / "tool.out";
    options.errors = folder / "tool.err";
    Process process(options);
    return process.wait() == Exit{0, std::nullopt};
}

void write(const char* path, const std::string& text) {
    std::ofstream(path) << text;
}

/// Once for the whole process: a namespace whose mounts nobody else sees, with an empty /media. Without root
/// it takes a user namespace as well.
bool enterNamespace() {
    static const bool isIn = [] {
        const uid_t user = geteuid();
        const gid_t group = getegid();
        if (user != 0) {
            if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
            write("/proc/self/setgroups", "deny");
            write("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
            write("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
        } else if (unshare(CLONE_NEWNS) != 0) {
            return false;
        }
        return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 && fs::exists("/media") &&
               mount("tmpfs", "/media", "tmpfs", 0, nullptr) == 0;
    }();
    return isIn;
}

}  // namespace

std::unique_ptr<TestCard> TestCard::make(const std::string& name) {
    if (!enterNamespace()) return nullptr;
    std::unique_ptr<TestCard> card(new TestCard(name));
    fs::create_directories(card->path());
    card->isDisk_ = card->makeDisk();
    if (!card->isDisk_ && !card->makeMemory()) return nullptr;
    card->plug();
    return card;
}

TestCard::~TestCard() {
    if (isPlugged_) pull();
    if (!isDisk_) umount2((folder_ / "memory").c_str(), MNT_DETACH);
}

bool TestCard::makeDisk() {
    const fs::path image = folder_ / "disk";
    std::ofstream(image).close();
    fs::resize_file(image, sizeOfDisk);
    if (!run("/usr/sbin/mkfs.ext4", {"-q", "-O", "^has_journal", "-L", name_, image}, folder_.path()))
        return false;
    if (!mountDisk()) return false;
    // What the tool made for itself is not what cameras make.
    fs::remove_all(path() / "lost+found");
    pull();
    return true;
}

bool TestCard::makeMemory() {
    fs::create_directories(folder_ / "memory");
    return mount("tmpfs", (folder_ / "memory").c_str(), "tmpfs", 0, nullptr) == 0;
}

bool TestCard::mountDisk() {
    return run("/usr/bin/mount", {"-o", "loop", folder_ / "disk", path()}, folder_.path());
}

bool TestCard::mountMemory() {
    return mount((folder_ / "memory").c_str(), path().c_str(), nullptr, MS_BIND, nullptr) == 0;
}

void TestCard::plug() {
    if (!(isDisk_ ? mountDisk() : mountMemory()))
        throw std::runtime_error("The card could not be plugged in.");
    isPlugged_ = true;
}

void TestCard::pull() {
    umount2(path().c_str(), MNT_DETACH);
    isPlugged_ = false;
}

}  // namespace vark::test
