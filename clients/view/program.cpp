#include "view/program.h"

#include <cstdio>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <malloc.h>

#include "contract/program.h"
#include "view/address.h"
#include "view/gate.h"
#include "view/server.h"

namespace view {

namespace {

constexpr int Done = 0;
constexpr int Failed = 1;
constexpr int Usage = 2;

int complain(const std::string& text, int status) {
    return contract::complain("heatmeter-view", text, status);
}

int serve(const std::string& listen, const Address& address, const std::string& password_file) {
    Gate gate(password_file);
    std::string fault;
    if (!gate.is_usable(fault)) return complain(fault, Usage);
    ::mallopt(M_ARENA_MAX, 1);  // three threads that do little at a time
    const int end = contract::end_signals();
    try {
        Server server(address.socket, gate);
        std::fputs(
            fmt::format("heatmeter-view: http://{}:{}/\n", listen.substr(0, listen.rfind(':')), server.port()).c_str(),
            stderr);
        server.run(end);
    } catch (const std::exception& error) {
        return complain(fmt::format("{}: {}", listen, error.what()), Failed);
    }
    return Done;
}

}  // namespace

int run_program(int argc, const char* const* argv) {
    CLI::App app("The gateway in a browser, and in Prometheus.", "heatmeter-view");
    std::string root;
    std::string listen = "127.0.0.1:8083";
    std::string password_file;
    app.add_option("--root", root, "where tmp/ and mnt/storage/ are looked for, / without it")
        ->type_name("DIR")
        ->check(CLI::ExistingDirectory);
    app.add_option("--listen", listen,
                   "address and port; another address than this machine's own for itself needs\n"
                   "a password file")
        ->type_name("ADDRESS:PORT")
        ->capture_default_str();
    app.add_option("--password-file", password_file, "users who may come in, as `htpasswd -B` writes them")
        ->type_name("FILE");
    app.set_version_flag("--version", fmt::format("heatmeter-view {}", HEATMETERD_VERSION));
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        return complain(std::string(error.what()) + ". Try --help", Usage);
    }
    const auto address = parse_address(listen);
    if (!address)
        return complain("no address to listen at: \"" + listen + "\" (such as 127.0.0.1:8083, [::1]:8083)", Usage);
    if (!address->is_loopback && password_file.empty()) {
        return complain(listen + " can be reached from elsewhere: give a --password-file (htpasswd -B makes one)",
                        Usage);
    }
    contract::look_below(root);
    return serve(listen, *address, password_file);
}

}  // namespace view
