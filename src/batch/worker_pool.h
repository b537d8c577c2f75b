// Processes that each work on one task after the other, so that a task that crashes, hangs or eats the memory
// costs itself alone.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/integers.h"

namespace kv {

/// One task, as it is sent to a process.
struct Task {
    u64 id = 0; ///< tasks are handed out in rising order
    std::string text;
};

/// A process's end of its line to the pool.
class WorkerLine {
public:
    explicit WorkerLine(int socket) : socket_(socket) {}
    /// Notes a message about the task in hand. It is sent with the next `flush`, in the end of itself.
    void send(char kind, std::string_view text);
    void flush();
    /// Waits until all tasks with lower ids are done. Answers what the pool has to say then.
    std::string awaitTurn();

private:
    friend class WorkerPool;
    bool receive(char& kind, std::string& text);
    bool nextTask(std::string& text);
    int socket_;
    std::string outgoing_;
    std::deque<std::string> waiting_; ///< tasks that came while this one waited for its turn
};

struct WorkerSettings {
    unsigned workers = 1;
    std::chrono::milliseconds timeout{0}; ///< for one task, without waiting for its turn; 0: none
    /// Runs in each process before its first task; false ends the process.
    std::function<bool()> prepare;
    /// Does a task, in a process of the pool. What it has to say it sends; the last message is the result.
    std::function<void(const Task& task, WorkerLine& line)> work;
};

/// What the pool tells while it runs, in its own process.
struct PoolEvents {
    /// The next task; none when there are no more.
    std::function<std::optional<Task>()> next;
    std::function<void(u64 id, char kind, std::string_view text)> message;
    std::function<void(u64 id)> done;
    /// The task's process ended before the task did. `why` is for the user.
    std::function<void(u64 id, std::string_view why)> lost;
    /// What a task that waited for its turn is told.
    std::function<std::string(u64 id)> turn;
    /// Called now and then; false: no more tasks are handed out.
    std::function<bool()> goOn;
};

class WorkerPool {
public:
    explicit WorkerPool(WorkerSettings settings) : settings_(std::move(settings)) {}
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Hands out tasks until there are none. False with the error pair set when no process can be had, or
    /// they all end before they begin. The calling process must have one thread only.
    bool run(const PoolEvents& events);

    /// What a process ends with when memory ran out.
    static constexpr int kOutOfMemory = 77;

private:
    using Clock = std::chrono::steady_clock;
    struct Worker {
        pid_t process = -1;
        int socket = -1;
        bool ready = false; ///< it said that it is prepared
        bool waitsForTurn = false;
        std::deque<Task> tasks; ///< the first one is being worked on
        Clock::time_point deadline{};
        bool timedOut = false;
        std::string incoming;
    };

    bool start(Worker& worker);
    bool hasMore() const { return more_ || !returned_.empty(); }
    bool anyBusy() const;
    std::optional<Task> nextTask(const PoolEvents& events);
    void begin(Worker& worker) const;
    [[noreturn]] void serve(int socket) const;
    void handOut(Worker& worker, const PoolEvents& events);
    void receive(Worker& worker, const PoolEvents& events);
    void takeMessages(Worker& worker, const PoolEvents& events);
    void finish(Worker& worker, const PoolEvents& events);
    void grantTurns(const PoolEvents& events);
    void checkDeadlines();
    int pollTimeout() const;
    static std::string reasonOf(const Worker& worker, int status);
    void endAll();

    WorkerSettings settings_;
    std::vector<Worker> workers_;
    std::deque<Task> returned_; ///< that waited in a process which ended, in order
    bool more_ = true;
    int failedStarts_ = 0;
};

} // namespace kv
