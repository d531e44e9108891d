#include "ctl/watch_screen.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include <fmt/format.h>

#include "contract/logs.h"
#include "contract/moments.h"
#include "contract/plain_text.h"
#include "contract/units.h"
#include "core/gateway.h"
#include "ctl/opinion.h"
#include "ctl/watch_rows.h"

// Behind all others, since they make macros of common words.
#define NCURSES_NOMACROS
#include <ncurses.h>
#include <term.h>
#undef lines
#undef columns

namespace ctl {

namespace {

constexpr std::int64_t MarkedMilliseconds = 5000;  // how long a new value stays marked
constexpr int EscapeDelay = 25;                    // milliseconds that tell the key Esc from another one
constexpr int Escape = 27;

volatile std::sig_atomic_t g_ended = 0;

enum class View { Values, Hourly, Daily, Log };

enum Colour : short { Good = 1, Bad = 2, Doubtful = 3 };

class Screen {
  public:
    Screen(contract::Live& shown, const Console& out) : model(shown), console(out), opinion(shown.asked_for()) {}

    void draw() {
        ::erase();
        getmaxyx(stdscr, height, width);
        row = 0;
        is_lively = false;
        drawn_at = gateway().now();
        choose();
        draw_head();
        if (help) {
            draw_help();
        } else {
            draw_meters();
            draw_body();
        }
        draw_foot();
        ::refresh();
    }

    /// Whether something is to be told that no file tells: an age, the end of a mark, what was found out.
    bool is_due(bool has_changed) {
        constexpr std::int64_t Longest = 10;
        const std::int64_t now = gateway().now();
        return opinion.look(has_changed) || has_changed || is_lively || now / 60 != drawn_at / 60 ||
               std::abs(now - drawn_at) >= Longest;
    }

    /// False when the key ends it.
    bool take(int key) {
        switch (key) {
            case 'q':
                if (!help) return false;
                help = false;
                break;
            case Escape:  // also the beginning of keys that are not known here, so it ends nothing
                help = false;
                break;
            case '?':
            case 'h':
                help = !help;
                break;
            case KEY_UP:
            case 'k':
                chosen = std::max(0, chosen - 1);
                top = 0;
                break;
            case KEY_DOWN:
            case 'j':
                ++chosen;
                top = 0;
                break;
            case KEY_LEFT:
                step_system(-1);
                break;
            case KEY_RIGHT:
                step_system(1);
                break;
            case 'v':
                show(View::Values);
                break;
            case 'a':
                show(View::Hourly);
                break;
            case 'd':
                show(View::Daily);
                break;
            case 'l':
                show(View::Log);
                break;
            case KEY_NPAGE:
            case ' ':
                top += std::max(1, body_rows - 1);
                break;
            case KEY_PPAGE:
            case 'b':
                top = std::max(0, top - std::max(1, body_rows - 1));
                break;
            case KEY_HOME:
            case 'g':
                top = 0;
                break;
            default:
                break;
        }
        return true;
    }

  private:
    void put(const std::string& text, attr_t attributes = A_NORMAL) {
        if (row < height - 1) put_at(row++, fitted(text, static_cast<std::size_t>(width)), attributes);
    }

    static void put_at(int line, const std::string& text, attr_t attributes) {
        ::attrset(static_cast<int>(attributes));
        ::mvaddstr(line, 0, text.c_str());
        ::attrset(A_NORMAL);
    }

    attr_t colour(Colour which) const { return console.colour && ::has_colors() ? COLOR_PAIR(which) : A_NORMAL; }

    void choose() {
        const auto& meters = model.meters();
        chosen = std::clamp(chosen, 0, std::max(0, static_cast<int>(meters.size()) - 1));
        meter = meters.empty() ? nullptr : &meters[static_cast<std::size_t>(chosen)];
        system = nullptr;
        if (meter == nullptr || meter->systems.empty()) return;
        place = std::clamp(place, 0, static_cast<int>(meter->systems.size()) - 1);
        system = &meter->systems[static_cast<std::size_t>(place)];
    }

    void show(View another) {
        view = another;
        top = 0;
    }

    void step_system(int step) {
        place = std::max(0, place + step);
        top = 0;
    }

    void draw_head() {
        const auto& meters = model.meters();
        const std::string left =
            fmt::format("heatmeterctl watch  {}", contract::plain_moment_text(drawn_at).substr(0, 16));
        const std::string right = fmt::format("{} meter{}", meters.size(), meters.size() == 1 ? "" : "s");
        const auto all = static_cast<std::size_t>(width);
        put(fitted(left, all > right.size() ? all - right.size() - 1 : 0) + ' ' + right, A_REVERSE);
    }

    std::string age_of(const std::optional<std::int64_t>& moment) {
        constexpr std::int64_t ToldInSeconds = 120;
        if (!moment) return "-";
        const std::int64_t age = drawn_at - *moment;
        is_lively = is_lively || std::abs(age) <= ToldInSeconds;
        return contract::duration_text(age);
    }
    static std::string short_moment(const std::optional<std::int64_t>& moment) {
        return moment ? contract::plain_moment_text(*moment).substr(5, 11) : "-";
    }

