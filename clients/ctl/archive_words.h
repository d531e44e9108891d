#pragma once
// The words by which several commands ask for stored records.

#include "contract/archive_table.h"
#include "ctl/commands.h"

namespace ctl {

struct ArchiveWords {
    std::string place;
    bool hourly = false;
    bool daily = false;
    bool events = false;
    std::string from;
    std::string to;
    std::vector<std::string> names;
    bool staged = false;

    contract::ArchiveKind kind() const;
    contract::MeterSystem meter() const { return meter_system_of(place); }
    std::string folder() const;
    contract::ArchiveQuestion question(const Console& console) const;
};

/// METER, --from and --to.
void add_span_options(CLI::App& app, ArchiveWords& words);
/// --hourly, --daily, --staged; the option of the daily ones.
CLI::Option* add_kind_options(CLI::App& app, ArchiveWords& words);

/// Tells on standard error of lines that could not be read. A Failure when the files have changed meanwhile.
void tell_unreadable(const contract::ArchiveTable& table);

}  // namespace ctl
