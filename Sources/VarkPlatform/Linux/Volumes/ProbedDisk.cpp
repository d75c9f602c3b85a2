#include "VarkPlatform/Linux/Volumes/ProbedDisk.h"

#include <blkid/blkid.h>

#include <memory>

namespace vark {
namespace {

struct EndProbe {
    void operator()(blkid_struct_probe* probe) const { blkid_free_probe(probe); }
};

std::optional<std::string> valueOf(blkid_probe probe, const char* name) {
    const char* value = nullptr;
    if (blkid_probe_lookup_value(probe, name, &value, nullptr) != 0) return std::nullopt;
    return value;
}

}  // namespace

ProbedDisk ProbedDisk::at(const std::filesystem::path& device) {
    if (!device.is_absolute()) return {};
    const std::unique_ptr<blkid_struct_probe, EndProbe> probe(blkid_new_probe_from_filename(device.c_str()));
    if (!probe || blkid_do_safeprobe(probe.get()) != 0) return {};
    return {valueOf(probe.get(), "LABEL"), valueOf(probe.get(), "UUID")};
}

}  // namespace vark
