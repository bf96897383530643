#include "lock/PINGate.h"

namespace quillon::lock {

std::optional<std::string> PINGate::refusal(kdbx::ByteView pin, const DuressTest& isDuress)
{
    const std::string_view text(reinterpret_cast<const char*>(pin.data()), pin.size());
    if (countUserCharacters(text) < minimumPINLength)
        return "A PIN needs at least " + std::to_string(minimumPINLength) + " characters.";
    if (isDuress && isDuress(pin))
        return std::string(hintPINIsDuress);
    return std::nullopt;
}

std::string PINGate::wrongTriesHint(int triesLeft)
{
    if (triesLeft == 1)
        return "Wrong. One more try.";
    return "Wrong. " + std::to_string(triesLeft) + " more tries.";
}

void PINGate::windowLocked(const kdbx::Credentials& current)
{
    if (pinLock_)
        pinCredentials_.store(current);
    else
        pinCredentials_.wipe();
}

PINDecision PINGate::enter(kdbx::ByteView entry, const DuressTest& isDuress)
{
    PINDecision decision;
    if (entry.empty())
        return decision;
    if (!pinLock_ || pinLock_->triesLeft < 1) {
        retire();
        decision.action = PINDecision::Action::fallBack;
        decision.hint = hintTooManyTries;
        return decision;
    }
    if (pinLock_->check(entry)) {
        pinLock_->triesLeft = pinTries;
        decision.action = PINDecision::Action::unlock;
        decision.mode = UnlockMode::pin;
        decision.credentials = pinCredentials_.reveal();
        return decision;
    }
    if (isDuress && isDuress(entry)) {
        retire();
        decision.action = PINDecision::Action::unlock;
        decision.mode = UnlockMode::duressAtPIN;
        return decision;
    }
    // No try is spent yet: the entry may be the database password itself.
    decision.action = PINDecision::Action::tryAsPassword;
    decision.mode = UnlockMode::passwordAtPIN;
    return decision;
}

PINFailure PINGate::attemptFailed(UnlockMode mode, bool wrongCredentials)
{
    PINFailure failure;
    switch (mode) {
    case UnlockMode::pin:
    case UnlockMode::duressAtPIN:
        retire();
        failure = {true, true, std::string(hintPINCantOpen)};
        break;
    case UnlockMode::passwordAtPIN:
        if (!wrongCredentials)
            break;
        if (pinLock_ && pinLock_->triesLeft >= 1 && --pinLock_->triesLeft > 0) {
            failure = {true, false, wrongTriesHint(pinLock_->triesLeft)};
            break;
        }
        retire();
        failure = {true, true, std::string(hintTooManyTries)};
        break;
    case UnlockMode::password:
        break;
    }
    return failure;
}

void PINGate::attemptSucceeded(const std::optional<kdbx::SecureBytes>& pendingPIN)
{
    pinCredentials_.wipe();
    if (!pendingPIN)
        return;
    auto made = PINLock::make(pendingPIN->span());
    if (pinLock_)
        pinLock_->wipe();
    pinLock_ = std::move(made);
}

void PINGate::retire() noexcept
{
    if (pinLock_)
        pinLock_->wipe();
    pinLock_.reset();
    pinCredentials_.wipe();
}

} // namespace quillon::lock
