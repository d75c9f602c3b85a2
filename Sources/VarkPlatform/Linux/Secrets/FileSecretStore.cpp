#include "VarkPlatform/Linux/Secrets/FileSecretStore.h"

#include <algorithm>
#include <vector>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Foundation/WriteProbe.h"
#include "VarkPlatform/Linux/Secrets/SecretOperation.h"

namespace vark {
namespace {

constexpr std::uint64_t largestFile = 1 << 20;

struct Secret {
    SecretName name;
    std::string label;
    std::string text;

    static Secret fromJSON(const boost::json::value& value) {
        const JSONFields fields(value);
        return {{fields.required<std::string>("service"), fields.required<std::string>("account")},
                fields.valueOr<std::string>("label", ""),
                fields.required<std::string>("secret")};
    }
};

using Ended = SecretOperation::Ended;

std::int32_t statusOfWriting(int errorNumber) {
    switch (errorNumber) {
        case EROFS:
        case EACCES:
        case EPERM:
            return SecretStatus::readOnly;
        case ENOSPC:
        case EDQUOT:
            return SecretStatus::full;
        default:
            return SecretStatus::failed;
    }
}

/// The content of the file, as long as one operation takes.
class Secrets {
  public:
    explicit Secrets(std::filesystem::path file) : file_(std::move(file)) {
        try {
            const boost::json::value document = parseJSON(readWholeFile(file_, largestFile));
            all_ = JSONFields(document).required<std::vector<Secret>>("secrets");
        } catch (const FileError& error) {
            if (error.errorNumber() != ENOENT) throw Ended{SecretStatus::failed};
        } catch (const DecodingError&) {
            throw Ended{SecretStatus::notText};
        }
    }

    Secret& named(const SecretName& name) {
        const auto found = std::ranges::find(all_, name, &Secret::name);
        if (found == all_.end()) throw Ended{SecretStatus::notFound};
        return *found;
    }
    void add(Secret secret) { all_.push_back(std::move(secret)); }
    void remove(const SecretName& name) {
        if (std::erase_if(all_, [&](const Secret& secret) { return secret.name == name; }) == 0)
            throw Ended{SecretStatus::notFound};
    }

    void save() const {
        try {
            std::filesystem::create_directories(file_.parent_path());
            if (all_.empty()) {
                std::filesystem::remove(file_);
            } else {
                writeAtomically(file_, toJSON(), 0600);
            }
        } catch (const std::filesystem::filesystem_error& error) {
            throw Ended{statusOfWriting(error.code().value())};
        } catch (const FileError& error) {
            throw Ended{statusOfWriting(error.errorNumber())};
        }
    }

  private:
    std::string toJSON() const {
        JSONWriter json;
        json.beginObject().key("secrets").beginArray();
        for (const Secret& secret : all_) {
            json.beginObject().field("service", secret.name.service).field("account", secret.name.account);
            json.field("label", secret.label).field("secret", secret.text).endObject();
        }
        json.endArray().endObject();
        return json.take();
    }

    std::filesystem::path file_;
    std::vector<Secret> all_;
};

}  // namespace

std::int32_t FileSecretStore::open() {
    const std::int32_t read = SecretOperation::statusOf([&] { Secrets{file_}; });
    if (read != SecretStatus::done && read != SecretStatus::notText) return read;
    try {
        proveWritable(file_.parent_path());
        return SecretStatus::done;
    } catch (const FileError& error) {
        return statusOfWriting(error.errorNumber());
    }
}

SecretStore::Answer FileSecretStore::find(const SecretName& name) {
    Answer answer;
    answer.status = SecretOperation::statusOf([&] { answer.bytes = Secrets(file_).named(name).text; });
    return answer;
}

std::int32_t FileSecretStore::update(const SecretName& name, std::string_view bytes) {
    if (!isUTF8(bytes)) return SecretStatus::notText;
    return SecretOperation::statusOf([&] {
        Secrets secrets(file_);
        secrets.named(name).text = bytes;
        secrets.save();
    });
}

std::int32_t FileSecretStore::add(const SecretName& name, std::string_view label, std::string_view bytes) {
    if (!isUTF8(bytes)) return SecretStatus::notText;
    return SecretOperation::statusOf([&] {
        Secrets secrets(file_);
        secrets.add({name, std::string(label), std::string(bytes)});
        secrets.save();
    });
}

std::int32_t FileSecretStore::remove(const SecretName& name) {
    return SecretOperation::statusOf([&] {
        Secrets secrets(file_);
        secrets.remove(name);
        secrets.save();
    });
}

std::optional<std::string> FileSecretStore::message(std::int32_t status) const {
    switch (status) {
        case SecretStatus::notText:
            return "The file of secrets " + file_.string() + " is damaged.";
        case SecretStatus::readOnly:
            return "The file of secrets " + file_.string() +
                   " cannot be written: nothing may be written in its folder.";
        case SecretStatus::full:
            return "The file of secrets " + file_.string() + " cannot be written: the disk is full.";
        case SecretStatus::failed:
            return "The file of secrets " + file_.string() + " could not be read or written.";
        default:
            return std::nullopt;
    }
}

}  // namespace vark
