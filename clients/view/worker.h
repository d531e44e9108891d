#pragma once
// A thread beside the loop, for what takes long: it does one job after the other.

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace view {

class Worker {
  public:
    /// At most so many jobs wait.
    explicit Worker(std::size_t most);
    ~Worker() { stop(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// False when too many wait.
    bool post(std::function<void()> job);
    /// Waits for the end of the job that runs, and drops the others.
    void stop();

  private:
    void run();

    std::size_t most;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> jobs;
    bool over = false;
    std::thread thread;
};

/// Takes words of other threads to the loop.
class Mailbox {
  public:
    Mailbox();
    ~Mailbox();
    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;

    /// Readable when something waits.
    int descriptor() const { return fd; }
    /// From any thread: the loop will do this.
    void post(std::function<void()> errand);
    /// In the loop: does all that wait.
    void run();

  private:
    int fd;
    std::mutex mutex;
    std::deque<std::function<void()>> errands;
};

}  // namespace view
