#pragma once
// All commands, each in a file of its own.

#include "contract/site.h"
#include "ctl/console.h"

namespace ctl {

Command list_command(CLI::App& app, Console& console);
Command values_command(CLI::App& app, Console& console);
Command archive_command(CLI::App& app, Console& console);
Command gaps_command(CLI::App& app, Console& console);
Command events_command(CLI::App& app, Console& console);
Command plot_command(CLI::App& app, Console& console);
Command export_command(CLI::App& app, Console& console);
Command watch_command(CLI::App& app, Console& console);
Command decode_command(CLI::App& app, Console& console);
Command probe_command(CLI::App& app, Console& console);
Command pause_command(CLI::App& app, Console& console);
Command resume_command(CLI::App& app, Console& console);
Command poll_command(CLI::App& app, Console& console);
Command status_command(CLI::App& app, Console& console);
Command check_command(CLI::App& app, Console& console);
Command log_command(CLI::App& app, Console& console);

// Words of the command line that say which meter, which system, which time; a Failure for others.
contract::MeterSystem meter_system_of(const std::string& text);
std::int64_t moment_of(const std::string& text, const Console& console);

}  // namespace ctl
