// The helper of the start script and of the systemd unit.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string_view>

#include "care/keeper.h"
#include "care/pid_file.h"
#include "care/port_file.h"
#include "care/terminals.h"
#include "core/gateway.h"

namespace {

// As the LSB names them for a start script.
enum Status { Done = 0, Failed = 1, BadUsage = 2, NotConfigured = 6 };

constexpr unsigned ServicePatience = 60;  // seconds
constexpr unsigned EndPatience = 3;       // seconds

int usage() {
    std::cerr << "Usage: heatmeterd-care ports FOLDER [PORT]...\n"
                 "       heatmeterd-care names FOLDER\n"
                 "       heatmeterd-care wait FOLDER/PORT.conf\n"
                 "       heatmeterd-care look PID\n"
                 "       heatmeterd-care keep FOLDER/PORT.conf PROGRAM PID_FILE STATE_FILE LOG\n";
    return BadUsage;
}

/// A file that is not there, or that is none of a port.
void tell_unknown(const std::string& folder, const std::string& port) {
    const std::string name = port + ".conf";
    std::cerr << "heatmeterd: " << (port_of_file(name) ? "no " : "of no port: ") << folder << '/' << name << '\n';
}

/// Prints the ports whose words are right, all of them without names, and tells what is wrong with the others.
int ports(const std::string& folder, const std::vector<std::string>& names) {
    const auto known = read_ports(folder);
    std::vector<std::string> wanted = names;
    if (names.empty()) {
        for (const auto& [port, file] : known) wanted.push_back(port);
    }
    if (wanted.empty()) std::cerr << "heatmeterd: no port configured in " << folder << '\n';
    int status = wanted.empty() ? NotConfigured : Done;
    for (const std::string& port : wanted) {
        const auto found = known.find(port);
        if (found == known.end()) {
            tell_unknown(folder, port);
            status = NotConfigured;
        } else if (!found->second.problems.empty()) {
            for (const std::string& problem : found->second.problems) std::cerr << problem << '\n';
            status = NotConfigured;
        } else {
            std::cout << port << '\n';
        }
    }
    return status;
}

/// Prints all ports, also those whose words are wrong.
int names(const std::string& folder) {
    for (const std::string& name : names_in(folder)) {
        if (const auto port = port_of_file(name)) std::cout << *port << '\n';
    }
    return Done;
}

/// The words of a port; ends the process when something is wrong with them.
Words words_of(const std::filesystem::path& file) {
    const auto known = read_ports(file.parent_path().string());
    const auto found = known.find(file.stem().string());
    if (found == known.end()) {
        tell_unknown(file.parent_path().string(), file.stem().string());
        std::exit(NotConfigured);
    }
    for (const std::string& problem : found->second.problems) std::cerr << problem << '\n';
    if (!found->second.problems.empty()) std::exit(NotConfigured);
    return found->second.words;
}

/// False, and told, while another process reads one of the meters: a port's file may have got another name. One that
/// is about to end is waited for.
bool nobody_reads(const Words& words, const std::string& file, const std::string& program) {
    pid_t pid = 0;
    for (unsigned second = 0; (pid = reader_of(meters_of(words), program)) != 0; ++second) {
        if (second == EndPatience) {
            std::cerr << "heatmeterd: process " << pid << " reads a meter of " << file << " already\n";
            return false;
        }
        gateway().sleep(1);
    }
    return true;
}

int wait(const std::string& file) {
    const Words words = words_of(file);
    if (!nobody_reads(words, file, "heatmeterd")) return Failed;
    if (wait_for_devices(words, ServicePatience)) return Done;
    std::cerr << "heatmeterd: the configuration service has not answered for " << ServicePatience << " s\n";
    return Failed;
}

int look(std::string_view text) {
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
    if (error != std::errc() || end != text.data() + text.size() || pid < 1) return usage();
    return port_is_fine(pid) ? Done : Failed;
}

/// Goes on in the background.
int keep(const std::string& file, const std::string& program, const std::string& pid_path, const std::string& state,
         const std::string& log) {
    const Words words = words_of(file);
    ::umask(022);
    ::closefrom(STDERR_FILENO + 1);  // a lock or pipe of whoever starts it, which would wait for ever
    PidFile pid_file(pid_path);
    if (!nobody_reads(words, file, std::filesystem::path(program).filename().string())) return Failed;
    if (!pid_file.hold()) {
        std::cerr << "heatmeterd: " << pid_path << " cannot be written, or another keeper has it\n";
        return Failed;
    }
    const pid_t pid = ::fork();
    if (pid < 0) return Failed;
    pid_file.write(pid > 0 ? pid : ::getpid());
    if (pid > 0) return Done;
    ::setsid();
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null, fd);
    if (::chdir("/") != 0) return Failed;
    Keeper(program, words, pid_file, state, log).run();
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    const std::string command = words.empty() ? "" : words[0];
    if (command == "ports" && words.size() >= 2) return ports(words[1], {words.begin() + 2, words.end()});
    if (command == "names" && words.size() == 2) return names(words[1]);
    if (command == "wait" && words.size() == 2) return wait(words[1]);
    if (command == "look" && words.size() == 2) return look(words[1]);
    if (command == "keep" && words.size() == 6) return keep(words[1], words[2], words[3], words[4], words[5]);
    return usage();
}
