#include "VarkProvider/VarkWriter.h"

#include <fmt/format.h>

#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Foundation/Names.h"
#include "VarkProvider/Patience.h"

namespace vark {

Task<VarkItem> VarkWriter::makeFolder(std::string named, VarkItem in) const {
    std::string path = co_await api.createFolder(in.child(named));
    co_return co_await api.item(std::move(path));
}

Task<VarkItem> VarkWriter::upload(std::filesystem::path file, std::string named, VarkItem in, bool replace,
                                  std::shared_ptr<Progress> progress) const {
    for (int attempt = 1;; ++attempt) {
        const std::string path = in.child(named);
        std::optional<VarkAPIError> taken;
        try {
            co_await uploader.send(file, path, replace, progress);
        } catch (const VarkAPIError& error) {
            if (!error.isNameTaken() || replace) throw;
            taken = error;
        }
        if (!taken) co_return co_await readBack(named, in, path);
        // It may be this very file, whose landing nobody here has heard of.
        std::optional<VarkItem> there = co_await readBackOrNil(named, in, path);
        if (there) {
            const bool isOurs = co_await isTheSameFile(*there, file);
            if (isOurs) co_return std::move(*there);
        }
        if (attempt == tries) throw *taken;
        named = Names::next(named);
    }
}

Task<VarkItem> VarkWriter::replaceContents(VarkItem of, std::filesystem::path with,
                                           std::shared_ptr<Progress> progress) const {
    co_await uploader.send(std::move(with), of.path, true, std::move(progress));
    co_return co_await api.item(of.id);
}

Task<VarkItem> VarkWriter::relocate(VarkItem item, std::optional<VarkItem> into,
                                    std::optional<std::string> named) const {
    std::string path = item.path;
    if (into && item.parent != into->id) path = co_await moved(item, *into);
    if (named && *named != item.name) co_await renamed(std::move(path), *named);
    co_return co_await api.item(item.id);
}

Task<void> VarkWriter::bin(VarkItem item) const {
    co_await api.bin(item.path);
}

Task<std::string> VarkWriter::moved(VarkItem item, VarkItem into) const {
    for (int attempt = 1;; ++attempt) {
        try {
            co_return co_await api.move(item.path, into.path);
        } catch (const VarkAPIError& error) {
            if (!error.isNameTaken() || attempt == tries) throw;
        }
        item.name = Names::next(item.name);
        item.path = co_await api.rename(item.path, item.name);
    }
}

Task<void> VarkWriter::renamed(std::string path, std::string to) const {
    for (int attempt = 1;; ++attempt) {
        try {
            co_await api.rename(path, to);
            co_return;
        } catch (const VarkAPIError& error) {
            if (!error.isNameTaken() || attempt == tries) throw;
        }
        to = Names::next(to);
    }
}

Task<VarkItem> VarkWriter::readBack(std::string name, VarkItem parent, std::string path) const {
    const ChildAnswer answer = co_await api.child(parent.id, name);
    if (answer.item() != nullptr) co_return *answer.item();
    if (answer.isNone()) throw VarkAPIError::server(404, fmt::format("{} is not in the vark.", name));
    co_return co_await api.item(std::move(path));
}

Task<std::optional<VarkItem>> VarkWriter::readBackOrNil(std::string name, VarkItem parent,
                                                        std::string path) const {
    try {
        co_return co_await Patience::run([&] { return readBack(name, parent, path); });
    } catch (const VarkAPIError& error) {
        if (!error.isGone()) throw;
    }
    co_return std::nullopt;
}

Task<bool> VarkWriter::isTheSameFile(VarkItem item, std::filesystem::path file) const {
    if (item.isDir || item.sha256.empty()) co_return false;
    try {
        const FileStamp stamp = co_await uploader.pool.run([file] { return stampOf(file); });
        if (stamp.size != item.size) co_return false;
        const FileHasher::Look look = co_await uploader.lookAt(std::move(file));
        co_return look.sha256 == item.sha256;
    } catch (const FileError&) {
        // Bytes that cannot be read are not said to be the vark's.
        co_return false;
    }
}

}  // namespace vark
