#pragma once
// The bench of the decoders: blocks as the meter gives them, and short words for what waits to be published.

#include <string>

#include "support/modbus_scene.h"

class ModbusDecoding : public ModbusBench {
  protected:
    using ModbusBench::ModbusBench;

    void SetUp() override {
        start_driver();
        clear_log();
    }

    /// The general setup: 99 registers.
    static ModbusBlock main_config() {
        ModbusBlock block(198);
        return block.text(4, "V2.10").text(25, "ABC-5").text(46, "40123").n(197, 3, 1);
    }
    /// The setup of a heat system: 76 registers.
    static ModbusBlock heat_system() {
        ModbusBlock block(152);
        return block.text(0, "TS1").n(19, 1, 2).n(52, 1, 2);
    }
    void decode_config(const ModbusBlock& block, int system = 0) {
        driver->selected_subsystem = system;
        driver->process_main_config(block, reqSpecs[0]);
    }
    void decode_system(const ModbusBlock& block, int system = 0) {
        driver->selected_subsystem = system;
        driver->process_tc_specs(block, reqSpecs[1]);
    }
    void decode16(char kind, const ModbusBlock& block) { driver->process_array16(block, row_of(kind)); }
    void decode32(char kind, const ModbusBlock& block) { driver->process_array32(block, row_of(kind)); }

    static ModbusRequest row_of(char kind) { return {"row", read_input, 4, {0, 0, 0}, nullptr, kind}; }

    /// What waits for "%f", as "T1 23.450000".
    Texts waiting() const {
        Texts all;
        for (const auto& [name, value] : driver->pending_values) all.push_back(name + " " + std::to_string(value));
        return all;
    }
    /// What waits for "%ld", as "SC 1".
    Texts waiting_longs() const {
        Texts all;
        for (const auto& [name, value] : driver->pending_longs) all.push_back(name + " " + std::to_string(value));
        return all;
    }
};
