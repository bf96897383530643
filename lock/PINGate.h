// lock/PINGate.h: the PIN screen's rules: which entry opens what, and what a wrong one costs.
#pragma once

#include "kdbx/CompositeKey.h"
#include "kdbx/SecureBytes.h"
#include "lock/DuressRules.h"
#include "lock/MaskedCredentials.h"
#include "lock/PINLock.h"
#include "lock/UnlockMode.h"

#include <optional>
#include <string>

namespace quillon::lock {

// What the PIN screen does with an entry.
struct PINDecision {
    enum class Action : std::uint8_t {
        none,          // empty entry: nothing happens
        unlock,        // run an attempt in `mode`; `credentials` are set for mode pin, absent for duressAtPIN
        tryAsPassword, // mode passwordAtPIN: the caller makes credentials from the text and its key file
        fallBack,      // the PIN is gone: show the password screen with `hint`
    };
    Action action = Action::none;
    UnlockMode mode = UnlockMode::password;
    std::optional<kdbx::Credentials> credentials;
    std::string hint;
};

// What a failed attempt leads to. When not handled, the failure is shown as an ordinary password failure.
struct PINFailure {
    bool handled = false;
    bool fallBack = false; // the PIN is gone and the screen returns to password mode
    std::string hint;
};

// A window's PIN lock and the credentials it guards while the window is locked.
//
// What the PIN protects: the window's already-decoded credentials, held in memory (masked) so that a short
// PIN can release them again, with three wrong tries before they are dropped. It is a gate in front of
// those credentials, not encryption: nothing is derived from the PIN, the database file is unchanged,
// and anyone who can read this process's memory can recover the credentials without the PIN. It lasts
// only as long as the process and the window's location.
class PINGate {
public:
    PINGate() = default;
    PINGate(PINGate&&) noexcept = default;
    PINGate& operator=(PINGate&&) noexcept = default;
    PINGate(const PINGate&) = delete;
    PINGate& operator=(const PINGate&) = delete;
    // A window that goes away takes its PIN lock and held credentials with it, wiped.
    ~PINGate() { retire(); }

    // The hint that refuses a candidate PIN, or none when it may be used.
    static std::optional<std::string> refusal(kdbx::ByteView pin, const DuressTest& isDuress);
    static std::string wrongTriesHint(int triesLeft);

    const std::optional<PINLock>& pinLock() const noexcept { return pinLock_; }
    bool holdsCredentials() const noexcept { return pinCredentials_.holds(); }
    std::size_t heldBytes() const noexcept { return pinCredentials_.storedBytes(); }
    // The screen asks for a PIN only when there is both a lock and something for it to release.
    bool isPINMode() const noexcept { return pinLock_.has_value() && pinCredentials_.holds(); }

    // The window locks: with a PIN set its credentials are held (masked); without one nothing is kept.
    void windowLocked(const kdbx::Credentials& current);
    // An entry on the PIN screen, checked as the PIN first, then as the duress password.
    PINDecision enter(kdbx::ByteView entry, const DuressTest& isDuress);
    PINFailure attemptFailed(UnlockMode mode, bool wrongCredentials);
    // Held credentials are dropped; a pending PIN of enough characters becomes the new lock, a shorter
    // one removes it.
    void attemptSucceeded(const std::optional<kdbx::SecureBytes>& pendingPIN);
    // Removes the lock and wipes the held credentials (three wrong tries, duress, another location, …).
    void retire() noexcept;

private:
    std::optional<PINLock> pinLock_;
    MaskedCredentials pinCredentials_;
};

inline constexpr std::string_view hintTooManyTries = "Too many wrong tries. Enter the password.";
inline constexpr std::string_view hintPINCantOpen = "The PIN can't open it now. Enter the password.";
inline constexpr std::string_view hintPINIsDuress = "That's the duress password. Choose another PIN.";

} // namespace quillon::lock
