#include "archive/archive_holder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "core/files.h"
#include "core/gateway.h"
#include "core/local_time.h"
#include "core/text.h"

namespace {

constexpr const char* StandardNames[] = {
    "Q",  "dQ", "T0", "T1",  "T2",  "Thv", "G0",  "G1",  "G2", "dG0", "dG1",  "dG2",  "P0",  "P1",   "P2",
    "V0", "V1", "V2", "dV0", "dV1", "dV2", "VT0", "VT1", "Tc", "dTc", "Tmin", "Tmax", "Tdt", "Toth",
};

constexpr const char* ShiftedNames[] = {
    "A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16", "A29", "A32", "A34", "A36", "A38", "A40", "A42", "A44",
};

constexpr std::size_t LineBytes = 200;
constexpr std::size_t DirectLineBytes = 256;
constexpr std::size_t CopyPathBytes = 128;
constexpr double TimerSeconds = 2580.0;

/// The line that `date` prints.
std::string date_line() {
    const std::tm tm = local_time(gateway().now());
    char text[80];
    const std::size_t length = std::strftime(text, sizeof(text), "%a %b %e %H:%M:%S %Z %Y\n", &tm);
    return {text, length};
}

}  // namespace

ArchiveHolder::ArchiveHolder() : default_file_count(default_files.size()), last_timer(gateway().now()) {
    // The meter is not known yet, so these files point nowhere; close_default_files is their only user.
    for (std::size_t i = 0; i < default_files.size(); ++i) {
        default_files[i] = std::make_unique<ArchiveFile>(uuid, "default", StandardNames[i]);
    }
}

void ArchiveHolder::add_value(const std::string& name, double value) {
    pending_double.emplace_back(name, value);
}
void ArchiveHolder::add_value(const std::string& name, float value) {
    add_value(name, static_cast<double>(value));
}
void ArchiveHolder::add_value(const std::string& name, int value) {
    pending_int.emplace_back(name, value);
}
void ArchiveHolder::add_value(const std::string& name, unsigned value) {
    pending_uint.emplace_back(name, value);
}

void ArchiveHolder::add_value_q(const std::string& name, float value, int quality) {
    pending_float_q.push_back({name, static_cast<double>(value), quality});
}

void ArchiveHolder::add_value_q(const std::string& name, double value, int quality) {
    pending_double_q.push_back({name, value, quality});
}

void ArchiveHolder::clear_values() {
    pending_double.clear();
    pending_int.clear();
    pending_uint.clear();
}

void ArchiveHolder::write_value(const std::tm& record_tm, const std::string& name, int quality, double value,
                                int subsystem, int to_tmp) const {
    ArchiveFile file(uuid, subsystem, name, to_tmp);
    file.open_append();
    std::tm tm = record_tm;
    file.append(archive_line(LineBytes, make_time(tm), quality, value));
    file.close();
}

void ArchiveHolder::flush_values(const std::tm& record_tm, int /*archive_type*/, int quality, int subsystem,
                                 int to_tmp) {
    for (const auto& [name, value] : pending_double) write_value(record_tm, name, quality, value, subsystem, to_tmp);
    for (const auto& [name, value] : pending_int) write_value(record_tm, name, quality, value, subsystem, to_tmp);
    for (const auto& [name, value] : pending_uint) write_value(record_tm, name, quality, value, subsystem, to_tmp);
    clear_values();
}

void ArchiveHolder::flush_values_q(const std::tm& record_tm, int /*archive_type*/, int subsystem, int to_tmp) {
    for (const auto& [name, value, quality] : pending_float_q) {
        write_value(record_tm, name, quality, value, subsystem, to_tmp);
    }
    for (const auto& [name, value, quality] : pending_double_q) {
        write_value(record_tm, name, quality, value, subsystem, to_tmp);
    }
    pending_float_q.clear();
    pending_double_q.clear();
}

bool ArchiveHolder::open_direct(const std::string& name, int subsystem, const std::string& directory) {
    close_direct();
    direct_file.emplace(archive_path(uuid, subsystem, directory, name), false);
    return direct_file->open_append();
}

int ArchiveHolder::write_direct(std::time_t time, int quality, double value) {
    const std::string line = archive_line(DirectLineBytes, time, quality, value);
    if (direct_file) direct_file->append(line);
    return static_cast<int>(line.size());
}

void ArchiveHolder::close_direct() {
    if (direct_file) direct_file->close();
    direct_file.reset();
}

void ArchiveHolder::close_default_files() {
    for (const auto& file : default_files) file->close();
}

std::time_t ArchiveHolder::last_record_time(const std::string& name, int subsystem, const std::string& directory) {
    return record_times.last_record_time(archive_path(uuid, subsystem, directory, name));
}

std::time_t ArchiveHolder::check_integrity(const std::string* names, int count, int subsystem, int to_tmp) {
    const std::string directory = to_tmp == 1 ? "tmp_archives" : "tc_archives";
    std::time_t first = 0;
    bool failed = false;
    for (int i = 0; i < count && !failed; ++i) {
        const std::time_t time = last_record_time(names[i], subsystem, directory);
        if (time == 0) continue;
        if (first == 0) first = time;
        failed = time != first;
    }
    if (!failed) return first;

    // A torn set goes whole, and the meter's archive is read again: completeness before history.
    for (int i = 0; i < count; ++i) {
        ArchiveFile file(uuid, subsystem, names[i], to_tmp);
        file.open_truncate();
        file.close();
    }
    append_file("/tmp/arch.integrity.fail." + std::to_string(subsystem), date_line());
    return 0;
}

void ArchiveHolder::copy_staged(int subsystem, const std::string& target_directory) const {
    const std::string staged = archive_path(uuid, subsystem, "tmp_archives", "");
    std::vector<std::string> names;
    if (gateway().list_folder(staged, names) != 0) {
        std::puts("Directory not open, error");
        std::exit(1);
    }
    std::puts("Directory open");
    for (const std::string& name : names) {
        copy_file(cut(staged + name, CopyPathBytes - 1),
                  cut(archive_path(uuid, subsystem, target_directory, name), CopyPathBytes - 1));
    }
}

bool ArchiveHolder::is_timer_due() {
    const std::time_t now = gateway().now();
    if (std::difftime(now, last_timer) <= TimerSeconds) return false;
    last_timer = now;
    return true;
}

bool ArchiveHolder::is_shifted_name(const std::string& name) {
    return std::find(std::begin(ShiftedNames), std::end(ShiftedNames), name) != std::end(ShiftedNames);
}
