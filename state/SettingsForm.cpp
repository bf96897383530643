#include "state/SettingsForm.h"

#include "kdbx/Crypto.h"
#include "kdbx/Identifiers.h"
#include "state/Preferences.h"

#include <string>

namespace quillon::state {

namespace {

QString number(std::uint64_t value) { return QString::number(value); }

} // namespace

QString settingsText::belowRecommended()
{
    return QStringLiteral("Below the recommended %1 MB.").arg(recommendedMemoryMiB);
}

SettingsForm SettingsForm::load(const kdbx::OuterHeader& header, const model::Document& document,
                                const Preferences& preferences)
{
    SettingsForm form;
    form.cipher = kdbx::isIdentifier(header.cipher, kdbx::cipherChaCha20) ? chaCha20 : aes256;
    const auto* kdfId = header.kdf.get<std::vector<std::uint8_t>>("$UUID");
    form.kdf = kdfId && kdbx::isIdentifier(*kdfId, kdbx::kdfArgon2d) ? argon2d : argon2id;
    if (const auto* m = header.kdf.get<std::uint64_t>("M"))
        form.memory = number(*m >> 20);
    if (const auto* i = header.kdf.get<std::uint64_t>("I"))
        form.iterations = number(*i);
    if (const auto* p = header.kdf.get<std::uint32_t>("P"))
        form.parallelism = number(*p);

    const auto limit = document.historyMaxItems();
    form.historyUnlimited = limit == -1;
    if (!form.historyUnlimited)
        form.historyField = QString::number(limit);

    form.autoLock = QString::number(preferences.idleLockMinutes());
    form.reopenLast = preferences.reopenLastDatabase();
    form.duressStored_ = preferences.hasDuressPassword();
    form.updateWarning();
    return form;
}

void SettingsForm::updateWarning()
{
    const auto mebibytes = parseDecimal(memory);
    if (!mebibytes || *mebibytes < warningFloorMiB)
        warning = settingsText::lowMemory;
    else if (*mebibytes < recommendedMemoryMiB)
        warning = settingsText::belowRecommended();
    else
        warning.clear();
}

void SettingsForm::useRecommended()
{
    memory = QString::number(recommendedMemoryMiB);
    iterations = QString::number(recommendedIterations);
    parallelism = QString::number(recommendedThreads);
    kdf = argon2id;
    cipher = aes256;
    updateWarning();
}

QString SettingsForm::duressStatus() const
{
    switch (duressChange_) {
    case DuressChange::set:
        return settingsText::duressSetOnApply;
    case DuressChange::remove:
        return settingsText::duressRemovedOnApply;
    case DuressChange::none:
        break;
    }
    return duressStored_ ? settingsText::duressSet : settingsText::duressNotSet;
}

std::optional<QString> SettingsForm::chooseDuress(kdbx::SecureBytes first, const kdbx::SecureBytes& second)
{
    if (!kdbx::constantTimeEqual(first.span(), second.span()))
        return settingsText::duressMismatch;
    // An empty duress password is none at all.
    if (first.empty()) {
        removeDuress();
        return std::nullopt;
    }
    pendingDuress_ = std::move(first);
    duressChange_ = DuressChange::set;
    return std::nullopt;
}

void SettingsForm::removeDuress()
{
    pendingDuress_.wipe();
    duressChange_ = DuressChange::remove;
}

model::DatabaseSettings SettingsForm::databaseSettings() const
{
    model::DatabaseSettings out;
    out.cipher = cipher == chaCha20 ? model::Cipher::chaCha20 : model::Cipher::aes256;
    out.kdf = kdf == argon2d ? model::Kdf::argon2d : model::Kdf::argon2id;
    out.memoryMiB = model::memoryMiBRange.valueOf(parseDecimal(memory));
    out.iterations = model::iterationsRange.valueOf(parseDecimal(iterations));
    out.threads = model::threadsRange.valueOf(parseDecimal(parallelism));
    out.unlimitedHistory = historyUnlimited;
    if (!historyUnlimited)
        out.historyMaxItems = parseDecimal(historyField);
    return out;
}

bool SettingsForm::apply(kdbx::OuterHeader& header, model::Document& document, Preferences& preferences)
{
    databaseSettings().applyTo(header, document);
    return applyPreferences(preferences);
}

bool SettingsForm::applyPreferences(Preferences& preferences)
{
    preferences.setIdleLockMinutes(static_cast<int>(autoLockRange.valueOf(parseDecimal(autoLock))));
    preferences.setReopenLastDatabase(reopenLast);

    bool written = true;
    switch (duressChange_) {
    case DuressChange::set:
        written = preferences.setDuressPassword(&pendingDuress_);
        break;
    case DuressChange::remove:
        written = preferences.setDuressPassword(nullptr);
        break;
    case DuressChange::none:
        break;
    }
    if (written && duressChange_ != DuressChange::none)
        duressStored_ = duressChange_ == DuressChange::set;
    pendingDuress_.wipe();
    duressChange_ = DuressChange::none;
    return written;
}

} // namespace quillon::state
