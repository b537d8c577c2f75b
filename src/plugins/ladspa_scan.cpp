#include "plugins/ladspa_scan.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>

#include "plugins/effect_wire.h"
#include "plugins/ladspa_description.h"

namespace kv {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr f64 kListedRate = 44100;
constexpr u32 kMaxEffects = 4096;                       ///< of a library
constexpr std::size_t kMaxBytes = std::size_t{1} << 24; ///< of what a library may say of itself

/// What a record starts with.
constexpr char kBegin = 'B';   ///< the number of the library whose turn it is
constexpr char kEffect = 'E';  ///< one of its effects
constexpr char kRefused = 'R'; ///< why it can't be opened
constexpr char kDone = 'D';    ///< all libraries had their turn

// ---- The child

void send(int pipe, char kind, std::string_view contents) {
    const std::string record = fmt::format("{}{}{}", kind, contents, kRecordEnd);
    for (std::size_t sent = 0; sent < record.size();) {
        const ssize_t count = ::write(pipe, record.data() + sent, record.size() - sent);
        if (count <= 0) ::_exit(1);
        sent += static_cast<std::size_t>(count);
    }
}

void tellEffects(int pipe, const std::string& library) {
    const LADSPA_Descriptor_Function descriptorAt = openLadspa(library);
    if (!descriptorAt) {
        const char* const reason = ::dlerror();
        return send(pipe, kRefused, cleanText(reason ? reason : "it has no ladspa_descriptor"));
    }
    for (u32 index = 0; index < kMaxEffects; ++index) {
        const LADSPA_Descriptor* const descriptor = descriptorAt(index);
        if (!descriptor) break;
        const auto effect = describeLadspa(*descriptor, library, index, kListedRate);
        if (effect) send(pipe, kEffect, packEffect(*effect));
    }
}

/// Keeps what a library does to the child itself: no output, no core files, no life after the parent's.
void isolate() {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(nowhere, stream);
}

[[noreturn]] void runChild(int pipe, std::span<const std::string> libraries, std::size_t first) {
    isolate();
    for (std::size_t i = first; i < libraries.size(); ++i) {
        send(pipe, kBegin, std::to_string(i));
        tellEffects(pipe, libraries[i]);
    }
    send(pipe, kDone, {});
    ::_exit(0);
}

// ---- The parent

/// A child that tells the effects of the libraries from `first` on, as far as it gets.
class Scan {
public:
    Scan(std::span<const std::string> libraries, std::size_t first, std::chrono::milliseconds patience,
         EffectList& list)
        : libraries_(libraries), current_(first), patience_(patience), list_(list) {}
    ~Scan();
    Scan(const Scan&) = delete;
    Scan& operator=(const Scan&) = delete;

    /// Answers the number of the first library that had no turn.
    std::size_t run();

private:
    enum class State : u8 { Running, Done, Crashed, Late };

    bool start();
    State receive();
    State take(std::string_view record);
    void finishLibrary();
    void complain(std::string_view what);

