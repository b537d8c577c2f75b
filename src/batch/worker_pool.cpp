#include "batch/worker_pool.h"

#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/bytes.h"
#include "base/run_context.h"

namespace kv {
namespace {

// A message: kind, length of the text, text.
constexpr std::size_t kHeaderBytes = 5;
constexpr std::size_t kLongestText = 64U << 20;

// What a process and the pool say to each other; all other kinds are the task's own.
constexpr char kReady = '+', kTask = 't', kTurn = 'w', kFinished = '.';

constexpr int kMostFailedStarts = 3;

bool sendAll(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

void appendMessage(std::string& out, char kind, std::string_view text) {
    ByteWriter header;
    header.u8le(static_cast<u8>(kind)).u32le(static_cast<u32>(text.size()));
    out += textOf(header.view());
    out += text;
}

bool sendMessage(int socket, char kind, std::string_view text) {
    std::string message;
    appendMessage(message, kind, text);
    return sendAll(socket, message);
}

bool receiveAll(int socket, char* to, std::size_t count) {
    while (count > 0) {
        const ssize_t got = ::recv(socket, to, count, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        to += got;
        count -= static_cast<std::size_t>(got);
    }
    return true;
}

/// The length in a message's head.
std::size_t textBytes(std::string_view header) {
    return loadInteger<u32>(bytesOf(header.substr(1)).first<4>(), std::endian::little);
}

std::string taskText(const Task& task) {
    ByteWriter out;
    out.u64le(task.id).text(task.text);
    return std::string(textOf(out.view()));
}

Task taskOf(std::string_view text) {
    if (text.size() < 8) return {};
    return {loadInteger<u64>(bytesOf(text).first<8>(), std::endian::little), std::string(text.substr(8))};
}

} // namespace

// ---- In the process

void WorkerLine::send(char kind, std::string_view text) {
    appendMessage(outgoing_, kind, text);
}

void WorkerLine::flush() {
    // If the pool is gone nobody waits for the result.
    if (!sendAll(socket_, outgoing_)) ::_exit(0);
    outgoing_.clear();
}

bool WorkerLine::receive(char& kind, std::string& text) {
    char header[kHeaderBytes];
    if (!receiveAll(socket_, header, kHeaderBytes)) return false;
    kind = header[0];
    text.resize(std::min(textBytes({header, kHeaderBytes}), kLongestText));
    return receiveAll(socket_, text.data(), text.size());
}

bool WorkerLine::nextTask(std::string& text) {
    char kind = 0;
    if (waiting_.empty()) return receive(kind, text) && kind == kTask;
    text = std::move(waiting_.front());
    waiting_.pop_front();
    return true;
}

std::string WorkerLine::awaitTurn() {
    send(kTurn, {});
    flush();
    for (;;) {
        char kind = 0;
        std::string text;
        if (!receive(kind, text) || (kind != kTask && kind != kTurn)) ::_exit(0);
        if (kind == kTurn) return text;
        waiting_.push_back(std::move(text));
    }
}

void WorkerPool::serve(int socket) const {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int number : {SIGINT, SIGHUP}) (void)::signal(number, SIG_IGN); // Ctrl-C is for the pool
    (void)::signal(SIGTERM, SIG_DFL);
    WorkerLine line(socket);
    if (!settings_.prepare || settings_.prepare()) {
        line.send(kReady, {});
        line.flush();
        std::string text;
        while (line.nextTask(text)) {
            settings_.work(taskOf(text), line);
            line.send(kFinished, {});
            line.flush();
        }
    }
    ::_exit(0);
}

// ---- In the pool

WorkerPool::~WorkerPool() {
    endAll();
}

bool WorkerPool::start(Worker& worker) {
    int sockets[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0)
        return Fail("batch", "Could not start a process: {}", std::strerror(errno));
    (void)std::fflush(nullptr);
    const pid_t process = ::fork();
    if (process == 0) {
        for (const Worker& other : workers_) {
            if (other.socket >= 0) ::close(other.socket);
        }
        ::close(sockets[0]);
        serve(sockets[1]);
    }
    ::close(sockets[1]);
    if (process < 0) {
        ::close(sockets[0]);
        return Fail("batch", "Could not start a process: {}", std::strerror(errno));
    }
    worker = Worker();
    worker.process = process;
    worker.socket = sockets[0];
    return true;
}

bool WorkerPool::anyBusy() const {
    return std::any_of(workers_.begin(), workers_.end(),
                       [](const Worker& worker) { return !worker.tasks.empty(); });
}

std::optional<Task> WorkerPool::nextTask(const PoolEvents& events) {
    if (!returned_.empty()) {
        Task task = std::move(returned_.front());
        returned_.pop_front();
        return task;
    }
    std::optional<Task> task = more_ ? events.next() : std::nullopt;
    if (!task) more_ = false;
    return task;
}

/// The process goes on to the first of its tasks.
void WorkerPool::begin(Worker& worker) const {
    worker.waitsForTurn = false;
    worker.deadline = Clock::now() + settings_.timeout;
}

/// Keeps one task waiting behind the one in hand, so that the process need not wait for the pool.
void WorkerPool::handOut(Worker& worker, const PoolEvents& events) {
    while (hasMore() && worker.ready && worker.tasks.size() < 2) {
        std::optional<Task> task = nextTask(events);
        if (!task) return;
        (void)sendMessage(worker.socket, kTask, taskText(*task)); // its end shows on the line
        worker.tasks.push_back(std::move(*task));
        if (worker.tasks.size() == 1) begin(worker);
    }
}

/// The lowest of the tasks in hand may go on if it waits.
void WorkerPool::grantTurns(const PoolEvents& events) {
    Worker* first = nullptr;
    for (Worker& worker : workers_) {
        if (!worker.tasks.empty() && (!first || worker.tasks.front().id < first->tasks.front().id))
            first = &worker;
    }
    if (!first || !first->waitsForTurn) return;
    const u64 task = first->tasks.front().id;
    if (!returned_.empty() && returned_.front().id < task) return;
    begin(*first);
    (void)sendMessage(first->socket, kTurn, events.turn(task));
}

void WorkerPool::takeMessages(Worker& worker, const PoolEvents& events) {
    std::size_t at = 0;
    while (worker.incoming.size() - at >= kHeaderBytes) {
        const std::string_view rest = std::string_view(worker.incoming).substr(at);
        const std::size_t bytes = textBytes(rest.substr(0, kHeaderBytes));
        if (bytes > kLongestText) {
            ::kill(worker.process, SIGKILL); // talks nonsense
            break;
        }
        if (rest.size() - kHeaderBytes < bytes) break;
        at += kHeaderBytes + bytes;
        switch (rest[0]) {
            case kReady:
                worker.ready = true;
                failedStarts_ = 0;
                break;
            case kTurn:
                worker.waitsForTurn = true;
                break;
            case kFinished:
                if (worker.tasks.empty()) break;
                events.done(worker.tasks.front().id);
                worker.tasks.pop_front();
                begin(worker);
                break;
            default:
                if (!worker.tasks.empty())
                    events.message(worker.tasks.front().id, rest[0], rest.substr(kHeaderBytes, bytes));
                break;
        }
    }
    worker.incoming.erase(0, at);
}

std::string WorkerPool::reasonOf(const Worker& worker, int status) {
    if (worker.timedOut) return "It took longer than the time limit";
    if (WIFEXITED(status) && WEXITSTATUS(status) == kOutOfMemory)
        return "It needs more memory than the limit";
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) return "The process was killed";
    if (WIFSIGNALED(status)) return fmt::format("The process crashed ({})", ::strsignal(WTERMSIG(status)));
    return fmt::format("The process ended with status {}", WIFEXITED(status) ? WEXITSTATUS(status) : status);
}

/// Its line is closed: the process has ended or is about to.
void WorkerPool::finish(Worker& worker, const PoolEvents& events) {
    int status = 0;
    while (::waitpid(worker.process, &status, 0) < 0 && errno == EINTR) {
    }
    ::close(worker.socket);
    worker.socket = -1;
    if (!worker.ready) ++failedStarts_;
    if (worker.tasks.empty()) return;
    events.lost(worker.tasks.front().id, reasonOf(worker, status));
    worker.tasks.pop_front();
    for (Task& task : worker.tasks) returned_.push_back(std::move(task));
    std::sort(returned_.begin(), returned_.end(), [](const Task& a, const Task& b) { return a.id < b.id; });
    worker.tasks.clear();
}

void WorkerPool::receive(Worker& worker, const PoolEvents& events) {
    char block[65536];
    const ssize_t got = ::recv(worker.socket, block, sizeof(block), MSG_DONTWAIT);
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (got > 0) {
        worker.incoming.append(block, static_cast<std::size_t>(got));
        takeMessages(worker, events);
        return;
    }
    finish(worker, events);
}

void WorkerPool::checkDeadlines() {
    if (settings_.timeout.count() == 0) return;
    const Clock::time_point now = Clock::now();
    for (Worker& worker : workers_) {
        if (worker.tasks.empty() || worker.waitsForTurn || worker.timedOut || now < worker.deadline) continue;
        worker.timedOut = true;
        ::kill(worker.process, SIGKILL);
    }
}

int WorkerPool::pollTimeout() const {
    constexpr i64 kLongest = 200; // ms, so that a stop is seen
    i64 wait = kLongest;
    for (const Worker& worker : workers_) {
        if (settings_.timeout.count() == 0 || worker.tasks.empty() || worker.waitsForTurn) continue;
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(worker.deadline - Clock::now()).count() + 1;
        wait = std::clamp<i64>(left, 0, wait);
    }
    return static_cast<int>(wait);
}

bool WorkerPool::run(const PoolEvents& events) {
    workers_.assign(std::max(settings_.workers, 1U), {});
    more_ = true;
    std::vector<pollfd> lines;
    for (;;) {
        if (more_ && !events.goOn()) more_ = false;
        for (Worker& worker : workers_) {
            if (worker.socket < 0 && hasMore() && failedStarts_ < kMostFailedStarts && !start(worker))
                return false;
            handOut(worker, events);
        }
        grantTurns(events);
        if (!hasMore() && !anyBusy()) break;
        if (!anyBusy() && failedStarts_ >= kMostFailedStarts)
            return Fail("batch", "The processes that are to do the work end before they begin");

        lines.clear();
        for (const Worker& worker : workers_) lines.push_back({worker.socket, POLLIN, 0});
        if (::poll(lines.data(), lines.size(), pollTimeout()) > 0) {
            for (std::size_t i = 0; i < lines.size(); ++i) {
                if (lines[i].fd >= 0 && lines[i].revents != 0) receive(workers_[i], events);
            }
        }
        checkDeadlines();
    }
    endAll();
    return true;
}

void WorkerPool::endAll() {
    for (Worker& worker : workers_) {
        if (worker.socket < 0) continue;
        ::close(worker.socket); // an idle process ends on this
        worker.socket = -1;
        if (!worker.tasks.empty()) ::kill(worker.process, SIGKILL);
        while (::waitpid(worker.process, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
}

} // namespace kv
