#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

/// How a file in the folder that our processes share is read and written. Functions only; any thread. Nothing
/// here fails: a file that is missing or makes no sense is no value, and so is a lock that cannot be had.
struct SharedFile {
    using Path = std::filesystem::path;

    static std::optional<std::string> bytes(const Path& path);

    /// What `decode` makes of the document in it.
    template <class Decode>
    static auto read(const Path& path, Decode decode)
        -> std::optional<std::invoke_result_t<Decode, const boost::json::value&>> {
        const std::optional<std::string> document = bytes(path);
        if (!document) return std::nullopt;
        try {
            return decode(parseJSON(*document));
        } catch (const DecodingError&) {
            return std::nullopt;
        }
    }

    /// An array of records; none when the file is missing or any part of it makes no sense.
    template <class Record>
    static std::vector<Record> records(const Path& path) {
        const auto decode = [](const boost::json::value& value) {
            if (!value.is_array()) throw DecodingError("not an array");
            std::vector<Record> records;
            records.reserve(value.get_array().size());
            for (const boost::json::value& element : value.get_array())
                records.push_back(Record::fromJSON(element));
            return records;
        };
        return read(path, decode).value_or(std::vector<Record>());
    }

    /// Whole or not at all, with mode 0600 from the first moment, and with the folder if need be.
    static bool write(const Path& path, std::string_view bytes, Durability durability);
    template <class Record>
    static bool writeRecords(const Path& path, const std::vector<Record>& records, Durability durability) {
        JSONWriter json;
        json.beginArray();
        for (const Record& record : records)
            record.encode(json);
        json.endArray();
        return write(path, json.text(), durability);
    }
    static void remove(const Path& path);
    /// Waits for the lock without a limit. Makes the folder if need be.
    static std::optional<FileLock> lock(const Path& path);
};

}  // namespace vark