    std::span<const std::string> libraries_;
    std::size_t current_;
    std::chrono::milliseconds patience_;
    EffectList& list_;
    pid_t child_ = -1;
    int pipe_ = -1;
    Clock::time_point deadline_;
    std::string buffer_;                   ///< a record that isn't complete
    std::size_t received_ = 0;             ///< bytes about the current library
    std::vector<EffectInfo> effects_ = {}; ///< of the current library
};

Scan::~Scan() {
    if (pipe_ >= 0) ::close(pipe_);
    if (child_ < 0) return;
    ::kill(child_, SIGKILL);
    while (::waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

bool Scan::start() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    child_ = ::fork();
    if (child_ == 0) {
        ::close(ends[0]);
        runChild(ends[1], libraries_, current_);
    }
    ::close(ends[1]);
    pipe_ = ends[0];
    return child_ > 0;
}

void Scan::complain(std::string_view what) {
    list_.problems.push_back(fmt::format("{} {}", libraries_[current_], what));
}

void Scan::finishLibrary() {
    std::move(effects_.begin(), effects_.end(), std::back_inserter(list_.effects));
    effects_.clear();
    received_ = 0;
    deadline_ = Clock::now() + patience_;
}

Scan::State Scan::take(std::string_view record) {
    if (record.empty()) return State::Crashed;
    const std::string_view contents = record.substr(1);
    switch (record[0]) {
        case kBegin: {
            std::size_t number = 0;
            std::from_chars(contents.data(), contents.data() + contents.size(), number);
            if (number < current_ || number >= libraries_.size()) return State::Crashed;
            finishLibrary();
            current_ = number;
            return State::Running;
        }
        case kEffect: {
            std::optional<EffectInfo> effect = unpackEffect(contents);
            if (!effect) return State::Crashed;
            effect->library = libraries_[current_];
            effects_.push_back(std::move(*effect));
            return State::Running;
        }
        case kRefused:
            complain(fmt::format("could not be opened: {}", contents));
            return State::Running;
        case kDone:
            finishLibrary();
            return State::Done;
        default:
            return State::Crashed;
    }
}

/// Waits for some bytes and takes the records that they complete.
Scan::State Scan::receive() {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now());
    if (left.count() <= 0) return State::Late;
    pollfd readable{pipe_, POLLIN, 0};
    if (::poll(&readable, 1, static_cast<int>(left.count())) <= 0) return State::Running;
    std::array<char, 65536> bytes;
    const ssize_t count = ::read(pipe_, bytes.data(), bytes.size());
    if (count <= 0) return count < 0 && errno == EINTR ? State::Running : State::Crashed;
    received_ += static_cast<std::size_t>(count);
    if (received_ > kMaxBytes) return State::Crashed;
    buffer_.append(bytes.data(), static_cast<std::size_t>(count));
    std::size_t start = 0;
    State state = State::Running;
    for (std::size_t end; state == State::Running && (end = buffer_.find(kRecordEnd, start)) != buffer_.npos;
         start = end + 1)
        state = take(std::string_view(buffer_).substr(start, end - start));
    buffer_.erase(0, start);
    return state;
}

std::size_t Scan::run() {
    if (!start()) {
        list_.problems.emplace_back("LADSPA effects could not be looked for: no process could be started");
        return libraries_.size();
    }
    deadline_ = Clock::now() + patience_;
    State state = State::Running;
    while (state == State::Running) state = receive();
    if (state == State::Done) return libraries_.size();
    if (state == State::Late)
        complain(fmt::format("did not tell its effects within {} ms", patience_.count()));
    else
        complain("crashed when it was asked for its effects");
    return current_ + 1;
}

std::vector<fs::path> ladspaFolders() {
    const auto variable = [](const char* name) {
        return std::string(std::getenv(name) ? std::getenv(name) : "");
    };
    const std::string path = variable("LADSPA_PATH");
    std::vector<fs::path> folders;
    for (std::size_t start = 0; start < path.size();) {
        const std::size_t end = std::min(path.find(':', start), path.size());
        if (end > start) folders.emplace_back(path.substr(start, end - start));
        start = end + 1;
    }
    if (!folders.empty()) return folders;
    return {"/usr/lib/ladspa", "/usr/local/lib/ladspa", variable("HOME") + "/.ladspa",
            "/usr/lib/x86_64-linux-gnu/ladspa"};
}

} // namespace

std::vector<std::string> ladspaLibraries() {
    std::vector<std::string> libraries;
    for (const fs::path& folder : ladspaFolders()) {
        std::vector<std::string> found;
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            std::error_code ignored;
            const fs::path file = fs::canonical(entry->path(), ignored);
            if (entry->path().extension() == ".so" && fs::is_regular_file(file, ignored))
                found.push_back(file.string());
        }
        std::sort(found.begin(), found.end());
        for (std::string& file : found) {
            if (std::find(libraries.begin(), libraries.end(), file) == libraries.end())
                libraries.push_back(std::move(file));
        }
    }
    return libraries;
}

EffectList scanLadspa(std::span<const std::string> libraries, std::chrono::milliseconds patience) {
    EffectList list;
    for (std::size_t next = 0; next < libraries.size();) next = Scan(libraries, next, patience, list).run();
    return list;
}

} // namespace kv