    /// What a meter's systems have that is newest.
    static std::optional<std::int64_t> newest(const contract::LiveMeter& of,
                                              std::optional<std::int64_t> contract::LiveSystem::*what) {
        std::optional<std::int64_t> time;
        for (const contract::LiveSystem& one : of.systems) time = std::max(time, one.*what);
        return time;
    }

    void draw_meters() {
        const auto& meters = model.meters();
        const int room = std::max(1, std::min<int>(static_cast<int>(meters.size()), (height - 4) / 3));
        const int first = std::clamp(chosen - room + 1, 0, std::max(0, static_cast<int>(meters.size()) - room));
        const auto name = static_cast<std::size_t>(std::clamp(width - 64, 12, 40));
        put(fitted("  meter", name + 2) + "  level     model      newest value  newest hour  newest day", A_BOLD);
        if (meters.empty()) put("  none yet: no meter has files here");
        for (int i = first; i < first + room && i < static_cast<int>(meters.size()); ++i) {
            const contract::LiveMeter& one = meters[static_cast<std::size_t>(i)];
            const contract::Verdict* const verdict = opinion.of(one.meter.uuid);
            const std::string level = verdict == nullptr ? "" : std::string(text_of(verdict->level));
            const std::string text = fmt::format(
                "{} {}  {}  {} {}  {}  {}", i == chosen ? '>' : ' ', fitted(one.meter.uuid, name), fitted(level, 8),
                fitted(one.meter.model, 10), fitted(age_of(newest(one, &contract::LiveSystem::value)), 12, true),
                fitted(short_moment(newest(one, &contract::LiveSystem::hourly)), 11),
                fitted(short_moment(newest(one, &contract::LiveSystem::daily)), 11));
            const attr_t bold = i == chosen ? A_BOLD : A_NORMAL;
            put(text, verdict == nullptr ? bold : bold | colour(colour_of(verdict->level)));
        }
        draw_choice();
    }

    void draw_choice() {
        constexpr const char* Views[] = {"values", "hourly records", "daily records", "log"};
        std::string text = "--";
        if (meter != nullptr) {
            const std::string number = system != nullptr ? fmt::format("/{}", system->number) : "";
            text += fmt::format(" {}{}: {} ", contract::for_terminal(meter->meter.uuid), number,
                                Views[static_cast<int>(view)]);
        }
        const std::size_t columns = contract::columns_of(text);
        put(text +
            std::string(static_cast<std::size_t>(width) - std::min(columns, static_cast<std::size_t>(width)), '-'));
    }

    void draw_body() {
        draw_reasons(opinion.of_gateway());
        if (meter == nullptr) return;
        const contract::Verdict* const verdict = opinion.of(meter->meter.uuid);
        if (verdict != nullptr) draw_reasons(*verdict);
        body_rows = height - row - 2;
        if (view == View::Log) return draw_log();
        if (system == nullptr) return put("nothing of this meter is there yet");
        if (view == View::Values) {
            draw_values();
        } else {
            draw_records(view == View::Hourly ? contract::ArchiveKind::Hourly : contract::ArchiveKind::Daily);
        }
    }

    static Colour colour_of(contract::Level level) {
        return level == contract::Level::Ok ? Good : level == contract::Level::Critical ? Bad : Doubtful;
    }

    /// Why the gateway or the chosen meter is not well, and what to do.
    void draw_reasons(const contract::Verdict& verdict) {
        constexpr std::size_t Most = 3;
        for (std::size_t i = 0; i < std::min(Most, verdict.reasons.size()); ++i) {
            const contract::Reason& reason = verdict.reasons[i];
            put(reason.text + (reason.help.empty() ? "" : ": " + reason.help),
                A_BOLD | colour(colour_of(reason.level)));
        }
    }

    /// The rows of a file, as long as it has not changed; `state` tells.
    template <typename Make>
    void draw_rows(std::string state, Make make) {
        if (state != rows_state) rows = make();
        rows_state = std::move(state);
        if (!rows.heading.empty()) put(rows.heading, A_BOLD);
        top = std::clamp(top, 0, std::max(0, static_cast<int>(rows.rows.size()) - body_rows));
        for (auto i = static_cast<std::size_t>(top); i < rows.rows.size() && row < height - 1; ++i) put(rows.rows[i]);
    }

    void draw_log() {
        const std::string path = contract::log_path(meter->meter.uuid);
        struct stat status {};
        gateway().look_at(path, status);
        // What is being written may change without a change of its time.
        const std::int64_t age = gateway().now() - status.st_mtime;
        const std::int64_t fresh = age < 2 ? gateway().steady_microseconds() : 0;
        draw_rows(
            fmt::format("{} {} {}.{} {}", path, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec, fresh),
            [&] { return log_rows(path); });
        is_lively = true;  // nobody tells when a log goes on
    }

