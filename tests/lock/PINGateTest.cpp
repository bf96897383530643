#include "lock/PINGate.h"
#include "tests/support/Helpers.h"

#include <gtest/gtest.h>

using namespace quillon;
using quillon::kdbx::ByteView;
using quillon::lock::PINDecision;
using quillon::lock::PINGate;
using quillon::lock::UnlockMode;

namespace {

using quillon::test::viewOf;

const lock::DuressTest duress = [](ByteView text) {
    return std::string_view(reinterpret_cast<const char*>(text.data()), text.size()) == "help me";
};

kdbx::Credentials databaseCredentials()
{
    kdbx::Credentials c;
    c.password = kdbx::SecureBytes::fromText("database password");
    c.keyFile = kdbx::SecureBytes::fromText("key file bytes");
    return c;
}

// A window unlocked with a pending PIN of "2468", then locked.
PINGate lockedWithPIN()
{
    PINGate gate;
    gate.attemptSucceeded(kdbx::SecureBytes::fromText("2468"));
    gate.windowLocked(databaseCredentials());
    return gate;
}

void expectGone(const PINGate& gate)
{
    EXPECT_FALSE(gate.pinLock());
    EXPECT_FALSE(gate.holdsCredentials());
    EXPECT_EQ(gate.heldBytes(), 0u);
    EXPECT_FALSE(gate.isPINMode());
}

TEST(PINGate, rightPINOpensAgainAndAgain)
{
    auto gate = lockedWithPIN();
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(gate.isPINMode());
        auto decision = gate.enter(viewOf("2468"), duress);
        ASSERT_EQ(decision.action, PINDecision::Action::unlock);
        EXPECT_EQ(decision.mode, UnlockMode::pin);
        ASSERT_TRUE(decision.credentials && decision.credentials->password && decision.credentials->keyFile);
        EXPECT_EQ(decision.credentials->password->view(), "database password");
        EXPECT_EQ(decision.credentials->keyFile->view(), "key file bytes");
        gate.attemptSucceeded(std::nullopt);
        EXPECT_FALSE(gate.holdsCredentials()); // released, not kept while unlocked
        gate.windowLocked(databaseCredentials());
    }
}

TEST(PINGate, onlyAWrongPasswordCostsATry)
{
    // A failure other than wrong credentials (a damaged file) is an ordinary password failure.
    auto gate = lockedWithPIN();
    gate.enter(viewOf("0000"), duress);
    const auto other = gate.attemptFailed(UnlockMode::passwordAtPIN, false);
    EXPECT_FALSE(other.handled);
    EXPECT_EQ(gate.pinLock()->triesLeft, 3);
    EXPECT_TRUE(gate.isPINMode());

    EXPECT_EQ(gate.enter({}, duress).action, PINDecision::Action::none);
    EXPECT_EQ(gate.pinLock()->triesLeft, 3);
}

TEST(PINGate, aPINEqualToALaterDuressPasswordStillOpensTheRealDatabase)
{
    PINGate gate;
    gate.attemptSucceeded(kdbx::SecureBytes::fromText("help me"));
    gate.windowLocked(databaseCredentials());
    EXPECT_EQ(gate.enter(viewOf("help me"), duress).mode, UnlockMode::pin);
}

TEST(PINGate, failuresOfHeldCredentialsFallBackToThePassword)
{
    for (auto mode : {UnlockMode::pin, UnlockMode::duressAtPIN}) {
        auto gate = lockedWithPIN();
        const auto failure = gate.attemptFailed(mode, true);
        EXPECT_TRUE(failure.handled && failure.fallBack);
        EXPECT_EQ(failure.hint, "The PIN can't open it now. Enter the password.");
        expectGone(gate);
    }
    auto gate = lockedWithPIN();
    EXPECT_FALSE(gate.attemptFailed(UnlockMode::password, true).handled);
    EXPECT_TRUE(gate.isPINMode());
}

TEST(PINGate, lockingKeepsCredentialsOnlyWithAPINAndAShortPendingPINRemovesIt)
{
    PINGate gate;
    gate.windowLocked(databaseCredentials());
    expectGone(gate);

    gate = lockedWithPIN();
    ASSERT_TRUE(gate.isPINMode());
    gate.attemptSucceeded(kdbx::SecureBytes::fromText("12"));
    expectGone(gate);

    gate = lockedWithPIN();
    gate.retire();
    expectGone(gate);
    EXPECT_EQ(gate.enter(viewOf("2468"), duress).action, PINDecision::Action::fallBack);
}

} // namespace
