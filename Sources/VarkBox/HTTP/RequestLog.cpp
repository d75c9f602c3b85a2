#include "VarkBox/HTTP/RequestLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <boost/json/serialize.hpp>
#include <cerrno>
#include <cstdio>

#include "VarkCore/Foundation/Time/Date.h"

namespace vark::box {

RequestLog::RequestLog(const std::filesystem::path& path)
    : file_(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {
    if (!file_) throw FileError("Could not open", path, errno);
}

void RequestLog::append(const RequestRecord& record) noexcept {
    try {
        boost::json::object line;
        line["time"] = systemDate().since1970();
        line["listener"] = nameOf(record.listener);
        line["method"] = record.method;
        line["target"] = record.target;
        line["status"] = record.status;
        line["body_bytes"] = record.bodyBytes;
        line["token"] = record.hadToken;
        line["via"] = record.via;
        line["user_agent"] = record.userAgent;
        line["node"] = record.node;
        std::string text = boost::json::serialize(line) + "\n";
        if (::write(file_.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
            std::perror("vark-box: could not write to the request log");
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "vark-box: could not write to the request log: %s\n", failure.what());
    }
}

}  // namespace vark::box
