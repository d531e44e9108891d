#pragma once
// The steps of the process between its first instruction and its endless loop, and the only place that knows every
// meter family.

#include <string>
#include <vector>

class HCDBaseDriver;

extern std::vector<std::string> g_uuid_list;  ///< the meters of this process, in command-line order
extern HCDBaseDriver* g_driver;               ///< the driver of normal mode; null until made

/// What the command line asks for.
enum RunValue {
    INIT_FALSE = -2,     ///< no option seen
    INIT_HELP = -1,      ///< an unknown option
    INIT_NORMAL = 0,     ///< -r
    INIT_VERSION = 2,    ///< -v
    INIT_SINGLEBUS = 3,  ///< -j
};

/// The whole process behind main(): exit status, if it returns at all.
int run_process(int argc, char** argv);

/// Takes the uuids from the fourth word on, as getopt has left the words.
void parse_uuids(int argc, char** argv);
/// Makes the folders, links and first items of every uuid.
void init_directories();
/// Normal mode; never returns.
[[noreturn]] void run_init(const std::string& name);
/// Single-bus mode; never returns.
[[noreturn]] void run_singlebus();
void print_version();
[[noreturn]] void bad_syntax();
