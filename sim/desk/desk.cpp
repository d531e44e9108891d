#include "desk.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <limits>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

constexpr long FarthestClock = 10L * 366 * 86400;  // seconds; a meter makes up the records of all hours that pass

[[noreturn]] void refuse(const std::string& what) {
    throw std::invalid_argument(what);
}

long number(const std::string& word) {
    const char* const begin = word.c_str() + (word[0] == '+' ? 1 : 0);
    const char* const end = word.c_str() + word.size();
    long value = 0;
    const auto [rest, error] = std::from_chars(begin, end, value);
    if (error != std::errc{} || rest != end) refuse(word + ": not a number");
    return value;
}

/// Which of two words it is.
bool is_first(const std::string& word, const std::string& first, const std::string& second) {
    if (word != first && word != second) refuse(word + ": " + first + " or " + second);
    return word == first;
}

/// Control characters count as blanks.
std::vector<std::string> split(std::string line) {
    std::replace_if(
        line.begin(), line.end(), [](unsigned char c) { return std::iscntrl(c) != 0; }, ' ');
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

}  // namespace

/// The place of a meter on its line, where it can fall silent, have its clock set, and be taken for another one.
class Desk::Slot final : public SimMeter {
  public:
    Slot(DeskMeter meter, unsigned ordinal) : meter_(std::move(meter)), ordinal_(ordinal) {}

    Answer hear(std::span<const std::uint8_t> request, std::time_t now) override {
        if (silent_) return {};
        return meter_.made.meter->hear(request, now + ahead_);
    }

    void fall_silent(bool silent) { silent_ = silent; }
    void move_clock(long seconds) {
        if (seconds > FarthestClock || seconds < -FarthestClock || std::abs(ahead_ + seconds) > FarthestClock) {
            refuse("too far");
        }
        ahead_ += seconds;
    }
    void swap_for(const std::string& words, DeskRules rules) {
        rules.now = std::time(nullptr) + ahead_;
        meter_.made = make_desk_meter(words, ordinal_, rules).made;
    }
    void tell_state(std::ostream& out) const {
        out << "meter " << meter_.uuid << " on " << meter_.line << (silent_ ? ", silent" : ", answers")
            << ", clock moved by " << ahead_ << ", told with serial number " << meter_.settings.serial << '\n';
    }

    const DeskMeter& meter() const { return meter_; }
    MeterSettings& settings() { return meter_.settings; }

  private:
    DeskMeter meter_;
    unsigned ordinal_;
    bool silent_ = false;
    long ahead_ = 0;
};

struct Desk::Order {
    const char* words;  // the first is its name, the others stand for arguments
    const char* does;
    void (Desk::*carry_out)(const Words& words, std::ostream& rows);
};

const Desk::Order Desk::Orders[] = {
    {"cable LINE cut|whole", "through a cut cable nobody hears anything", &Desk::cable},
    {"adapter LINE out|in", "the terminal and its link go away; what is plugged in is another terminal",
     &Desk::adapter},
    {"speed LINE BAUD", "of the meters; a program at another one hears, and says, something else", &Desk::speed},
    {"meter UUID silent|answers", "a meter that does not answer", &Desk::meter},
    {"swap UUID METER", "another meter hangs in its place; the service tells what it told", &Desk::swap},
    {"clock UUID SECONDS", "moves the meter's clock, back with -SECONDS", &Desk::clock},
    {"told UUID KEY=VALUE,...", "what the service tells of a meter: serial, port, speed, ...", &Desk::told},
    {"service right|nonsense|mute|off", "as --service", &Desk::service},
    {"status", "how all that stands", &Desk::status},
    {"help", "these words", &Desk::help},
};

std::string desk_help() {
    constexpr std::size_t Width = 34;
    std::string text;
    for (const Desk::Order& order : Desk::Orders) {
        std::string row = std::string("  ") + order.words;
        row.resize(std::max(row.size() + 1, Width), ' ');
        text += row + order.does + '\n';
    }
    return text;
}

Desk::Desk(const DeskOptions& options)
    : rules_(options.rules), trace_(options.trace_path), port_(options.port), manner_(options.service) {
    unsigned ordinal = 0;
    start_service();
    for (const std::string& words : options.meters) {
        ++ordinal;
        Slot& slot = *slots_.emplace_back(std::make_unique<Slot>(make_desk_meter(words, ordinal, rules_), ordinal));
        put_on_line(slot, options);
        if (service_) service_->set_meter(slot.meter().uuid, slot.settings());
    }
}

Desk::~Desk() = default;

/// The first meter of a line makes it. What is played back hangs there in the place of all its meters.
void Desk::put_on_line(Slot& slot, const DeskOptions& options) {
    const std::string& link = slot.meter().line;
    auto line = std::ranges::find(lines_, link, [](const auto& other) { return other->link(); });
    const bool made = line == lines_.end();
    if (made) line = lines_.insert(line, std::make_unique<PtyLine>(link, rules_.speed, trace_));
    if (options.replay_path.empty()) return (*line)->connect(slot);
    if (!made) return;
    std::ifstream file(options.replay_path);
    if (!file) refuse(options.replay_path + ": cannot be read");
    (*line)->connect(*replays_.emplace_back(std::make_unique<ReplayMeter>(file, link, options.strict_replay)));
}

