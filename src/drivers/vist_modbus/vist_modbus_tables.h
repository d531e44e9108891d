#pragma once
// What the VIST meter is asked over Modbus: register blocks by the headings of its register map, and its archive files.

#include <array>
#include <cstdint>

#include "drivers/vist_modbus/modbus_exchange.h"

/// Who understands a block.
enum class ModbusProcess {
    None,
    MainConfig,
    TcSpecs,
    ArchiveSetup,
    DateTime,
    Array16,
    Array32,
    ArchiveHeader,
    ArchiveRecord,
};

struct ModbusRequest {
    const char* name;                      ///< heading of the block
    ModbusRead read;                       ///< the kind of question
    std::uint16_t count;                   ///< registers; for a record its number, set on a copy of the row
    std::array<std::uint16_t, 3> address;  ///< first register for each heat system; the number of the file
    ModbusProcess process;
    char kind;            ///< tells the decoder of an array what it holds
    int record_size = 0;  ///< for a record, set on a copy of the row
};

/// How the meter is set up: holding registers.
extern const std::array<ModbusRequest, 3> reqSpecs;
/// Its present values: input registers. The decimal exponents stand before the values that need them.
extern const std::array<ModbusRequest, 11> reqValues;
extern const ModbusRequest reqArchiveHeaderFile;
extern const ModbusRequest reqArchiveRecordFile;
