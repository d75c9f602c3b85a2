#include "VarkPlatform/Linux/AppBundle.h"

#include <plist/plist.h>

#include <cstdlib>
#include <memory>

#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

using Texts = std::map<std::string, std::string, std::less<>>;

constexpr std::size_t longestInfoList = 1 << 20;
/// Written by cmake/Bundle.cmake, and by nothing else: there are other build trees that a program may be put
/// into.
constexpr const char* buildTreeMarker = "vark-build-tree";

struct Free {
    void operator()(void* memory) const noexcept { std::free(memory); }
};
struct FreeList {
    void operator()(void* list) const noexcept { plist_free(list); }
};

Texts textsOfList(const std::string& bytes) {
    plist_t parsed = nullptr;
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &parsed);
    const std::unique_ptr<void, FreeList> list(parsed);
    if (!list || plist_get_node_type(list.get()) != PLIST_DICT) return {};

    Texts texts;
    plist_dict_iter position = nullptr;
    plist_dict_new_iter(list.get(), &position);
    const std::unique_ptr<void, Free> iterator(position);
    while (true) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(list.get(), position, &key, &value);
        const std::unique_ptr<char, Free> ownedKey(key);
        if (value == nullptr) return texts;
        if (plist_get_node_type(value) != PLIST_STRING) continue;
        char* text = nullptr;
        plist_get_string_val(value, &text);
        const std::unique_ptr<char, Free> ownedText(text);
        if (key != nullptr && text != nullptr) texts.emplace(key, text);
    }
}

bool isInBuildTree(const std::filesystem::path& executable) {
    for (std::filesystem::path folder = executable.parent_path();; folder = folder.parent_path()) {
        std::error_code unreadable;
        if (std::filesystem::exists(folder / buildTreeMarker, unreadable)) return true;
        if (!folder.has_relative_path()) return false;
    }
}

}  // namespace

AppBundle::AppBundle(const std::filesystem::path& executable) {
    const std::filesystem::path macOS = executable.parent_path();
    const std::filesystem::path contents = macOS.parent_path();
    if (macOS.filename() == "MacOS" && contents.filename() == "Contents" &&
        contents.parent_path().extension() == ".app") {
        try {
            texts_ = textsOfList(readWholeFile(contents / "Info.plist", longestInfoList));
        } catch (const FileError&) {
            // A bundle without its list says nothing about itself.
            return;
        }
        return;
    }
    if (isInBuildTree(executable))
        texts_ = {{"CFBundleIdentifier", "dev.vark.mac.dev"}, {"VARKAppGroup", "dev.vark.group.dev"}};
}

std::optional<std::string> AppBundle::infoText(std::string_view key) const {
    const auto found = texts_.find(key);
    if (found == texts_.end()) return std::nullopt;
    return found->second;
}

std::filesystem::path AppBundle::runningExecutable() {
    std::error_code unreadable;
    return std::filesystem::read_symlink("/proc/self/exe", unreadable);
}

}  // namespace vark
