// ui/OneTimeDisplay.h: what the one-time-password panel shows (secret or code, reveal, countdown) and copies.
#pragma once

#include "tools/TOTP.h"

#include <QString>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace quillon::ui {

namespace otpText {
inline const QString codeMode = QStringLiteral("Code");
inline const QString secretMode = QStringLiteral("Secret");
inline const QString hiddenCode = QStringLiteral("\u2022\u2022\u2022\u2022\u2022\u2022");
inline const QString placeholder = QStringLiteral("otpauth:// address or base32 secret");
inline const QString notACode = QStringLiteral("This text is not a one-time password setting");
} // namespace otpText

// The panel's state: secret mode (the default) or code mode, each with its own reveal flag. Switching modes
// hides the code again. Time comes from the clock given, so that tests move it.
class OneTimeDisplay {
public:
    enum class Tone : std::uint8_t { secondary, normal, warning };
    struct CodeLabel {
        QString text;
        Tone tone;
    };
    struct Copy {
        QString text;
        std::chrono::seconds hold;
        QString what; // "Code" or "Secret"
    };
    static constexpr std::int64_t warningSeconds = 5;
    static constexpr std::chrono::seconds secretHold{15};

    // Seconds since 1970.
    using Clock = std::function<double()>;
    explicit OneTimeDisplay(Clock clock);

    // Another entry: back to secret mode with nothing revealed. None: the entry has no "otp" field.
    void showEntry(std::optional<std::string_view> stored);
    // The same entry's field changed: modes stay, unless there is no longer a code to show.
    void storedChanged(std::optional<std::string_view> stored);

    // The stored text parses, so a code can be shown.
    bool hasCode() const noexcept { return totp_.has_value(); }
    bool showingCode() const noexcept { return showingCode_; }
    bool secretRevealed() const noexcept { return secretRevealed_; }
    bool codeRevealed() const noexcept { return codeRevealed_; }
    // The flag of the mode shown.
    bool revealed() const noexcept { return showingCode_ ? codeRevealed_ : secretRevealed_; }

    void toggleMode();
    void toggleReveal();

    // Names the other mode.
    QString modeTitle() const { return showingCode_ ? otpText::secretMode : otpText::codeMode; }
    // "Show secret", "Hide code", …; the button shows "eye" while hidden and "eye.slash" while shown.
    QString revealTooltip() const;
    QString copyTooltip() const;
    // In code mode: the dots, or the code, three spaces and the seconds left ("123456   17s").
    CodeLabel codeLabel() const;
    // The label must be redrawn every second.
    bool needsTicking() const noexcept { return showingCode_ && codeRevealed_ && totp_; }

    bool canCopy() const noexcept { return showingCode_ ? totp_.has_value() : (secretRevealed_ && stored_.has_value()); }
    // The code at this instant, held for the seconds left in its step; or the stored text while revealed.
    std::optional<Copy> copy() const;

private:
    double now() const { return clock_(); }

    Clock clock_;
    std::optional<tools::TOTP> totp_;
    std::optional<kdbx::SecureBytes> stored_;
    bool showingCode_ = false;
    bool secretRevealed_ = false;
    bool codeRevealed_ = false;
};

} // namespace quillon::ui
