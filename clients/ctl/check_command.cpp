#include <algorithm>
#include <iterator>

#include <fmt/format.h>
#include <json/value.h>

#include "contract/check.h"
#include "contract/plain_text.h"
#include "core/gateway.h"
#include "ctl/commands.h"

namespace ctl {

namespace {

using contract::Level;

const char* word_of(Level level) {
    return level == Level::Ok ? "ok" : level == Level::Critical ? "error" : "warning";
}

contract::Findings check_configured(const std::string& port, const contract::GatewayFacts& here) {
    if (!port_of_file(port + ".conf")) {
        throw Failure{fmt::format("/etc/heatmeterd/{}.conf belongs to no port, and is looked at with every one", port),
                      Usage};
    }
    const auto ports = read_ports(gateway().root() + "/etc/heatmeterd");
    const auto found = ports.find(port);
    if (found == ports.end()) {
        throw Failure{fmt::format("no /etc/heatmeterd/{}.conf, and no words of a process such as KM5 -r UUID", port),
                      Usage};
    }
    contract::Findings findings;
    for (const std::string& problem : found->second.problems) {
        findings.push_back({"file", Level::Critical, problem, "correct the file"});
    }
    if (found->second.words.empty()) return findings;
    for (auto& finding : contract::check_words(found->second.words, here)) findings.push_back(std::move(finding));
    return findings;
}

void print(const contract::Findings& findings, const Console& console) {
    Output out;
    for (const auto& finding : findings) {
        const char* const colour = finding.level == Level::Ok         ? "\033[32m"
                                   : finding.level == Level::Critical ? "\033[31m"
                                                                      : "\033[33m";
        out << fmt::format("{}{:8}{}{}\n", console.colour ? colour : "", word_of(finding.level),
                           console.colour ? "\033[0m" : "", contract::for_terminal(finding.text));
        if (finding.level != Level::Ok) out << "        to do: " << contract::for_terminal(finding.help) << '\n';
    }
    out.flush();
}

void print_as_json(const contract::Findings& findings, Level worst) {
    Json::Value whole;
    whole["level"] = word_of(worst);
    whole["findings"] = Json::arrayValue;
    for (const auto& finding : findings) {
        Json::Value& entry = whole["findings"].append(Json::objectValue);
        entry["level"] = word_of(finding.level);
        entry["topic"] = finding.word;
        entry["text"] = contract::valid_utf8(finding.text);
        entry["help"] = contract::valid_utf8(finding.help);
    }
    print_json(whole);
}

int run_check(const Words& words, const Console& console) {
    if (!gateway().root().empty()) throw Failure{"check looks at this machine; it takes no --root", Usage};
    const contract::GatewayFacts here = contract::look_at_gateway();
    contract::Findings findings =
        words.size() == 1 ? check_configured(words.front(), here) : contract::check_words(words, here);
    std::ranges::move(contract::check_units(), std::back_inserter(findings));
    Level worst = Level::Ok;
    for (const auto& finding : findings) worst = std::max(worst, finding.level);
    if (console.json) {
        print_as_json(findings, worst);
    } else {
        print(findings, console);
    }
    return worst == Level::Critical ? Finding : Done;
}

}  // namespace

Command check_command(CLI::App& app, Console& console) {
    CLI::App* const command =
        app.add_subcommand("check", "before the start: a configured PORT, or the words of a process");
    add_output_options(*command, console);
    command->fallthrough(false);
    command->prefix_command();  // what follows are the daemon's words, -r among them
    command->footer(
        "heatmeterctl check PORT         looks at /etc/heatmeterd/PORT.conf\n"
        "heatmeterctl check KM5 -r UUID  looks at the words of a process\n"
        "Exit status 1 when there is an error. Options stand in front of the words.");
    return {command, [command, &console] {
                std::vector<std::string> words = command->remaining();
                // Also behind the words, where people put it.
                if (std::erase(words, "--json") != 0) console.json = true;
                if (words.empty()) throw Failure{"say a PORT, or the words of a process. Try --help", Usage};
                return run_check(words, console);
            }};
}

}  // namespace ctl
