#include "VarkCore/API/Messages/Jobs.h"

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

VarkJob VarkJob::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    VarkJob job;
    job.id = fields.required<std::int64_t>("id");
    job.ref = fields.valueOr<std::string>("ref", "");
    job.title = fields.valueOr<std::string>("title", "");
    job.client = fields.valueOr<std::string>("client", "");
    job.artist = fields.valueOr<std::string>("artist", "");
    job.date = fields.valueOr<std::string>("date", "");
    return job;
}

std::string VarkJob::line() const {
    std::string about = title;
    if (!title.empty() && !client.empty()) about += ", ";
    about += client;
    return about.empty() ? ref : ref + " · " + about;
}

}  // namespace vark
