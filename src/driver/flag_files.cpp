#include "driver/flag_files.h"

#include "core/file.h"
#include "core/files.h"
#include "core/gateway.h"

namespace {

constexpr const char* PauseFile = "/tmp/extds_pause";

std::string flag_path(const std::string& uuid, int kind) {
    const char* const prefix = kind == FlagFiles::DriverLock   ? "DRV_LCK_"
                               : kind == FlagFiles::ReportLock ? "RPRT_LCK_"
                                                               : "";
    return std::string("/tmp/") + prefix + uuid;
}

}  // namespace

FlagFiles& FlagFiles::instance() {
    static FlagFiles files;
    return files;
}

bool FlagFiles::is_set(const std::string& uuid, int kind) const {
    return exists(flag_path(uuid, kind));
}

void FlagFiles::set(const std::string& uuid, int kind) const {
    const File made(flag_path(uuid, kind), O_RDWR | O_CREAT, 0644);
}

void FlagFiles::clear(const std::string& uuid, int kind) const {
    remove_file(flag_path(uuid, kind));
}

void extds_pause(int mode, const char* seconds_text) {
    if (mode == 1) remove_file(PauseFile);
    if (mode == 0) overwrite_file(PauseFile, seconds_text);
}

void regulate_extds(bool all_ok, const char* seconds_text) {
    const std::time_t hour_mod3 = gateway().now() / 3600 % 3;
    if (hour_mod3 == 0 && !all_ok) {
        extds_pause(0, seconds_text);
    } else if (all_ok) {
        extds_pause(1, "1800");
    }
}
