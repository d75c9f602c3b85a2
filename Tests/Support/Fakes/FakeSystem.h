#pragma once

#include <map>

#include "VarkCore/Services/Bundle.h"
#include "VarkCore/Services/UserFolders.h"
#include "VarkCore/Services/Volumes.h"

namespace vark {

struct FakeBundle : Bundle {
    std::optional<std::string> id = "dev.vark.mac";
    std::map<std::string, std::string, std::less<>> info;

    std::optional<std::string> identifier() const override { return id; }
    std::optional<std::string> infoText(std::string_view key) const override {
        const auto found = info.find(key);
        return found == info.end() ? std::nullopt : std::optional(found->second);
    }
};

/// All folders lie in one.
struct FakeUserFolders : UserFolders {
    explicit FakeUserFolders(std::filesystem::path folder) : base(std::move(folder)) {}
    std::filesystem::path base;

    std::filesystem::path home() const override { return base; }
    std::optional<std::filesystem::path> applicationSupport() const override { return base / "Support"; }
    std::optional<std::filesystem::path> library() const override { return base / "State"; }
    std::optional<std::filesystem::path> downloads() const override { return base / "Downloads"; }
    std::optional<std::filesystem::path> groupContainer(std::string_view identifier) const override {
        return base / "Groups" / identifier;
    }
    std::optional<std::string> groupContainerTrouble(std::string_view) const override { return {}; }
};

/// A table; the volume of a path is the one with the longest path in front of it.
struct FakeVolumes : Volumes {
    std::vector<Volume> table;
    mutable std::function<void()> changed;
    /// Called by each walk, on its thread.
    std::function<void()> walked;
    /// Called at each look at the table, on the thread that looks.
    std::function<void()> asked;

    std::vector<Volume> volumes() const override {
        if (asked) asked();
        return table;
    }
    std::optional<std::string> volumeName(const std::filesystem::path& path) const override {
        if (walked) walked();
        if (asked) asked();
        const Volume* best = nullptr;
        for (const Volume& volume : table) {
            const bool holds = path == volume.path || path.native().starts_with(volume.path.native() + "/");
            if (holds && (best == nullptr || volume.path.native().size() > best->path.native().size()))
                best = &volume;
        }
        if (best == nullptr || best->isBoot) return std::nullopt;
        return best->name;
    }
    std::unique_ptr<VolumeWatch> watch(std::function<void()> call) const override {
        struct Watch final : VolumeWatch {
            explicit Watch(std::function<void()>& theCall) : call(theCall) {}
            ~Watch() override { call = nullptr; }
            std::function<void()>& call;
        };
        changed = std::move(call);
        return std::make_unique<Watch>(changed);
    }
};

}  // namespace vark
