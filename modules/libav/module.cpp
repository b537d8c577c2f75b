// The module's only door: the table of its functions.
#include <algorithm>
#include <cstring>

#include "formats/media/media_module.h"
#include "libav/media_reader.h"
#include "libav/media_writer.h"

namespace kv {
namespace {

void tell(const char* failure, char* message, std::int32_t room) {
    if (room <= 0) return;
    const std::size_t length = std::min(std::strlen(failure), static_cast<std::size_t>(room - 1));
    std::memcpy(message, failure, length);
    message[length] = '\0';
}

/// Nothing is thrown over the border; out of memory is a failure as any other.
template <class Work>
auto guarded(Work work, decltype(work()) onFailure) noexcept {
    try {
        return work();
    } catch (...) {
        return onFailure;
    }
}

/// Makes a reader or a writer and opens it.
template <class T, class Io, class Target>
T* opened(const Io& io, const Target& target, char* message, std::int32_t room) noexcept {
    return guarded(
        [&]() -> T* {
            auto made = std::make_unique<T>(io);
            const char* failure = made->open(target);
            if (!failure) return made.release();
            tell(failure, message, room);
            return nullptr;
        },
        (tell("Out of memory", message, room), nullptr));
}

template <class T>
std::int32_t entry(const std::vector<T>& list, std::int32_t index, T* to) {
    if (index < 0 || static_cast<std::size_t>(index) >= list.size()) return 0;
    *to = list[static_cast<std::size_t>(index)];
    return 1;
}

constexpr MediaModule kModule{
    .version = kMediaModuleVersion,
    .open = [](const MediaInput* input, const char* container, char* message,
               std::int32_t room) { return opened<MediaReader>(*input, container, message, room); },
    .close = [](MediaReader* reader) { delete reader; },
    .trackCount = [](const MediaReader* r) { return static_cast<std::int32_t>(r->tracks().size()); },
    .track = [](const MediaReader* r, std::int32_t i, MediaTrack* to) { return entry(r->tracks(), i, to); },
    .textCount = [](const MediaReader* r) { return static_cast<std::int32_t>(r->texts().size()); },
    .text = [](const MediaReader* r, std::int32_t i, MediaText* to) { return entry(r->texts(), i, to); },
    .chapterCount = [](const MediaReader* r) { return static_cast<std::int32_t>(r->chapters().size()); },
    .chapter = [](const MediaReader* r, std::int32_t i,
                  MediaChapter* to) { return entry(r->chapters(), i, to); },
    .scan = [](MediaReader* r) { return guarded([&] { return r->scan(), 1; }, 0); },
    .start =
        [](MediaReader* r, std::int32_t track) {
            return guarded([&] { return track >= 0 && r->start(static_cast<std::size_t>(track)) ? 1 : 0; },
                           0);
        },
    .decode =
        [](MediaReader* r, void* to, std::int64_t frames) {
            return guarded([&] { return r->decode(to, frames); }, std::int64_t{0});
        },
    .create = [](const MediaOutput* output, const MediaTarget* target, char* message,
                 std::int32_t room) { return opened<MediaWriter>(*output, *target, message, room); },
    .push = [](MediaWriter* w, const void* samples,
               std::int64_t frames) { return guarded([&] { return w->push(samples, frames) ? 1 : 0; }, 0); },
    .finish = [](MediaWriter* w) { return guarded([&] { return w->finish() ? 1 : 0; }, 0); },
    .discard = [](MediaWriter* writer) { delete writer; },
};

} // namespace
} // namespace kv

extern "C" __attribute__((visibility("default"))) const kv::MediaModule* kelvaneMediaModule() {
    constexpr std::size_t kMostOfOneAllocation = 256 << 20; // tables of a hostile file ask for any amount
    av_max_alloc(kMostOfOneAllocation);
    av_log_set_level(AV_LOG_QUIET);
    return &kv::kModule;
}
