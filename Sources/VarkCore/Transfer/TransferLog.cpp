#include "VarkCore/Transfer/TransferLog.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdio>

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"

namespace vark {
namespace {

int secondOfMinute(Date date) {
    const double since1970 = std::floor(date.since1970());
    return static_cast<int>(since1970 - std::floor(since1970 / 60) * 60);
}

}  // namespace

TransferLog::TransferLog(std::filesystem::path url, std::int64_t maxBytes, WallClock now, Calendar calendar)
    : url_(std::move(url)), maxBytes_(maxBytes), now_(std::move(now)), calendar_(std::move(calendar)) {}

std::filesystem::path TransferLog::defaultURL(const Locations& locations) {
    return locations.transferLog();
}

std::string TransferLog::line(std::string_view message) const {
    const Date now = now_();
    // One bad byte would make the whole file unreadable as text.
    return fmt::format("{}:{:02}  {}\n", Format::date(now, calendar_), secondOfMinute(now),
                       repairedUTF8(message));
}

void TransferLog::rollIfTooLarge() {
    struct stat values{};
    if (stat(url_.c_str(), &values) != 0 || values.st_size <= maxBytes_) return;
    std::filesystem::path previous = url_;
    previous.replace_extension("previous.log");
    rename(url_.c_str(), previous.c_str());
}

void TransferLog::write(std::string_view message) {
    const std::string text = line(message);
    const Locked locked(lock_);
    rollIfTooLarge();
    appendInOneWrite(url_, text);
}

std::string TransferLog::tail(std::size_t count) const {
    std::string text;
    {
        const Locked locked(lock_);
        try {
            text = readWholeFile(url_);
        } catch (const FileError&) {
            return {};
        }
    }
    if (count == 0 || !isUTF8(text)) return {};
    std::size_t start = std::string::npos;
    for (std::size_t piece = 0; piece < count; ++piece) {
        if (start == 0) return text;
        start = text.rfind('\n', start == std::string::npos ? start : start - 1);
        if (start == std::string::npos) return text;
    }
    return text.substr(start + 1);
}

}  // namespace vark
