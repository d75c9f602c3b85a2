#include "VarkCore/API/Messages/WhoAmI.h"

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {
namespace {

/// Figures that cannot be read are left out: they never fail the answer to who this device is.
void readSpace(const boost::json::value& value, WhoAmI& who) {
    try {
        const JSONFields fields(value);
        const auto used = fields.optional<std::int64_t>("used");
        const auto plan = fields.optional<std::int64_t>("plan");
        who.spaceUsed = used;
        who.spacePlan = plan;
    } catch (const DecodingError&) {
        return;
    }
}

}  // namespace

WhoAmI WhoAmI::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    WhoAmI who;
    who.email = fields.valueOr<std::string>("email", "");
    who.client = fields.valueOr<std::string>("client", "");
    who.level = fields.valueOr<std::int64_t>("level", 0);
    who.levelLabel = fields.valueOr<std::string>("level_label", "");
    who.deviceName = fields.valueOr<std::string>("device_name", "");
    who.jobNumbers = fields.valueOr("job_numbers", false);
    if (const boost::json::value* space = fields.find("space")) readSpace(*space, who);
    return who;
}

}  // namespace vark
