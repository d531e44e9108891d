#include "contract/program.h"

#include <sys/signalfd.h>

#include <csignal>
#include <cstdio>

#include <fmt/format.h>

#include "contract/plain_text.h"
#include "core/gateway.h"

namespace contract {

int complain(std::string_view program, std::string_view text, int status) {
    std::fputs(fmt::format("{}: {}\n", program, for_terminal(text)).c_str(), stderr);
    return status;
}

std::string look_below(std::string root) {
    while (root.ends_with('/')) root.pop_back();
    set_system_root(root);
    return root;
}

int end_signals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGTERM);
    ::sigaddset(&signals, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    return ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace contract
