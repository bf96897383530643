#include "kdbx/Encoding.h"
#include "lock/DuressRecord.h"
#include "lock/DuressRules.h"
#include "tests/support/Helpers.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace quillon;
using quillon::kdbx::ByteView;
using quillon::lock::DuressRecord;

namespace {

using quillon::test::viewOf;

TEST(DuressRecord, matchesOnlyItsPassword)
{
    const auto record = DuressRecord::make(viewOf("correct horse"));
    ASSERT_EQ(record.size(), 48u);
    EXPECT_TRUE(DuressRecord::check(record, viewOf("correct horse")));
    for (const char* other : {"", "correct hors", "correct horsf", "Correct horse", "correct horse "})
        EXPECT_FALSE(DuressRecord::check(record, viewOf(other))) << '"' << other << '"';
    EXPECT_FALSE(DuressRecord::check(record, record));
    EXPECT_EQ(std::search(record.begin(), record.end(), viewOf("correct horse").begin(), viewOf("correct horse").end()),
              record.end());

    const auto again = DuressRecord::make(viewOf("correct horse"));
    EXPECT_NE(record, again);
    EXPECT_TRUE(DuressRecord::check(again, viewOf("correct horse")));
}

// An Argon2id output computed by argon2-cffi proves the parameters: 2 passes, 16 MiB, 1 lane, version 0x13.
TEST(DuressRecord, agreesWithAnIndependentArgon2id)
{
    std::vector<std::uint8_t> record(16);
    for (std::size_t i = 0; i < record.size(); ++i)
        record[i] = static_cast<std::uint8_t>(i);
    const auto hash = kdbx::hexDecode("50d5c4c2a679ca76d8c99f6db1b4e107b5c27cd480f5f5533c9d72ff3a62d76c");
    ASSERT_TRUE(hash);
    record.insert(record.end(), hash->begin(), hash->end());
    EXPECT_TRUE(DuressRecord::check(record, viewOf("correct horse")));
}

TEST(DuressRecord, malformedRecordsNeverMatch)
{
    const auto record = DuressRecord::make(viewOf("pw"));
    std::vector<std::vector<std::uint8_t>> broken = {
        {}, {record.begin(), record.end() - 1}, {record.begin() + 1, record.end()}, record};
    broken.back().push_back(0);
    auto flipped = record;
    flipped[40] ^= 1;
    broken.push_back(flipped);
    for (const auto& bad : broken)
        EXPECT_FALSE(DuressRecord::check(bad, viewOf("pw"))) << bad.size() << " bytes";
}

TEST(DuressRules, theDecoyReplacesOnlyAWrongCredentialsFailure)
{
    const auto record = DuressRecord::make(viewOf("help me"));
    int checks = 0;
    const lock::DuressTest counted = [&](ByteView text) {
        ++checks;
        return DuressRecord::check(record, text);
    };
    EXPECT_TRUE(lock::decoyInstead(true, viewOf("help me"), counted));
    EXPECT_FALSE(lock::decoyInstead(true, viewOf("help m"), counted));
    EXPECT_EQ(checks, 2);
    // A damaged file is reported as it is, without even the slow check; no duress password, no decoy.
    EXPECT_FALSE(lock::decoyInstead(false, viewOf("help me"), counted));
    EXPECT_EQ(checks, 2);
    EXPECT_FALSE(lock::decoyInstead(true, viewOf("help me"), nullptr));
}

TEST(DuressRules, theDuressPasswordCannotBecomeADatabasePassword)
{
    const auto record = DuressRecord::make(viewOf("help me"));
    const lock::DuressTest isDuress = [&](ByteView text) { return DuressRecord::check(record, text); };
    EXPECT_EQ(lock::newPasswordRefusal(viewOf("help me"), isDuress),
              "That's the duress password. Choose a different one.");
    EXPECT_FALSE(lock::newPasswordRefusal(viewOf("help me!"), isDuress));
    EXPECT_FALSE(lock::newPasswordRefusal(viewOf(""), isDuress));
    EXPECT_FALSE(lock::newPasswordRefusal(viewOf("help me"), nullptr));
}

} // namespace
