// lock/DuressRules.h: where the duress password takes the place of a real one, and where it may not.
#pragma once

#include "kdbx/SecureBytes.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quillon::lock {

// Whether a text is the duress password (the record lives in the preferences, above this layer).
using DuressTest = std::function<bool(kdbx::ByteView text)>;

// On the password screen, a failure for wrong credentials whose text is the duress password opens the
// decoy instead. The real database is tried first, so one whose password is the duress password opens
// for real; the slow duress check runs only after such a failure.
bool decoyInstead(bool wrongCredentials, kdbx::ByteView text, const DuressTest& isDuress);

// A database password may not be the duress password: that would make the decoy unreachable and the
// real database open under duress. None when the new password may be used.
std::optional<std::string> newPasswordRefusal(kdbx::ByteView newPassword, const DuressTest& isDuress);

inline constexpr std::string_view refusalPasswordIsDuress = "That's the duress password. Choose a different one.";

} // namespace quillon::lock
