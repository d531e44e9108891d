#pragma once
// What the KM5 family's data knows about itself: which of an archive record's fourteen values a model fills, under
// which names values leave the driver, which archive files tell how far a meter has been read.

#include <array>
#include <cstddef>
#include <span>
#include <string>

/// What a meter has said of itself so far.
struct KM5_meter {
    int model = -1;
    float version = -1.0F;  ///< firmware
    bool isATT = false;     ///< never taken back
    bool km56i_mode = false;
};

/// One value position of an archive record.
struct KM5_param {
    int id;            ///< position in the record plus 1
    bool enabled;      ///< this model fills the position
    const char* name;  ///< driver name
    int integrating;   ///< 1: a running total, dated as the record; 0: an average, dated one period earlier
};

struct KM5_model_table {
    int model;  ///< 1..7
    std::array<KM5_param, 14> params;
};

extern const std::array<KM5_model_table, 7> KM5_PARAMS;

/// The table of a model; null for a model that has none.
const KM5_model_table* find_model_table(int model);

/// A driver name and the name under which it is known outside.
struct KM5_name {
    const char* driver_name;
    const char* opc_name;
};

extern const std::array<KM5_name, 34> opc_moment_names;  ///< current values to items
extern const std::array<KM5_name, 15> opc_hourly_names;  ///< hourly record values to archive files
extern const std::array<KM5_name, 15> opc_daily_names;   ///< daily record values to archive files

/// The outside name; a name that the map does not hold passes unchanged.
std::string opc_name(std::span<const KM5_name> names, const std::string& name);

extern const std::array<const char*, 8> hourly_integrals;  ///< files that tell how far hourly reading has come
extern const std::array<const char*, 5> daily_integrals;   ///< the same for daily reading
constexpr const char* EventArchive = "_A57";

/// The meter's model as published; "-1" for a combination that no meter has.
std::string model_name(const KM5_meter& meter);

/// The place of an archive type in a list of the five; that of the hourly one for any other value.
std::size_t archive_index(int type);

/// "Hourly", "Daily", ... of an archive type, for log lines; "Hourly" for any other value.
const char* archive_type_name(int type);

/// One value of a current-values answer.
struct KM5_page_value {
    int cmd;
    int page;
    double from_version;  ///< read only from this firmware on; 0 for all
    int position;         ///< in the answer; ConstantOne: no position, the value is 1.0
    const char* name;
    bool (*when)(int model, bool gvs);  ///< `gvs`: a model 1 on hot water
};

constexpr int ConstantOne = 0;

/// All values of all pages, page by page, in the order in which a later value replaces an earlier one.
std::span<const KM5_page_value> page_values();
