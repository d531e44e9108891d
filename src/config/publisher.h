#pragma once
// The present state of a meter for other programs of the gateway: one small file for each item, rewritten whenever the
// driver has a new value, and the one-line state file of a driver. What is in the directory is the state.

#include <cstdint>
#include <string>

class UniLog;

/// Writes the value as text and a line end into "/tmp/<uuid>/<subsystem>/tc_items/<item>". Item files are as a shell's
/// `echo "<value>" > <file>` of at most 149 characters would leave them: where that is too short for the item's name,
/// the name is shortened, and where it is too short for anything of it, nothing is written. `log` is not used.
/// Always 1.
int put_item(int value, const std::string& uuid, const std::string& item, UniLog* log, int subsystem);
int put_item(long value, const std::string& uuid, const std::string& item, UniLog* log, int subsystem);
int put_item(unsigned long long value, const std::string& uuid, const std::string& item, UniLog* log, int subsystem);
int put_item(double value, const std::string& uuid, const std::string& item, UniLog* log, int subsystem);
int put_item(const std::string& value, const std::string& uuid, const std::string& item, UniLog* log, int subsystem);
int put_item(const char* value, const std::string& uuid, const std::string& item, UniLog* log, int subsystem);

/// The item `Connected` of all six subsystems: 1 when the last exchange with the meter worked, 0 otherwise.
void setConnected(bool flag, const std::string& uuid);

/// What a driver is doing now: the one line of "/tmp/driver.<name>.state".
void driver_state(const std::string& name, const std::string& text);

/// One value to the configuration service by JSON-RPC "put_current_value", the twin of put_item. A failure is told on
/// standard error; the answer is not looked at.
void put_current_value(const std::string& name, double value, int a, int b);

/// Stages of a driver's pass, the values of the item `_DriverStatus`.
enum DriverStatus {
    StatusIterationBegun = 0,
    StatusDescription = 1,
    StatusCurrentValues = 2,
    StatusHourlyArchive = 3,
    StatusDailyArchive = 4,
    StatusErrorArchive = 5,
    StatusIterationOver = 6,
};
