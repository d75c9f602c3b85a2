#pragma once

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Services/Limits.h"

// How the endpoints read what the vark answered.

namespace vark {

struct APIAnswer {
    int status = 0;
    std::string body;
};

/// Any other status is a failure.
inline void requireStatus(const APIAnswer& answer, std::initializer_list<int> accepted) {
    if (std::ranges::find(accepted, answer.status) == accepted.end())
        throw serverErrorFor(answer.status, answer.body);
}

inline bool isSuccess(int status) {
    return status >= 200 && status <= 299;
}

/// For reads whose answer is needed. `whatIsRead` stands in the failure.
template <class Record>
Record decoded(std::string_view body, std::string whatIsRead) {
    try {
        return Record::fromJSON(parseJSON(body));
    } catch (const DecodingError&) {
        throw VarkAPIError::badResponse(std::move(whatIsRead));
    }
}

/// For the answers to writes, where the status decides and the body is a bonus: nothing when the key is
/// absent or the body cannot be read.
template <class T>
std::optional<T> fieldOf(std::string_view body, std::string_view key) {
    try {
        const boost::json::value value = parseJSON(body);
        return JSONFields(value).optional<T>(key);
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

/// No honest list is longer than the limit, whatever was asked for. Fails with `DecodingError`, before any
/// element is read.
inline void refuseOverlong(const JSONFields& fields, std::string_view key) {
    const boost::json::value* value = fields.find(key);
    if (value == nullptr || !value->is_array() || value->get_array().size() <= limits::listElements) return;
    throw DecodingError(std::string(key) + " has too many elements");
}

/// An absent list is empty.
template <class T>
std::vector<T> optionalList(const JSONFields& fields, std::string_view key) {
    refuseOverlong(fields, key);
    return fields.valueOr(key, std::vector<T>());
}

template <class T>
std::vector<T> requiredList(const JSONFields& fields, std::string_view key) {
    refuseOverlong(fields, key);
    return fields.required<std::vector<T>>(key);
}

}  // namespace vark
