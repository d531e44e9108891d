#include "support/child.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <system_error>

namespace fs = std::filesystem;

namespace {

using TempFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

TempFile temp_file() {
    TempFile file(std::tmpfile(), &std::fclose);
    if (!file) throw std::system_error(errno, std::generic_category(), "temporary file");
    return file;
}

std::string whole(std::FILE* file) {
    std::string text;
    std::array<char, 4096> piece;
    std::rewind(file);
    for (std::size_t count; (count = std::fread(piece.data(), 1, piece.size(), file)) > 0;) {
        text.append(piece.data(), count);
    }
    return text;
}

void flush_all() {
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
}

std::string output_of(int stream, const std::function<void()>& work) {
    const TempFile file = temp_file();
    flush_all();
    const int earlier = ::dup(stream);
    ::dup2(::fileno(file.get()), stream);
    work();
    flush_all();
    ::dup2(earlier, stream);
    ::close(earlier);
    return whole(file.get());
}

bool g_is_child = false;

/// True when every other thread of this process waits for something.
bool others_wait() {
    for (const fs::directory_entry& task : fs::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == std::to_string(::gettid())) continue;
        std::ifstream file(task.path() / "stat");
        const std::string stat(std::istreambuf_iterator<char>(file), {});
        const std::size_t state = stat.rfind(')') + 2;  // behind the name, which may hold anything
        if (state < stat.size() && stat[state] != 'S') return false;
    }
    return true;
}

// A child gets the locks as they are but not the threads that would give them back, and the address sanitizer's
// allocator has such locks. So the service's thread has to be at rest before a fork.
void wait_for_others() {
    while (!others_wait()) ::sched_yield();
}

// An exception that nobody catches ends the child as it would end the daemon.
[[noreturn]] void be_child(int out, int err, const std::function<int()>& work) noexcept {
    g_is_child = true;
    ::dup2(out, STDOUT_FILENO);
    ::dup2(err, STDERR_FILENO);
    stdout = ::fdopen(STDOUT_FILENO, "w");  // unused as that of a daemon: one in use does not take another buffering
    std::exit(work());
}

ChildEnd run_child(int out, int err, const std::function<int()>& work) {
    flush_all();
    wait_for_others();
    const pid_t child = ::fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) be_child(out, err, work);
    int state = 0;
    while (::waitpid(child, &state, 0) < 0 && errno == EINTR) continue;
    ChildEnd end;
    if (WIFEXITED(state)) end.status = WEXITSTATUS(state);
    if (WIFSIGNALED(state)) end.signal = WTERMSIG(state);
    return end;
}

}  // namespace

// Asked by the leak sanitizer at the end of a process. A child lacks the threads that it would stop to look around.
extern "C" int __lsan_is_turned_off();
int __lsan_is_turned_off() {
    return g_is_child ? 1 : 0;
}

std::string stdout_of(const std::function<void()>& work) {
    return output_of(STDOUT_FILENO, work);
}

std::string stderr_of(const std::function<void()>& work) {
    return output_of(STDERR_FILENO, work);
}

ChildEnd in_child(const std::function<int()>& work) {
    const TempFile out = temp_file();
    const TempFile err = temp_file();
    ChildEnd end = run_child(::fileno(out.get()), ::fileno(err.get()), work);
    end.out = whole(out.get());
    end.err = whole(err.get());
    return end;
}

ChildEnd in_child_without_reader(const std::function<int()>& work) {
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    ::close(pipe[0]);
    const TempFile err = temp_file();
    ChildEnd end = run_child(pipe[1], ::fileno(err.get()), work);
    ::close(pipe[1]);
    end.err = whole(err.get());
    return end;
}
