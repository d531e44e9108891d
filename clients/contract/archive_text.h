#pragma once
// Records as programs read them: CSV and JSON, a piece after the other, however many there are.

#include <string>

#include "contract/archive_table.h"
#include "contract/moments.h"
#include "contract/site.h"

namespace contract {

class ArchiveText {
  public:
    enum class Form {
        Csv,   ///< "time,A1,A2", a row a time
        Long,  ///< "time,name,quality,value", a row a value
        Json,  ///< {"meter","system","kind","names":[...],"rows":[[epoch, value or null, ...], ...]}
    };
    struct Shape {
        Form form = Form::Csv;
        MeterSystem meter;
        ArchiveKind kind = ArchiveKind::Hourly;
        bool quality = false;  ///< of CSV: a column NAME.q behind each name
        bool epoch = false;    ///< of CSV: times as seconds since 1970
    };

    /// The table outlives this.
    ArchiveText(ArchiveTable& table, Shape shape);

    /// Appends the next piece: the head, a row, the end. False when there is no more.
    bool next(std::string& text);

  private:
    void head(std::string& text) const;
    void row(std::string& text);
    std::string_view time_text(std::int64_t moment);

    enum class Step { Head, Rows, Over };

    ArchiveTable& table;
    Shape shape;
    Step step = Step::Head;
    bool first = true;
    MomentTexts moments;
    std::string seconds;
};

/// A value of an archive file as JSON has it: null for what is no number there, no zeros in front.
void append_json_number(std::string_view value, std::string& text);
/// The head of the JSON form, up to the rows: {...,"rows":[
std::string json_head(const ArchiveText::Shape& shape, const std::vector<std::string>& names);

}  // namespace contract
