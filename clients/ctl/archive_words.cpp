#include "ctl/archive_words.h"

#include <fmt/format.h>

#include "contract/site.h"

namespace ctl {

contract::ArchiveKind ArchiveWords::kind() const {
    if (events) return contract::ArchiveKind::Events;
    return daily ? contract::ArchiveKind::Daily : contract::ArchiveKind::Hourly;
}

std::string ArchiveWords::folder() const {
    const contract::MeterSystem of = meter();
    return contract::archive_folder(of.uuid, of.system, staged);
}

contract::ArchiveQuestion ArchiveWords::question(const Console& console) const {
    contract::ArchiveQuestion question;
    if (!from.empty()) question.span.from = moment_of(from, console);
    if (!to.empty()) question.span.to = moment_of(to, console);
    question.names = names;
    for (const std::string& name : names) {
        if (!contract::is_meter_name(name)) throw Failure{"no name of an archive: \"" + name + '"', Usage};
    }
    return question;
}

void add_span_options(CLI::App& app, ArchiveWords& words) {
    app.add_option("METER", words.place, "uuid, or uuid/system")->required();
    app.add_option("--from", words.from, "records from this time on")->type_name("TIME");
    app.add_option("--to", words.to, "records before this time")->type_name("TIME");
}

CLI::Option* add_kind_options(CLI::App& app, ArchiveWords& words) {
    CLI::Option* const hourly = app.add_flag("--hourly", words.hourly, "hourly records, as without a kind");
    app.add_flag("--staged", words.staged, "the working folder of a driver that hands over whole passes");
    return app.add_flag("--daily", words.daily, "daily records")->excludes(hourly);
}

void tell_unreadable(const contract::ArchiveTable& table) {
    if (table.unreadable() != 0) {
        std::fputs(fmt::format("heatmeterctl: {} lines could not be read; `heatmeterctl gaps` tells more\n",
                               table.unreadable())
                       .c_str(),
                   stderr);
    }
    if (table.has_changed()) throw Failure{"a file was emptied or replaced while it was read: ask again"};
}

}  // namespace ctl
