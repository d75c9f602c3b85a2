#include "VarkCore/API/Messages/UploadAnswers.h"

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

UploadStatus UploadStatus::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    UploadStatus status;
    status.state = fields.required<std::string>("state");
    status.received = fields.optional<std::int64_t>("received");
    status.total = fields.optional<std::int64_t>("total");
    status.error = fields.optional<std::string>("error");
    if (status.error && status.error->empty()) status.error.reset();
    return status;
}

}  // namespace vark
