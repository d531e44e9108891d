#include "store/program.h"

#include <csignal>
#include <cstdio>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "store/database.h"
#include "store/run.h"
#include "store/schema.h"

namespace store {

namespace {

constexpr int Done = 0;
constexpr int Failed = 1;
constexpr int Usage = 2;

volatile std::sig_atomic_t end_asked = 0;

int complain(const std::string& text, int status) {
    say(text);
    return status;
}

int migrate_only(const std::string& conninfo) {
    try {
        Database database(conninfo);
        const int count = migrate(database);
        Months().make_ahead(database);
        say(count == 0 ? "the schema is up to date" : fmt::format("{} migrations done", count));
        return Done;
    } catch (const DatabaseError& error) {
        return complain(error.what(), Failed);
    }
}

void add_queue_options(CLI::App& app, QueueSettings& queue) {
    app.add_option("--nats", queue.url, "nats-server, as nats://host:4222; several with commas between")
        ->type_name("URL");
    app.add_option("--stream", queue.stream, "the stream of JetStream; made if it is not there")->capture_default_str();
    app.add_option("--consumer", queue.consumer, "its durable consumer, which many stores share; made likewise")
        ->capture_default_str();
    app.add_option("--replicas", queue.replicas, "of a stream that is made: on how many servers of a cluster it stands")
        ->type_name("N")
        ->check(CLI::Range(1, 5))
        ->capture_default_str();
    app.add_option("--keep", queue.keep_days,
                   "of a stream that is made: how long it keeps messages; for ever without it")
        ->type_name("DAYS")
        ->check(CLI::Range(1, 3650));
    auto* const user = app.add_option("--user", queue.user, "user at NATS");
    app.add_option("--password-file", queue.password_file, "its password, the first line of a file")
        ->type_name("FILE")
        ->check(CLI::ExistingFile)
        ->needs(user);
    app.add_option("--ca", queue.ca, "certificates that nats-server's is checked against; then TLS is a must")
        ->type_name("FILE")
        ->check(CLI::ExistingFile);
    auto* const cert = app.add_option("--cert", queue.cert, "own certificate")->type_name("FILE");
    auto* const key = app.add_option("--key", queue.key, "its key")->type_name("FILE");
    cert->check(CLI::ExistingFile)->needs(key);
    key->check(CLI::ExistingFile)->needs(cert);
}

}  // namespace

int run_program(int argc, const char* const* argv) {
    CLI::App app("Records of many gateways, out of NATS JetStream into PostgreSQL.", "heatmeter-store");
    RunSettings settings;
    bool only_migrations = false;
    add_queue_options(app, settings.queue);
    app.add_option("--postgres", settings.postgres, "the database, in libpq's words: \"host=... dbname=...\", or a URL")
        ->type_name("CONNINFO")
        ->required();
    app.add_option("--batch", settings.batch, "most messages of one transaction")
        ->type_name("N")
        ->check(CLI::Range(1, 10'000))
        ->capture_default_str();
    app.add_flag("--once", settings.once, "end when nothing is left, or with the first trouble");
    app.add_flag("--migrate", only_migrations, "bring the schema up to date, and end");
    app.set_version_flag("--version", fmt::format("heatmeter-store {}", HEATMETERD_VERSION));
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        return complain(std::string(error.what()) + ". Try --help", Usage);
    }
    if (only_migrations) return migrate_only(settings.postgres);
    if (settings.queue.url.empty()) return complain("--nats is required. Try --help", Usage);
    const auto ask_for_end = [](int /*signal*/) { end_asked = 1; };
    std::signal(SIGTERM, ask_for_end);
    std::signal(SIGINT, ask_for_end);
    std::signal(SIGPIPE, SIG_IGN);
    return run(settings, end_asked) ? Done : Failed;
}

}  // namespace store
