#include "ui/OneTimeDisplay.h"

#include "tools/OtpAuthUri.h"

namespace quillon::ui {
namespace {

QString fromUtf8(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace

OneTimeDisplay::OneTimeDisplay(Clock clock) : clock_(std::move(clock)) {}

void OneTimeDisplay::showEntry(std::optional<std::string_view> stored)
{
    showingCode_ = false;
    secretRevealed_ = false;
    codeRevealed_ = false;
    storedChanged(stored);
}

void OneTimeDisplay::storedChanged(std::optional<std::string_view> stored)
{
    stored_.reset();
    totp_.reset();
    if (stored) {
        stored_ = kdbx::SecureBytes::fromText(*stored);
        totp_ = tools::parseOtp(*stored);
    }
    if (!totp_) {
        showingCode_ = false;
        codeRevealed_ = false;
    }
}

void OneTimeDisplay::toggleMode()
{
    if (!showingCode_ && !totp_)
        return;
    showingCode_ = !showingCode_;
    codeRevealed_ = false;
}

void OneTimeDisplay::toggleReveal()
{
    bool& flag = showingCode_ ? codeRevealed_ : secretRevealed_;
    flag = !flag;
}

QString OneTimeDisplay::revealTooltip() const
{
    return (revealed() ? QStringLiteral("Hide ") : QStringLiteral("Show ")) +
           (showingCode_ ? QStringLiteral("code") : QStringLiteral("secret"));
}

QString OneTimeDisplay::copyTooltip() const
{
    return showingCode_ ? QStringLiteral("Copy code") : QStringLiteral("Copy secret");
}

OneTimeDisplay::CodeLabel OneTimeDisplay::codeLabel() const
{
    if (!totp_ || !codeRevealed_)
        return {otpText::hiddenCode, Tone::secondary};
    const double at = now();
    const auto code = tools::totpCode(*totp_, at);
    const auto left = tools::secondsLeftInStep(*totp_, at);
    return {fromUtf8(code.view()) + QStringLiteral("   ") + QString::number(left) + QLatin1Char('s'),
            left <= warningSeconds ? Tone::warning : Tone::normal};
}

std::optional<OneTimeDisplay::Copy> OneTimeDisplay::copy() const
{
    if (!canCopy())
        return std::nullopt;
    if (!showingCode_)
        return Copy{fromUtf8(stored_->view()), secretHold, otpText::secretMode};
    const double at = now();
    const auto code = tools::totpCode(*totp_, at);
    return Copy{fromUtf8(code.view()), std::chrono::seconds(tools::secondsLeftInStep(*totp_, at)), otpText::codeMode};
}

} // namespace quillon::ui