void Desk::start_service() {
    if (service_) {
        const std::vector<std::string> requests = service_->requests();
        requests_.insert(requests_.end(), requests.begin(), requests.end());
        service_.reset();
    }
    if (manner_ == "off") return;
    service_.emplace(port_);
    port_ = service_->port();
    for (const auto& slot : slots_) service_->set_meter(slot->meter().uuid, slot->settings());
    if (manner_ == "nonsense") service_->answer_with("Good morning!");
    if (manner_ == "mute") service_->hang_up();
}

void Desk::tell(std::ostream& out) const {
    for (const auto& line : lines_) out << "line " << line->link() << " is " << line->device() << '\n';
    for (const auto& slot : slots_) {
        const DeskMeter& meter = slot->meter();
        out << "meter " << meter.uuid << " with serial number " << meter.settings.serial << " on " << meter.line
            << '\n';
    }
    if (service_) out << "configuration service at " << service_->address() << '\n';
}

void Desk::dump(std::ostream& out) const {
    for (const auto& slot : slots_) slot->meter().made.dump(out, slot->meter().uuid);
    for (const std::string& request : requests_) out << "request " << request << '\n';
    if (!service_) return;
    for (const std::string& request : service_->requests()) out << "request " << request << '\n';
}

void Desk::watch(std::vector<pollfd>& watched) const {
    for (const auto& line : lines_) watched.push_back({.fd = line->fd(), .events = POLLIN, .revents = 0});
}

std::optional<Micros> Desk::due() const {
    std::optional<Micros> next;
    for (const auto& line : lines_) {
        const std::optional<Micros> due = line->due();
        if (due && (!next || *due < *next)) next = due;
    }
    return next;
}

void Desk::work() {
    for (const auto& line : lines_) line->work();
}

// ---- orders

std::string Desk::obey(const std::string& line) {
    std::ostringstream rows;
    try {
        carry_out(line, rows);
    } catch (const std::exception& error) {
        return std::string("error: ") + error.what() + "\n";
    }
    return rows.str() + "ok\n";
}

void Desk::carry_out(const std::string& line, std::ostream& rows) {
    Words words = split(line);
    if (words.empty()) refuse("nothing said; say help");
    for (const Order& order : Orders) {
        const Words form = split(order.words);
        if (form[0] != words[0]) continue;
        if (form.size() != words.size()) refuse(std::string("say ") + order.words);
        words.erase(words.begin());
        return (this->*order.carry_out)(words, rows);
    }
    refuse(words[0] + ": no such word; say help");
}

PtyLine& Desk::line_named(const std::string& link) {
    for (const auto& line : lines_) {
        if (line->link() == link) return *line;
    }
    refuse(link + ": no such line");
}

Desk::Slot& Desk::slot_named(const std::string& uuid) {
    for (const auto& slot : slots_) {
        if (slot->meter().uuid == uuid) return *slot;
    }
    refuse(uuid + ": no such meter");
}

void Desk::cable(const Words& words, std::ostream& /*rows*/) {
    line_named(words[0]).cut_cable(is_first(words[1], "cut", "whole"));
}

void Desk::adapter(const Words& words, std::ostream& /*rows*/) {
    PtyLine& line = line_named(words[0]);
    is_first(words[1], "out", "in") ? line.plug_out() : line.plug_in();
}

void Desk::speed(const Words& words, std::ostream& /*rows*/) {
    const long baud = number(words[1]);
    if (baud < 0 || baud > std::numeric_limits<int>::max()) refuse("speed " + words[1] + ": no line has it");
    line_named(words[0]).set_speed(static_cast<unsigned>(baud));
}

void Desk::meter(const Words& words, std::ostream& /*rows*/) {
    slot_named(words[0]).fall_silent(is_first(words[1], "silent", "answers"));
}

void Desk::swap(const Words& words, std::ostream& /*rows*/) {
    slot_named(words[0]).swap_for(words[1], rules_);
}

void Desk::clock(const Words& words, std::ostream& /*rows*/) {
    slot_named(words[0]).move_clock(number(words[1]));
}

void Desk::told(const Words& words, std::ostream& /*rows*/) {
    Slot& slot = slot_named(words[0]);
    MeterSettings settings = slot.settings();
    MeterWords given(words[1]);
    tell_service(given, settings);
    given.finish();
    slot.settings() = settings;
    if (service_) service_->set_meter(words[0], settings);
}

void Desk::service(const Words& words, std::ostream& /*rows*/) {
    constexpr const char* Manners[] = {"right", "nonsense", "mute", "off"};
    if (std::ranges::count(Manners, words[0]) == 0) refuse(words[0] + ": right, nonsense, mute or off");
    manner_ = words[0];
    start_service();
}

void Desk::status(const Words& /*words*/, std::ostream& rows) {
    for (const auto& line : lines_) {
        rows << "line " << line->link();
        if (line->plugged_in()) {
            rows << " is " << line->device() << ", set to " << line->set_by_program();
        } else {
            rows << " has no adapter";
        }
        rows << ", cable " << (line->is_cut() ? "cut" : "whole") << ", meters at " << line->speed() << '\n';
    }
    for (const auto& slot : slots_) slot->tell_state(rows);
    rows << "service " << manner_ << '\n';
}

void Desk::help(const Words& /*words*/, std::ostream& rows) {
    rows << desk_help();
}

}  // namespace sim
