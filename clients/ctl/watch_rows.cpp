#include "ctl/watch_rows.h"

#include <algorithm>

#include <fmt/format.h>

#include "contract/archive_table.h"
#include "contract/log_story.h"
#include "contract/logs.h"
#include "contract/moments.h"
#include "contract/plain_text.h"
#include "contract/site.h"

namespace ctl {

std::string fitted(const std::string& text, std::size_t width, bool right) {
    const std::string clean = contract::for_terminal(text);
    std::string cut(contract::within_columns(clean, width));
    const std::string blanks(width - contract::columns_of(cut), ' ');
    return right ? blanks + cut : cut + blanks;
}

Rows record_rows(const std::string& uuid, const contract::LiveSystem& system, contract::ArchiveKind kind, int width) {
    constexpr int RecordsShown = 500;
    constexpr std::size_t Time = 20;
    constexpr std::size_t Cell = 15;
    contract::ArchiveQuestion question;
    const auto newest_time = kind == contract::ArchiveKind::Hourly ? system.hourly : system.daily;
    const std::int64_t period = kind == contract::ArchiveKind::Hourly ? 3600 : 86400;
    if (newest_time) question.span.from = *newest_time - RecordsShown * period;
    question.by_record = true;
    contract::ArchiveTable table(contract::archive_folder(uuid, system.number), kind, question);
    const std::size_t room = (static_cast<std::size_t>(width) - std::min<std::size_t>(width, Time)) / Cell;
    Rows told{.heading = fitted("end of record", Time), .rows = {}};
    for (std::size_t i = 0; i < std::min(room, table.names().size()); ++i)
        told.heading += fitted(table.names()[i], Cell, true);
    while (table.next()) {
        std::string text = fitted(contract::plain_moment_text(table.time()), Time);
        for (std::size_t i = 0; i < std::min(room, table.cells().size()); ++i) {
            const contract::ArchiveCell& cell = table.cells()[i];
            text += fitted(cell.there ? std::string(cell.value) + (cell.quality == 192 ? "" : "!") : "", Cell, true);
        }
        told.rows.push_back(std::move(text));
    }
    if (told.rows.empty()) told.rows.push_back(fmt::format("no {} records yet", text_of(kind)));
    std::ranges::reverse(told.rows);
    return told;
}

Rows log_rows(const std::string& path) {
    const contract::Log log = contract::read_log(path);
    contract::LogStory story;
    std::vector<contract::StoryLine> told;
    for (const contract::LogLine& line : log.lines()) story.take(line, told);
    story.finish(told);
    Rows rows;
    for (auto line = told.rbegin(); line != told.rend(); ++line) rows.rows.push_back(std::move(line->text));
    if (rows.rows.empty()) rows.rows.emplace_back("there is no log of it");
    return rows;
}

}  // namespace ctl
