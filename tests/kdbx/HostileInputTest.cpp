// Files built to hurt: every length at its maximum, huge dictionaries, deep nesting, huge elements and
// key-derivation parameters that would exhaust the machine. Each fails with its fixed message or opens,
// within bounded memory and without overflowing a small stack.
#include "kdbx/Argon2Kdf.h"
#include "kdbx/ByteWriter.h"
#include "kdbx/Gzip.h"
#include "kdbx/KdbxError.h"
#include "kdbx/KdbxFile.h"
#include "kdbx/WipingHeap.h"
#include "tests/support/Helpers.h"
#include "tests/support/TestDb.h"

#include <gmock/gmock.h>

#include <sys/wait.h>
#include <time.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <string>
#include <thread>

using namespace quillon::kdbx;
using quillon::test::onSmallStack;
using quillon::test::passwordOnly;
using quillon::test::tinyDatabase;
using testing::StrEq;
using testing::ThrowsMessage;

namespace {

const std::string unexpectedEndText = "Malformed header: unexpected end of data.";

OuterHeader lightHeader() { return tinyDatabase({.compressed = false})->header; }

InnerHeader sampleInner()
{
    InnerHeader inner;
    inner.streamKey = SecureBytes::from(std::vector<std::uint8_t>(64, 7));
    inner.binaries.push_back({1, SecureBytes::fromText("attachment")});
    inner.unknownFields.push_back({9, {1, 2, 3}});
    return inner;
}

SecureBytes payloadOf(const InnerHeader& inner, std::string_view xml)
{
    SecureBytes payload;
    serialiseInnerHeader(inner, payload);
    payload.append(ByteView(reinterpret_cast<const std::uint8_t*>(xml.data()), xml.size()));
    return payload;
}

std::vector<std::uint8_t> sealXml(std::string_view xml)
{
    return KdbxFile::seal(lightHeader(), passwordOnly("pw"), payloadOf(sampleInner(), xml));
}

void putU32(std::vector<std::uint8_t>& bytes, std::size_t at, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        bytes[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(v >> (8 * i));
}

std::uint32_t getU32(ByteView bytes, std::size_t at) { return loadU32(bytes.subspan(at)); }

// Offsets of the length of every (id, length, data) field from `at` through the end field (id 0).
std::vector<std::size_t> fieldLengthOffsets(ByteView bytes, std::size_t at)
{
    std::vector<std::size_t> out;
    for (;;) {
        const std::uint8_t id = bytes[at];
        out.push_back(at + 1);
        at += 5 + getU32(bytes, at + 1);
        if (id == 0)
            return out;
    }
}

// Opens, saves and opens again on a small stack; returns the counts and the wiping heap's peak growth
// during the first open.
struct RoundTrip {
    DocumentCounts counts;
    std::size_t openPeak = 0;
};
RoundTrip openSaveOpen(const std::vector<std::uint8_t>& file)
{
    RoundTrip out;
    onSmallStack([&] {
        const auto credentials = passwordOnly("pw");
        const std::size_t before = wipingHeapInUse();
        wipingHeapResetPeak();
        auto opened = KdbxFile::open(file, credentials);
        out.openPeak = wipingHeapPeak() - before;
        out.counts = countDocument(opened->document);
        const auto saved = opened->save(credentials);
        opened.reset();
        const auto again = KdbxFile::open(saved, credentials);
        const DocumentCounts counts = countDocument(again->document);
        EXPECT_EQ(counts.entries, out.counts.entries);
        EXPECT_EQ(counts.protectedValues, out.counts.protectedValues);
    });
    return out;
}

TEST(HostileInput, everyLengthAtItsMaximumIsUnexpectedEnd)
{
    const auto credentials = passwordOnly("pw");
    const std::vector<std::uint8_t> file = quillon::test::tinyFile(credentials, {.compressed = false});

    // Outer header fields, the entries of the key-derivation dictionary inside field 11, the first block.
    std::vector<std::size_t> offsets = fieldLengthOffsets(file, 12);
    std::vector<std::size_t> dictionaryOffsets;
    std::size_t headerEnd = 0;
    for (std::size_t at : offsets) {
        const std::size_t fieldStart = at - 1;
        headerEnd = at + 4 + getU32(file, at);
        if (file[fieldStart] != 11)
            continue;
        std::size_t entry = at + 4 + 2;
        while (file[entry] != 0) {
            dictionaryOffsets.push_back(entry + 1);
            const std::size_t valueLength = entry + 5 + getU32(file, entry + 1);
            dictionaryOffsets.push_back(valueLength);
            entry = valueLength + 4 + getU32(file, valueLength);
        }
    }
    offsets.insert(offsets.end(), dictionaryOffsets.begin(), dictionaryOffsets.end());
    offsets.push_back(headerEnd + 64 + 32);
    ASSERT_EQ(offsets.size(), 19u); // 6 header fields, 6 dictionary entries (key and value), 1 block
    for (std::size_t at : offsets) {
        std::vector<std::uint8_t> bad = file;
        putU32(bad, at, 0xFFFFFFFFu);
        EXPECT_THAT([&] { (void)KdbxFile::open(bad, credentials); },
                    ThrowsMessage<KdbxError>(StrEq(unexpectedEndText)))
            << "length at " << at;
    }

    // Inner header fields, inside a correctly sealed payload.
    const SecureBytes payload = payloadOf(sampleInner(), "<KeePassFile/>");
    const auto innerOffsets = fieldLengthOffsets(payload.span(), 0);
    EXPECT_EQ(innerOffsets.size(), 5u);
    for (std::size_t at : innerOffsets) {
        std::vector<std::uint8_t> bad(payload.span().begin(), payload.span().end());
        putU32(bad, at, 0xFFFFFFFFu);
        const auto sealed = KdbxFile::seal(lightHeader(), credentials, SecureBytes::from(bad));
        EXPECT_THAT([&] { (void)KdbxFile::open(sealed, credentials); },
                    ThrowsMessage<KdbxError>(StrEq(unexpectedEndText)))
            << "inner length at " << at;
    }

    // The gzip extra field's 16-bit length.
    std::vector<std::uint8_t> member = gzip(payload.span());
    member[3] = 0x04;
    member.insert(member.begin() + 10, {0xff, 0xff});
    EXPECT_THAT([&] { (void)gunzip(member); }, ThrowsMessage<KdbxError>(StrEq(unexpectedEndText)));
}

TEST(HostileInput, aMillionDictionaryEntries)
{
    std::vector<std::uint8_t> wire = {0x00, 0x01};
    ByteWriter w(wire);
    for (std::uint32_t i = 0; i < 1'000'000; ++i) {
        const std::string key = "k" + std::to_string(i);
        w.u8(0x04);
        w.u32(static_cast<std::uint32_t>(key.size()));
        w.bytes(ByteView(reinterpret_cast<const std::uint8_t*>(key.data()), key.size()));
        w.u32(4);
        w.u32(i);
    }
    w.u8(0);
    const VariantDictionary parsed = parseVariantDictionary(wire);
    EXPECT_EQ(parsed.entries.size(), 1'000'000u);
    EXPECT_EQ(serialiseVariantDictionary(parsed).size(), wire.size());

    // In a header, with no "$UUID" among them: refused before any key derivation.
    OuterHeader header = lightHeader();
    header.kdf = parsed;
    const std::vector<std::uint8_t> file = quillon::test::headerOnlyFile(header);
    EXPECT_THAT([&] { (void)KdbxFile::open(file, passwordOnly("pw")); },
                ThrowsMessage<KdbxError>(StrEq("Unsupported key derivation function (missing). Quillon supports "
                                               "Argon2id and Argon2d. Switch the database to Argon2id in the app "
                                               "that created it, save, and open it again.")));
}

TEST(HostileInput, groupsNestedAHundredThousandDeepOnASmallStack)
{
    constexpr int depth = 100'000;
    std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"yes\"?>\n<KeePassFile><Meta/><Root>";
    for (int i = 0; i < depth; ++i)
        xml += "<Group><Name>g</Name>";
    xml += "<Entry><String><Key>Password</Key><Value Protected=\"True\"></Value></String></Entry>";
    for (int i = 0; i < depth; ++i)
        xml += "</Group>";
    xml += "</Root></KeePassFile>";

    const RoundTrip r = openSaveOpen(sealXml(xml));
    EXPECT_EQ(r.counts.entries, 1u);
    EXPECT_EQ(r.counts.protectedValues, 1u);
    EXPECT_LT(r.openPeak, 12 * xml.size());
}

TEST(HostileInput, aMillionAttributesOnOneElement)
{
    std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"yes\"?>\n<KeePassFile><Root><Group><Entry";
    for (int i = 0; i < 1'000'000; ++i)
        xml += " a" + std::to_string(i) + "=\"x\"";
    xml += "><String><Key>Password</Key><Value Protected=\"True\"";
    for (int i = 0; i < 1000; ++i)
        xml += " b" + std::to_string(i) + "=\"x\"";
    xml += "></Value></String></Entry></Group></Root></KeePassFile>";

    const RoundTrip r = openSaveOpen(sealXml(xml));
    EXPECT_EQ(r.counts.entries, 1u);
    EXPECT_EQ(r.counts.protectedValues, 1u);
    EXPECT_LT(r.openPeak, 12 * xml.size());
}

VariantDictionary argon2id(std::uint64_t memory, std::uint64_t iterations)
{
    static const VariantDictionary base = lightHeader().kdf; // one salt for every call
    VariantDictionary kdf = base;
    kdf.entries["M"] = memory;
    kdf.entries["I"] = iterations;
    return kdf;
}

// Parameters no machine can meet fail at once, before anything is allocated; a derivation that would run
// for hours is abandoned when the caller says so.
TEST(HostileInput, argon2CostsBeyondTheMachine)
{
    const SecureBytes key = SecureBytes::from(std::vector<std::uint8_t>(32, 1));
    EXPECT_THAT([&] { (void)transformKey(key, argon2id(std::uint64_t{1} << 42, 1)); },
                ThrowsMessage<KdbxError>(StrEq("Malformed header: Argon2 parameters out of range.")));
    EXPECT_THAT([&] { (void)transformKey(key, argon2id((std::uint64_t{1} << 42) - 1024, 1)); },
                ThrowsMessage<KdbxError>(StrEq("Argon2 failed with code -22.")));
    EXPECT_THAT([&] { (void)transformKey(key, argon2id(64 * 1024, std::uint64_t{1} << 32)); },
                ThrowsMessage<KdbxError>(StrEq("Malformed header: Argon2 parameters out of range.")));

    // 2^32-1 passes, through the whole open: cancelled, it gives up within moments, and nothing of the
    // derivation runs on, in this process or another.
    OuterHeader header = lightHeader();
    header.kdf = argon2id(8 * 1024, 0xFFFFFFFFu);
    const std::vector<std::uint8_t> file = quillon::test::headerOnlyFile(header);
    std::atomic<bool> cancel{false};
    auto opening = std::async(std::launch::async, [&] { (void)KdbxFile::open(file, passwordOnly("pw"), &cancel); });
    EXPECT_EQ(opening.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    cancel = true;
    ASSERT_EQ(opening.wait_for(std::chrono::seconds(2)), std::future_status::ready);
    EXPECT_THROW(opening.get(), Cancelled);
    EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD) << "a child, running or a zombie, is left";
    const auto processorSeconds = [] {
        timespec t{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
    };
    const double before = processorSeconds();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(processorSeconds() - before, 0.1);
}

} // namespace
