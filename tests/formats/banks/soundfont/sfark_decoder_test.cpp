// sfArk archives of every method against the banks they were made from, and archives that are none.
#include "formats/banks/soundfont/sfark_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

#include "base/run_context.h"
#include "sfark_vectors.h"
#include "test_support.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderCheckAt = 16, kMethodAt = 31, kSizeAt = 4, kFileCheckAt = 12, kNameAt = 42;

struct Vector {
    const char* name;
    std::string_view base64;
    std::size_t size;
    u32 crc; ///< CRC-32 of the bank
};
constexpr std::array<Vector, 6> kVectors{{
    {"method 4", test::kMethod4, 9126, 0x81E3A359},
    {"method 5", test::kMethod5, 9126, 0x81E3A359},
    {"method 6", test::kMethod6, 9126, 0x81E3A359},
    {"method 7", test::kMethod7, 9126, 0x81E3A359},
    {"loud, method 7", test::kLoud, 5834, 0x975E3C60},
    {"no audio", test::kNoAudio, 150, 0x5C8F43DC},
}};

Bytes fromBase64(std::string_view text) {
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    Bytes bytes;
    u32 bits = 0;
    int count = 0;
    for (const char c : text.substr(0, text.find('='))) {
        bits = bits << 6 | static_cast<u32>(kDigits.find(c));
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes.push_back(static_cast<std::byte>(bits >> count));
    }
    return bytes;
}

u32 crc32(ByteSpan bytes) {
    u32 crc = ~0U;
    for (const std::byte byte : bytes) {
        crc ^= std::to_integer<u32>(byte);
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc % 2 != 0 ? 0xEDB88320U : 0);
    }
    return ~crc;
}

struct Result {
    bool whole;
    Bytes bank;
    std::string message;
};

Result unpack(ByteSpan archive) {
    RunContext context;
    const RunContextScope scope(context);
    MemorySink sink;
    const bool whole = sfark_Unpack(archive, sink);
    EXPECT_EQ(context.error.context, whole ? "" : "sfark_Imp");
    return {whole, sink.take(), context.error.message};
}

TEST(Sfark, UnpacksEveryMethodExactly) {
    for (const Vector& vector : kVectors) {
        const Result result = unpack(fromBase64(vector.base64));
        EXPECT_TRUE(result.whole) << vector.name;
        EXPECT_EQ(result.bank.size(), vector.size) << vector.name;
        EXPECT_EQ(crc32(result.bank), vector.crc) << vector.name;
    }
}

TEST(Sfark, FindsTheArchiveBehindAProgram) {
    const Bytes archive = fromBase64(test::kMethod4);
    constexpr std::size_t kFarthest = 128 << 10;
    for (const std::size_t before : {std::size_t{1}, std::size_t{4097}, kFarthest, kFarthest + 1}) {
        Bytes all(before);
        // The program has the letters too, where a header would have them.
        if (before > 64) std::ranges::copy(bytesOf("sfArk"), all.begin() + 26);
        all.insert(all.end(), archive.begin(), archive.end());
        EXPECT_EQ(unpack(all).whole, before <= kFarthest) << before;
    }
}

struct Change {
    const char* name;
    std::size_t at;
    std::string_view bytes;
    const char* message; ///< empty: it is unpacked all the same
};

TEST(Sfark, SaysWhatIsWrong) {
    constexpr const char* kDamaged = "sfArk decompression failed";
    constexpr std::array<Change, 14> kChanges{{
        {"no letters", 26, "sfarK", "Not an sfArk file"},
        {"method 0", kMethodAt, {"\0", 1}, "sfArk v1 files are not supported"},
        {"method 2", kMethodAt, "\2", "sfArk v1 files are not supported"},
        {"method 3", kMethodAt, "\3", "Unsupported sfArk compression"},
        {"method 8", kMethodAt, "\10", "Unsupported sfArk compression"},
        {"method 9", kMethodAt, "\11", "Unknown sfArk compression type"},
        {"another method", kMethodAt, "\6", kDamaged},
        {"wrong header check at the start", kHeaderCheckAt, "xxxx", ""},
        {"wrong file check", kFileCheckAt, "xxxx", kDamaged},
        {"more than it holds", kSizeAt, {"\xA7\x23\0\0", 4}, kDamaged},
        {"less than it holds", kSizeAt, {"\xA5\x23\0\0", 4}, kDamaged},
        {"more than it can hold", kSizeAt, "\xFF\xFF\xFF\xFF", kDamaged},
        {"half a word of audio", 38, {"\x4B\x22\0\0", 4}, kDamaged},
        {"audio that ends before it starts", 38, {"\x40\0\0\0", 4}, kDamaged},
    }};
    for (const Change& change : kChanges) {
        Bytes bytes = fromBase64(test::kMethod4);
        std::ranges::copy(bytesOf(change.bytes), bytes.begin() + static_cast<std::ptrdiff_t>(change.at));
        const Result result = unpack(bytes);
        EXPECT_EQ(result.message, change.message) << change.name;
        EXPECT_EQ(result.whole, result.message.empty()) << change.name;
    }
    EXPECT_EQ(unpack({}).message, "Not an sfArk file");
    Bytes endless = fromBase64(test::kMethod4);
    std::fill(endless.begin() + kNameAt, endless.end(), std::byte{'n'});
    EXPECT_EQ(unpack(endless).message, kDamaged);
}

TEST(Sfark, StopsWhenCancelledOrWhenNothingCanBeWritten) {
    class FullDisk final : public ByteSink {
    public:
        bool write(ByteSpan) override { return false; }
        bool patch(u64, ByteSpan) override { return false; }
        u64 position() const override { return 0; }
    } full;
    const Bytes archive = fromBase64(test::kMethod5);
    RunContext context;
    test::ScriptedUi ui;
    context.ui = &ui;
    const RunContextScope scope(context);
    EXPECT_FALSE(sfark_Unpack(archive, full));
    EXPECT_EQ(context.error.message, "Writing to file failed");
    ui.cancel = true;
    MemorySink sink;
    EXPECT_FALSE(sfark_Unpack(archive, sink));
    EXPECT_EQ(context.error.message, "Cancelled");
}

TEST(Sfark, SurvivesTruncation) {
    for (const Vector& vector : kVectors) {
        const Bytes good = fromBase64(vector.base64);
        // At every byte of the header, and where the packed parts end.
        for (std::size_t n = 0; n < good.size(); n += n < 300 || n + 100 > good.size() ? 1 : 5) {
            // The last word may be padding only.
            const Result result = unpack(ByteSpan(good).first(n));
            EXPECT_TRUE(!result.whole || n + 2 >= good.size()) << vector.name << " cut to " << n;
        }
    }
}

TEST(Sfark, SurvivesFlippedBytes) {
    std::mt19937 random(7);
    for (const Vector& vector : kVectors) {
        const Bytes good = fromBase64(vector.base64);
        for (int round = 0; round < 600; ++round) {
            Bytes bad = good;
            for (auto flips = 1 + random() % 3; flips > 0; --flips) {
                // Half of them in the header and what stands next to it.
                const std::size_t range = std::min<std::size_t>(bad.size(), random() % 2 != 0 ? 120 : ~0U);
                bad[random() % range] ^= static_cast<std::byte>(1U << random() % 8);
            }
            const Result result = unpack(bad);
            EXPECT_LE(result.bank.size(), 4096 * bad.size());
        }
    }
}

} // namespace
} // namespace kv
