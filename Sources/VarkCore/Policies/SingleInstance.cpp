#include "VarkCore/Policies/SingleInstance.h"

#include <fmt/format.h>

#include <algorithm>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark {
namespace {

struct LocksOfThisProcess {
    Mutex lock;
    std::vector<FileLock> held VARK_GUARDED_BY(lock);
};

LocksOfThisProcess& locksOfThisProcess() {
    static LocksOfThisProcess locks;
    return locks;
}

}  // namespace

SingleInstance::Verdict SingleInstance::verdict(const Seen& seen) {
    if (seen.euid == 0) return StandAside{"Vark does not run as root; leaving this Mac's own copy alone"};
    const auto other = std::ranges::find_if(seen.others, [&](std::int32_t pid) { return pid != seen.mine; });
    if (other != seen.others.end())
        return StandAside{fmt::format("Vark is already running (process {})", *other)};
    if (!seen.lockTaken) return StandAside{"another copy of Vark holds the lock"};
    return CarryOn{};
}

SingleInstance::Lock SingleInstance::reachForLock(const std::filesystem::path& path) {
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    try {
        if (FileLock::isHeld(path)) return {};
        std::optional<FileLock> lock = FileLock::tryExclusive(path);
        const bool isTaken = lock.has_value();
        return {isTaken, std::move(lock)};
    } catch (const FileError&) {
        return {true, std::nullopt};
    }
}

bool SingleInstance::takeLock(const std::filesystem::path& path) {
    Lock lock = reachForLock(path);
    if (lock.held) {
        LocksOfThisProcess& locks = locksOfThisProcess();
        Locked guard(locks.lock);
        locks.held.push_back(std::move(*lock.held));
    }
    return lock.isTaken;
}

}  // namespace vark
