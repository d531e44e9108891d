#pragma once
// What a VIST meter says over Modbus, from the first data byte of an answer on, as values: plain functions; no line, no
// clock, no log. A byte behind the end of the data reads as 0, and data that make no sense are told as they are.

#include <array>
#include <cstdint>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "core/bytes.h"

/// Divides by 10.0 `times` times.
double scale_down(double value, unsigned times);

/// The meter's status word as the system's. The top byte differs from that of the text dialect: not the same table.
std::uint32_t convert_status(std::uint32_t word);

namespace vist_modbus {

constexpr int HeatSystems = 3;
template <typename Value>
using PerSystem = std::array<Value, HeatSystems>;

/// Items by their names.
using Values = std::vector<std::pair<std::string, double>>;

struct Tube {
    int DU;  ///< diameter
    int temper;
    int press;
};

/// The general setup.
struct MainConfig {
    std::string PO_ver;  ///< firmware
    std::string Name;
    std::string model;  ///< "VIST-TC" and the name without its first two bytes, whatever they are
    std::string Serial_num;
    int dev_serial;  ///< as a number
    int Systems_count;
    PerSystem<std::array<Tube, 3>> tubes;
};
MainConfig decode_main_config(Bytes data);

/// The setup of a heat system.
struct SystemSetup {
    std::string sub_name;
    std::uint32_t parameters;
    int fQ;
    std::array<int, 3> iG;  ///< from 0, as iT
    std::array<int, 4> iT;
    std::string formula;  ///< empty for a selector that has none
    bool is_weighted;
    std::array<int, 3> found_T;  ///< temperature sensors of each channel
    std::array<int, 3> found_P;  ///< pressure sensors
    Values limits;
    std::uint32_t errors;
    std::uint32_t status;  ///< errors as the system's word
    bool is_counting;
};
SystemSetup decode_tc_specs(Bytes data);

/// Four words, of decimal exponents or of anything.
using Words = std::array<std::uint16_t, 4>;
Words decode_words(Bytes data);
/// Temperatures or pressures; none of another kind. Always four: behind a block of three the fourth one is 0.
Values decode_array16(Bytes data, char kind);
/// Flows, or whole numbers of the current hour. `pointsGP`: decimal exponents of flow; `hasM`: of which masses flow.
Values decode_array32(Bytes data, char kind, const Words& pointsGP, const std::array<bool, 3>& hasM);

/// Which totals a heat system has.
struct ArchiveSetup {
    std::uint32_t spec_mask = 0;
    std::array<bool, 3> hasV{};
    std::array<bool, 3> hasM{};
    bool hasC = false;
    bool hasE = false;
};
ArchiveSetup decode_archive_specs(Bytes data, int system);

/// Record 0 of an archive file.
struct ArchiveHeader {
    std::uint32_t arch_mask = 0;  ///< presence of the record fields
    int arch_record_size = 1;     ///< that they make, in the meter's units
    std::uint16_t recs_count = 0;
    std::uint16_t next_rec_index = 0;  ///< one more than the meter says
    std::uint16_t max_records = 0;
    std::array<std::uint8_t, 4> arch_precision{};
    std::tm header_tm{};  ///< local time of the meter
    std::array<double, 3> V{};
    std::array<double, 3> M{};
    std::uint32_t C = 0;  ///< hundredths of an hour
    double E = 0.0;
};
ArchiveHeader decode_header(Bytes data);

struct ArchiveValue {
    enum class Form { Number, Whole, WithQuality };

    const char* file;
    double value;
    Form form = Form::Number;
    int quality = 192;
};

struct ArchiveRecord {
    std::uint8_t sum;  ///< of its bytes
    std::uint8_t crc;  ///< as it says itself
    std::vector<ArchiveValue> values;
};
/// A record of the file that the header begins. It carries no time of its own.
ArchiveRecord decode_record(Bytes data, const ArchiveHeader& header);

}  // namespace vist_modbus
