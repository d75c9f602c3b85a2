#include <utility>

#include "VarkCore/API/HTTPVarkAPI.h"

// How a device gets its token. None of these calls carries one.

namespace vark {

Task<DeviceClaim> HTTPVarkAPI::claim(std::string code, std::string deviceName) {
    JSONWriter json;
    json.beginObject().field("code", code).field("device_name", deviceName).endObject();
    const APIAnswer answer = co_await send("POST", "/api/device/claim", json.take(), Auth::none);
    requireStatus(answer, {200});
    co_return decoded<DeviceClaim>(answer.body, "claim did not return a token");
}

Task<DeviceBegin> HTTPVarkAPI::beginDeviceSignIn(std::string deviceName) {
    JSONWriter json;
    json.beginObject().field("device_name", deviceName).endObject();
    const APIAnswer answer = co_await send("POST", "/api/device/begin", json.take(), Auth::none);
    requireStatus(answer, {200, 201});
    co_return decoded<DeviceBegin>(answer.body, "device begin did not return a nonce and a url");
}

Task<DevicePoll> HTTPVarkAPI::pollDeviceSignIn(std::string nonce) {
    APIAnswer answer;
    try {
        answer =
            co_await send("GET", "/api/device/poll/" + percentEncodedPath(nonce), std::nullopt, Auth::none);
    } catch (const VarkAPIError& error) {
        // A network that fails once does not end the sign-in.
        if (!std::holds_alternative<VarkAPIError::Transport>(error.which())) throw;
        co_return DevicePoll::Unreachable{};
    }
    if (answer.status == 429) co_return DevicePoll::SlowDown{};
    if (answer.status == 404 || answer.status == 410) co_return DevicePoll::Expired{};
    requireStatus(answer, {200});
    co_return DevicePoll::from(answer.body);
}

}  // namespace vark