    static bool is_marked(const contract::LiveItem& item, std::int64_t steady) {
        return item.changed_at != 0 && steady - item.changed_at < MarkedMilliseconds;
    }

    void draw_values() {
        put(fmt::format("{} {} {:>8}  {:>9}  {}", fitted("name", 14), fitted("value", 16, true), "unit", "age",
                        "title"),
            A_BOLD);
        const int count = static_cast<int>(system->items.size());
        top = std::clamp(top, 0, std::max(0, count - body_rows));
        const std::int64_t steady = gateway().steady_microseconds() / 1000;
        for (const contract::LiveItem& one : system->items) is_lively = is_lively || is_marked(one, steady);
        for (int i = top; i < count && row < height - 1; ++i) {
            const contract::LiveItem& one = system->items[static_cast<std::size_t>(i)];
            const contract::ItemEntry* const entry = one.item.entry;
            const std::string unit = units.unit_of(meter->meter.uuid, system->number, one.item);
            put(fmt::format("{} {} {}  {}  {}", fitted(one.item.name, 14), fitted(one.item.text, 16, true),
                            fitted(unit, 8, true), fitted(age_of(one.item.time), 9, true),
                            entry != nullptr ? entry->title : ""),
                is_marked(one, steady) ? A_BOLD | colour(Good) : A_NORMAL);
        }
    }

    void draw_records(contract::ArchiveKind kind) {
        const std::string& uuid = meter->meter.uuid;
        draw_rows(fmt::format("{}/{} {} {} {}", uuid, system->number, text_of(kind), system->looks, width),
                  [&] { return record_rows(uuid, *system, kind, width); });
    }

    void draw_help() {
        for (const char* text :
             {"", "  up, down      another meter", "  left, right   another system of it",
              "  v             present values", "  a, d          hourly, daily records",
              "  l             the log, newest line on top", "  PgUp, PgDn    further up and down",
              "  q             the end", "", "  A value that has just changed is bold for five seconds."}) {
            put(text);
        }
    }

    void draw_foot() const {
        // The last place of the screen stays free: writing there would scroll some terminals.
        const auto columns = static_cast<std::size_t>(std::max(0, width - 1));
        put_at(height - 1, fitted("v values  a hourly  d daily  l log  ? help  q end", columns), A_REVERSE);
    }

    contract::Live& model;
    const Console& console;
    const contract::Units units = contract::read_units();
    Opinion opinion;
    int height = 0;
    int width = 0;
    int row = 0;
    int body_rows = 1;
    int chosen = 0;  // meter
    int place = 0;   // of the system among the meter's
    int top = 0;     // first row of the body that is shown
    bool help = false;
    View view = View::Values;
    std::int64_t drawn_at = 0;
    bool is_lively = false;  // something on the screen changes by the second
    Rows rows;               // of the body, as long as files are as they were
    std::string rows_state;
    const contract::LiveMeter* meter = nullptr;
    const contract::LiveSystem* system = nullptr;
};

bool begin_screen(bool colour) {
    int error = 0;
    // Without a cursor that can be moved there is no screen.
    if (::setupterm(nullptr, STDOUT_FILENO, &error) == ERR || ::tigetstr("cup") == nullptr) return false;
    if (::initscr() == nullptr) return false;
    ::set_escdelay(EscapeDelay);
    ::cbreak();
    ::noecho();
    ::nonl();
    ::keypad(stdscr, TRUE);
    ::curs_set(0);
    ::timeout(0);
    if (colour && ::has_colors()) {
        ::start_color();
        ::use_default_colors();
        ::init_pair(Good, COLOR_GREEN, -1);
        ::init_pair(Bad, COLOR_RED, -1);
        ::init_pair(Doubtful, COLOR_YELLOW, -1);
    }
    return true;
}

/// Then it would be readable for ever.
bool is_terminal_gone() {
    pollfd terminal{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    return ::poll(&terminal, 1, 0) > 0 && (terminal.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

void catch_ends() {
    struct sigaction action {};
    action.sa_handler = [](int) { g_ended = 1; };
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(signal, &action, nullptr);
}

}  // namespace

bool run_watch_screen(contract::Live& model, const Console& console, std::optional<std::int64_t> seconds) {
    if (!begin_screen(console.colour)) return false;
    catch_ends();
    Screen screen(model, console);
    const std::int64_t begin = gateway().steady_microseconds();
    bool goes_on = true;
    bool is_due = screen.is_due(true);
    while (goes_on && g_ended == 0) {
        if (is_due) screen.draw();
        is_due = screen.is_due(model.wait(STDIN_FILENO, 1000));
        model.take_news();
        for (int key; goes_on && (key = ::getch()) != ERR; is_due = true) goes_on = screen.take(key);
        if (is_terminal_gone()) goes_on = false;
        if (seconds && (gateway().steady_microseconds() - begin) / 1'000'000 >= *seconds) goes_on = false;
    }
    ::endwin();
    return true;
}

}  // namespace ctl
