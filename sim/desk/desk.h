#pragma once
// Everything on a developer's desk: lines with meters on them, the configuration service that knows them, and the words
// that let them fail while programs read them.

#include <poll.h>

#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config_service.h"
#include "desk_meter.h"
#include "pty_line.h"
#include "replay_meter.h"

namespace sim {

struct DeskOptions {
    DeskRules rules{.line = "/tmp/heatmeter-line"};
    std::vector<std::string> meters;
    int port = 8082;
    std::string service = "right";
    std::string trace_path;
    std::string replay_path;
    bool strict_replay = false;
};

/// All that obey() understands, for the user.
std::string desk_help();

class Desk {
  public:
    /// Throws std::invalid_argument with a text for the user, std::system_error for the machine.
    explicit Desk(const DeskOptions& options);
    ~Desk();

    /// What there is, a row for each line and each meter, and where the service is.
    void tell(std::ostream& out) const;
    /// At the end: what the meters hold, and what the service was asked.
    void dump(std::ostream& out) const;

    /// Adds what is readable when work() has something to do, which it also has at due().
    void watch(std::vector<pollfd>& watched) const;
    std::optional<Micros> due() const;
    void work();

    /// Does what a line of words says. Answers with rows, the last of them "ok" or "error: WHAT", whatever was said.
    std::string obey(const std::string& line);

  private:
    struct Order;
    static const Order Orders[];
    friend std::string desk_help();

    class Slot;
    using Words = std::vector<std::string>;

    void carry_out(const std::string& line, std::ostream& rows);
    PtyLine& line_named(const std::string& link);
    Slot& slot_named(const std::string& uuid);
    void put_on_line(Slot& slot, const DeskOptions& options);
    void start_service();

    void cable(const Words& words, std::ostream& rows);
    void adapter(const Words& words, std::ostream& rows);
    void speed(const Words& words, std::ostream& rows);
    void meter(const Words& words, std::ostream& rows);
    void swap(const Words& words, std::ostream& rows);
    void clock(const Words& words, std::ostream& rows);
    void told(const Words& words, std::ostream& rows);
    void service(const Words& words, std::ostream& rows);
    void status(const Words& words, std::ostream& rows);
    void help(const Words& words, std::ostream& rows);

    DeskRules rules_;
    LineTrace trace_;
    int port_;
    std::string manner_;
    std::optional<ConfigService> service_;
    std::vector<std::string> requests_;  // to services that have been switched off
    std::vector<std::unique_ptr<Slot>> slots_;
    std::vector<std::unique_ptr<ReplayMeter>> replays_;
    std::vector<std::unique_ptr<PtyLine>> lines_;
};

}  // namespace sim
