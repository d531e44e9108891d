#pragma once
// Everything that differs between the firmware versions of the SA-94 family: one code path serves them all, and these
// tables tell it what to ask for and where a value stands. Source: the meter's protocol. Some versions have no row in
// some tables: such a meter is identified and named, and gives no current parameters or no archives.

#include <array>
#include <bit>
#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "drivers/sa94/sa94_archive.h"

/// One firmware version.
struct SA94Version {
    int id;
    std::string name;   ///< what the firmware text begins with
    std::string model;  ///< the item `MeterModel`
    bool extended;      ///< segments of 512 blocks and records of 64 bytes, else 128 and 32
};

constexpr float MWhToGcal = 0.859845F;
constexpr float MPaToTechnicalAtmospheres = 10.197162F;
static_assert(std::bit_cast<std::uint32_t>(MWhToGcal) == 0x3F5C1ECD);
static_assert(std::bit_cast<std::uint32_t>(MPaToTechnicalAtmospheres) == 0x41232793);

// Bits of the status byte.
constexpr unsigned BitOldT3 = 2;  ///< of firmware below FirstIdByStatus: a third temperature is measured
constexpr unsigned BitT3 = 4;     ///< the same, of the others; and `_SubsystemType`
constexpr unsigned BitSC = 16;
constexpr unsigned BitsVolumes = 64 | 4;        ///< both: the first two flows are volumes, not masses
constexpr unsigned BitsThirdMass = 32 | 8 | 2;  ///< any: the third one is a mass

/// From this firmware on the status tells what the flows are.
constexpr int FirstIdByStatus = 14;

/// What is done with a decoded number, in single precision.
enum SA94Operation : int { Multiply = 0, Divide = 1 };

float scaled(float value, float scale, int operation);

enum SA94ParameterKind : int { ParameterDate = 0, ParameterTime = 1, ParameterValue = 2 };

/// One current parameter of a meter.
struct SA94CurrentParameter {
    bool active;
    int kind;
    float scale;
    int operation;
    std::string name;   ///< the item
    std::uint8_t code;  ///< what the meter is asked for
};

struct SA94ParameterRow {
    int id;  ///< of the firmware
    std::array<SA94CurrentParameter, 16> entries;
};

enum SA94ColumnKind : int { ColumnDate = 0, ColumnHour = 1, ColumnFloat = 2, ColumnWord = 3, ColumnSkipped = 4 };

/// One column of a stored record. Its offset is the sum of the sizes before it.
struct SA94Column {
    const char* name;  ///< the archive item, or a word for renameArchiveItem
    bool active;
    float scale;
    int operation;
    int size;  ///< bytes
    int kind;
};

struct SA94Layout {
    int id;  ///< of the firmware
    std::span<const SA94Column> columns;
};

/// Archive items by number.
extern const std::map<int, std::string> ItemNames;
/// Searched from the top: longer names stand above the shorter ones that they begin with.
extern const std::array<SA94Version, 18> Versions;
/// Shared by all meters of the process; only the names change, by renameCurrentParameter.
extern std::array<SA94ParameterRow, 11> CurrentParameters;
extern const std::array<SA94Layout, 14> HourlyLayouts;
extern const std::array<SA94Layout, 14> DailyLayouts;
/// Greatest flow by DN code and Q code.
extern const std::array<std::array<float, 11>, 11> FlowLimits;

/// The third temperature, the one word that not every meter measures.
bool is_third_temperature(const std::string& name);

/// Gives a current parameter the name that it has at this status of the meter; an empty name is not published. The
/// change stays: what has been renamed once is not asked again, whatever the status says later.
void renameCurrentParameter(std::string& name, int firmware_id, std::uint8_t status);

/// The file that a value of a stored record goes to.
std::string renameArchiveItem(int archive_type, const std::string& name, int firmware_id, std::uint8_t status);

/// Pipe diameter, mm, by DN code.
int tube_diameter(int dn_code);

/// Greatest flow for a DN code and a Q code; -1.0 when the table has none.
float flow_limit(int dn_code, int q_code);
