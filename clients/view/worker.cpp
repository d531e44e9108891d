#include "view/worker.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace view {

Worker::Worker(std::size_t longest) : most(longest), thread([this] { run(); }) {}

void Worker::stop() {
    if (!thread.joinable()) return;
    {
        const std::lock_guard lock(mutex);
        over = true;
        jobs.clear();
    }
    changed.notify_one();
    thread.join();
}

bool Worker::post(std::function<void()> job) {
    {
        const std::lock_guard lock(mutex);
        if (jobs.size() >= most) return false;
        jobs.push_back(std::move(job));
    }
    changed.notify_one();
    return true;
}

void Worker::run() {
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return over || !jobs.empty(); });
            if (over) return;
            job = std::move(jobs.front());
            jobs.pop_front();
        }
        job();
    }
}

Mailbox::Mailbox() : fd(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

Mailbox::~Mailbox() {
    ::close(fd);
}

void Mailbox::post(std::function<void()> errand) {
    {
        const std::lock_guard lock(mutex);
        errands.push_back(std::move(errand));
    }
    [[maybe_unused]] const int full = ::eventfd_write(fd, 1);  // a count at its end wakes as well
}

void Mailbox::run() {
    eventfd_t count = 0;
    [[maybe_unused]] const int none = ::eventfd_read(fd, &count);
    std::deque<std::function<void()>> waiting;
    {
        const std::lock_guard lock(mutex);
        waiting.swap(errands);
    }
    for (const auto& errand : waiting) errand();
}

}  // namespace view
