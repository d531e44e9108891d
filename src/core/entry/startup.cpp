#include "core/entry/startup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "config/publisher.h"
#include "core/files.h"
#include "core/gateway.h"
#include "core/text.h"
#include "core/uni_log.h"
#include "driver/flag_files.h"
#include "driver/hcd_base_driver.h"
#include "driver/leds.h"
#include "driver/single_bus.h"
#include "drivers/km5/km5_base.h"
#include "drivers/sa94/sa94.h"
#include "drivers/vist/vist_base.h"
#include "drivers/vist_modbus/vistmodbus_base.h"

std::vector<std::string> g_uuid_list;
HCDBaseDriver* g_driver = nullptr;

namespace {

constexpr std::size_t PathBytes = 256;  // of a path, and of the command that would make it
constexpr unsigned IterationPauseSeconds = 5;
constexpr int FirstUuidWord = 3;
constexpr int Subsystems = 6;

/// A meter type of normal mode.
struct MeterType {
    const char* name;
    const char* log_text;
    HCDBaseDriver* (*make)();
};

template <bool Km56i, bool Att>
HCDBaseDriver* make_km5() {
    return new KM5_base(g_uuid_list, Km56i, Att);
}

HCDBaseDriver* make_vist() {
    return new VIST_base(g_uuid_list);
}

HCDBaseDriver* make_vist_modbus() {
    return new VISTmodbus_base(g_uuid_list);
}

HCDBaseDriver* new_sa94(const std::string& uuid) {
    return new SA94(uuid);
}

/// The only family without a parent: it serves the first uuid.
HCDBaseDriver* make_sa94() {
    std::printf("g_uuid_list.size() = %d\n", static_cast<int>(g_uuid_list.size()));
    std::printf("g_uuid_list[0].c_str() = %s\n", g_uuid_list[0].c_str());
    return new_sa94(g_uuid_list[0]);
}

constexpr MeterType MeterTypes[] = {
    {"SA94", "Create SA94", make_sa94},
    {"VIST", "Create VIST", make_vist},
    {"KM56i", "Create KM5-6i", make_km5<true, false>},
    {"KM5", "Create KM5", make_km5<false, false>},
    {"ATT", "Create ATT (really KM5)", make_km5<false, true>},
    {"VISTmodbus", "Create VIST modbus", make_vist_modbus},
};

/// Single-bus mode: the driver of one meter by its manufacturer, in the order of comparison.
std::unique_ptr<HCDBaseDriver> make_bus_driver(const std::string& manufacturer, const std::string& uuid) {
    if (manufacturer == "km-5-6i") return std::make_unique<KM5>(uuid, true, false);
    if (manufacturer.starts_with("km-5")) return std::make_unique<KM5>(uuid, false, false);
    if (manufacturer == "vis-t-modbus") return std::make_unique<HCD_VISTmodbus>(uuid);
    if (manufacturer == "vis-t") return std::make_unique<HCD_VIST>(uuid);
    if (manufacturer == "sa-94-2m") return std::unique_ptr<HCDBaseDriver>(new_sa94(uuid));
    return nullptr;
}

void make_tree(const std::string& uuid, int n) {
    const std::string number = "/" + std::to_string(n);
    for (const std::string& folder : {
             "/mnt/storage/" + uuid + number + "/tc_archives",
             "/mnt/storage/" + uuid + number + "/tmp_archives",
             "/mnt/storage/" + uuid + number + "/tc_tmp_archives",
             "/tmp/" + uuid + number + "/tc_items",
         }) {
        const std::string path = cut(folder, PathBytes - 1);
        if (!is_directory(path)) make_directories(operand_in_command(PathBytes, "mkdir -p ", path));
    }
}

/// `<top>/<uuid>/default`, a link to the uuid's first subsystem.
void make_default_link(const std::string& top, const std::string& uuid) {
    const std::string link = top + "/" + uuid + "/default";
    if (is_directory(cut(link, PathBytes - 1))) return;
    const std::string target = top + "/" + uuid + "/1";
    make_link(target, operand_in_command(PathBytes, "ln -s " + target + " ", link));
}

/// Tells of the first folder of a uuid below /tmp that belongs to neither this process's user nor root: its owner can
/// change what is published there, or lead it elsewhere.
void tell_foreign_tree(const std::string& uuid) {
    const std::string top = "/tmp/" + uuid;
    std::vector<std::string> paths{top};
    for (int n = 1; n <= Subsystems; ++n) {
        paths.push_back(top + "/" + std::to_string(n));
        paths.push_back(paths.back() + "/tc_items");
    }
    for (const std::string& path : paths) {
        struct stat status {};
        if (gateway().look_at_name(path, status) != 0 || status.st_uid == 0 || status.st_uid == ::geteuid()) continue;
        log_line(g_log, path, " belongs to another user: ", unsigned{status.st_uid});
        return;
    }
}

/// A later open must never get the number of a standard stream, or prints would go into a log file or onto the line.
void keep_standard_streams() {
    while (true) {
        const int fd = ::open("/dev/null", O_RDWR);
        if (fd > STDERR_FILENO) ::close(fd);
        if (fd < 0 || fd > STDERR_FILENO) break;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::setvbuf(stderr, nullptr, _IOLBF, BUFSIZ);
    std::signal(SIGPIPE, SIG_IGN);  // a closed output ends nothing
}

/// Reads the options; the heat meter name is whatever the second word is when -r is met.
int scan_options(int argc, char** argv, std::string& name) {
    int run = INIT_FALSE;
    opterr = 0;
    for (int option = 0; (option = ::getopt(argc, argv, "rvij")) != -1;) {
        switch (option) {
            case 'r':
                run = INIT_NORMAL;
                name = argv[1];
                log_line(g_log, "Heat meter name = ", name);
                break;
            case 'v':
                run = INIT_VERSION;
                break;
            case 'j':
                run = INIT_SINGLEBUS;
                break;
            case 'i':
                break;
            default:
                run = INIT_HELP;
                break;
        }
    }
    return run;
}

void log_run_values(int run) {
    log_line(g_log, "Run = ", run);
    for (const char* text : {"#define INIT_FALSE: -2", "#define INIT_HELP: -1", "#define INIT_NORMAL: 0",
                             "#define INIT_VERSION: 2", "#define INIT_SINGLEBUS: 3"}) {
        *g_log << text << LOG_END;
    }
}

[[noreturn]] void give_up(const char* log_text) {
    log_line(g_log, log_text);
    std::exit(0);
}

}  // namespace

int run_process(int argc, char** argv) {
    keep_standard_streams();
    leds_off();
    g_log = new UniLog(UniLog::ToFile, "/tmp/uni_logs.general.txt", "");
    std::string name = "none";
    const int run = scan_options(argc, argv, name);

    log_run_values(run);
    log_line(g_log, "Parse uuid...");
    parse_uuids(argc, argv);
    log_line(g_log, "Parse uuid success");
    log_line(g_log, "Init directories...");
    init_directories();
    log_line(g_log, "Init directories success");

    switch (run) {
        case INIT_NORMAL:
            run_init(name);
        case INIT_SINGLEBUS:
            run_singlebus();
        case INIT_VERSION:
            print_version();
            return 0;
        default:
            bad_syntax();
    }
}

void parse_uuids(int argc, char** argv) {
    for (int i = FirstUuidWord; i < argc; ++i) {
        g_uuid_list.emplace_back(argv[i]);
        log_line(g_log, "Add uuid: ", g_uuid_list.back());
    }
}

void init_directories() {
    for (const std::string& uuid : g_uuid_list) {
        tell_foreign_tree(uuid);
        for (int n = 1; n <= Subsystems; ++n) make_tree(uuid, n);
        make_default_link("/mnt/storage", uuid);
        make_default_link("/tmp", uuid);
        setConnected(false, uuid);
        FlagFiles::instance().clear(uuid, FlagFiles::DriverLock);
    }
}

void run_init(const std::string& name) {
    log_line(g_log, "Run init... ");
    for (const MeterType& type : MeterTypes) {
        if (name != type.name) continue;
        log_line(g_log, type.log_text);
        if (g_uuid_list.empty()) give_up("No uuid on the command line. Exit.");
        g_driver = type.make();
    }
    if (g_driver == nullptr) {
        std::puts("ups..");
        give_up("Heat meter not definded. Exit.");
    }

    log_line(g_log, "Read configs from rpc");
    read_driver_config(*g_driver);
    log_line(g_log, "Open tty");
    g_driver->open_tty();
    log_line(g_log, "open_tty = ", g_driver->settings().port_name, ", fd = ", g_driver->get_tty_fd());
    log_line(g_log, "Start \"run_main\" driver iterations");
    while (true) {
        g_driver->run_main();
        gateway().sleep(IterationPauseSeconds);
    }
}

void run_singlebus() {
    log_line(g_log, "Run SingleBus");
    SingleBus bus(make_bus_driver);
    log_line(g_log, "Add Drivers");
    bus.add_drivers(g_uuid_list);
    log_line(g_log, "Run drivers iterations");
    bus.run();
}

void print_version() {
    std::puts("2.1.14_26592\niteration delay = 0 minutes, off");
}

void bad_syntax() {
    std::puts("Error: bad syntax");
    std::exit(0);
}
