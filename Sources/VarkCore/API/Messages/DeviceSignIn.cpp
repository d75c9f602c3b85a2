#include "VarkCore/API/Messages/DeviceSignIn.h"

#include "VarkCore/Errors/VarkAPIError.h"

namespace vark {
namespace {

/// All of a claim but its token. An older vark calls the client's name "client".
DeviceClaim claimOf(const JSONFields& fields, std::string token) {
    const std::optional<std::string> clientName = fields.optional<std::string>("client_name");
    const std::optional<std::string> client = fields.optional<std::string>("client");
    return DeviceClaim{std::move(token), clientName ? *clientName : client.value_or(""),
                       fields.valueOr<std::string>("email", "")};
}

}  // namespace

DeviceClaim DeviceClaim::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    return claimOf(fields, fields.required<std::string>("token"));
}

void DeviceClaim::encode(JSONWriter& json) const {
    json.beginObject();
    json.field("token", token).field("client_name", clientName).field("email", email);
    json.endObject();
}

DeviceBegin DeviceBegin::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    return DeviceBegin{fields.required<std::string>("nonce"), fields.required<std::string>("url"),
                       fields.required<double>("expires_in")};
}

DevicePoll DevicePoll::from(std::string_view body) {
    try {
        const boost::json::value value = parseJSON(body);
        const JSONFields fields(value);
        const std::string state = fields.required<std::string>("state");
        std::optional<std::string> token = fields.optional<std::string>("token");
        DeviceClaim claim = claimOf(fields, token.value_or(""));
        std::optional<std::string> deviceName = fields.optional<std::string>("device_name");
        if (state == "refused") return Refused{};
        if (state == "expired") return Expired{};
        if (state != "connected") return Pending{};
        if (!token) throw VarkAPIError::badResponse("connected without a token");
        return Connected{std::move(claim), std::move(deviceName)};
    } catch (const DecodingError&) {
        throw VarkAPIError::badResponse("device poll");
    }
}

}  // namespace vark
