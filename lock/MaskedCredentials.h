// lock/MaskedCredentials.h: credentials held in memory while locked, never in their plain form.
#pragma once

#include "kdbx/CompositeKey.h"
#include "kdbx/SecureBytes.h"

#include <cstddef>
#include <optional>

namespace quillon::lock {

// Each secret is XORed with a random pad of its own length, kept in a separate allocation, so a scan of
// memory or a stray copy of one buffer does not show the password or key file. This hides them from
// casual reads; it is not encryption against someone who can read the whole process.
class MaskedCredentials {
public:
    MaskedCredentials() = default;
    MaskedCredentials(MaskedCredentials&& other) noexcept;
    MaskedCredentials& operator=(MaskedCredentials&& other) noexcept;
    MaskedCredentials(const MaskedCredentials&) = delete;
    MaskedCredentials& operator=(const MaskedCredentials&) = delete;

    // Replaces whatever was held; an absent password stays absent, an empty one stays empty.
    void store(const kdbx::Credentials& credentials);
    // An unmasked copy for the caller; none when nothing is held.
    std::optional<kdbx::Credentials> reveal() const;
    bool holds() const noexcept { return holds_; }
    // Masked bytes plus pads: zero once wiped.
    std::size_t storedBytes() const noexcept;
    void wipe() noexcept;

private:
    // Tests look at the bytes as memory holds them.
    friend struct MaskedCredentialsInspector;

    struct Masked {
        kdbx::SecureBytes bytes;
        kdbx::SecureBytes pad;
    };
    static Masked mask(const kdbx::SecureBytes& plain);
    static kdbx::SecureBytes unmask(const Masked& masked);

    std::optional<Masked> password_;
    std::optional<Masked> keyFile_;
    bool holds_ = false;
};

} // namespace quillon::lock
