// The lock and unlock half of DatabaseSession: locking, the unlock screen's states, and decoding off the main
// thread.
#include "state/DatabaseSession.h"

#include "kdbx/Argon2Kdf.h"
#include "kdbx/KdbxError.h"
#include "state/UnlockTexts.h"

#include <QMetaObject>

namespace quillon::state {

struct DatabaseSession::AttemptResult {
    std::unique_ptr<kdbx::KdbxFile> file;
    std::unique_ptr<Prepared> prepared;
    std::optional<files::DiskStamp> stamp;
    std::vector<std::uint8_t> bytes; // from the file: kept, encrypted, as the version later merges start from
    bool decoy = false;
    bool wrongCredentials = false;
    QString error;
};

namespace {

struct AttemptJob {
    UnlockSource source = UnlockSource::file;
    std::filesystem::path location;
    std::vector<std::uint8_t> snapshot; // sealed: nothing readable
    kdbx::Credentials credentials;
    kdbx::SecureBytes typed; // for the duress check after a wrong password
    lock::UnlockMode mode = lock::UnlockMode::password;
    lock::DuressTest isDuress;
    model::Document::Clock clock;
    std::shared_ptr<std::atomic<bool>> cancel;
};

std::unique_ptr<kdbx::KdbxFile> decoy()
{
    return kdbx::KdbxFile::newDatabase();
}

} // namespace

QString DatabaseSession::lockedTitle() const
{
    return (location_ ? displayName() : unlockText::untitledDatabase) + unlockText::lockedSuffix;
}

QString DatabaseSession::idleHintFor(UnlockSource source) const
{
    if (pinGate_.isPINMode())
        return unlockText::hintPIN;
    return source == UnlockSource::snapshot ? unlockText::hintSnapshot : unlockText::hintFile;
}

void DatabaseSession::noteActivity()
{
    lastActivity_ = services_.clock();
}

void DatabaseSession::checkIdle(int idleLockMinutes)
{
    if (idleLockMinutes < 1 || !document_ || isLocked())
        return;
    if (services_.clock() - lastActivity_ >= std::chrono::minutes(idleLockMinutes))
        lock();
}

void DatabaseSession::lock()
{
    if (saving_) {
        lockAfterSave_ = true; // what is being written stays whole; the lock follows at once
        return;
    }
    if (lockedSnapshot_ || !document_ || !credentials_ || isLocked())
        return;
    pinGate_.windowLocked(*credentials_);
    if (isDecoy_) {
        // A decoy is never sealed: the real database's held state comes back, or its file.
        isDecoy_ = false;
        if (heldSnapshot_) {
            auto bytes = std::move(*heldSnapshot_);
            heldSnapshot_.reset();
            lockWithSnapshot(std::move(bytes));
        } else {
            lockToFile();
        }
        return;
    }
    if (!isDirty() && location_) {
        lockToFile();
        return;
    }
    try {
        lockWithSnapshot(kdbx().save(*credentials_));
    } catch (const std::exception &error) {
        if (!isDirty() && location_) {
            lockToFile();
            return;
        }
        lastActivity_ = services_.clock();
        Q_EMIT alert(unlockText::lockFailed.arg(QString::fromUtf8(error.what())));
    }
}

void DatabaseSession::lockToFile()
{
    Q_EMIT clipboardClearRequested();
    showLockedFile();
}

void DatabaseSession::showLockedFile()
{
    dropDocument();
    keptStamp_.reset();
    lastBytes_.reset();
    lastCredentials_.reset();
    lockedSnapshot_.reset();
    heldSnapshot_.reset();
    isDecoy_ = false;
    undo_.clear();
    undo_.markSaved();
    showUnlockScreen(UnlockSource::file, lockedTitle());
    dirtyMaybeChanged();
    Q_EMIT undoStateChanged();
    Q_EMIT lockedChanged(true);
}

void DatabaseSession::lockWithSnapshot(std::vector<std::uint8_t> bytes)
{
    Q_EMIT clipboardClearRequested();
    keptStamp_ = stamp();
    lastCredentials_.reset();
    lockedSnapshot_ = std::move(bytes);
    dropDocument();
    // Nothing that was typed outlives the lock in the undo stack; the changes themselves are in the snapshot.
    undo_.clear();
    undo_.markUnsaved();
    showUnlockScreen(UnlockSource::snapshot, lockedTitle());
    dirtyMaybeChanged();
    Q_EMIT undoStateChanged();
    Q_EMIT lockedChanged(true);
}

void DatabaseSession::showUnlockScreen(UnlockSource source, QString title)
{
    unlockSource_ = source;
    ++unlockToken_; // orphans any attempt still running
    if (cancel_)
        cancel_->store(true);
    cancel_.reset();
    attemptCredentials_.reset();
    passwordForNewPIN_.reset();
    screen_.title = std::move(title);
    screen_.pinMode = pinGate_.isPINMode();
    screen_.unlocking = false;
    idleHint_ = idleHintFor(source);
    screen_.hint = idleHint_;
    screen_.placeholder = screen_.pinMode ? unlockText::placeholderPIN : unlockText::placeholderPassword;
    Q_EMIT clearField();
    Q_EMIT unlockScreenChanged();
}

void DatabaseSession::fallBackToPassword(const QString &hint)
{
    pinGate_.retire();
    showUnlockScreen(*unlockSource_, screen_.title);
    idleHint_ = hint;
    screen_.hint = hint;
    Q_EMIT unlockScreenChanged();
}

void DatabaseSession::setPendingKeyFile(std::optional<std::filesystem::path> keyFile)
{
    screen_.keyFile = std::move(keyFile);
    Q_EMIT unlockScreenChanged();
}

std::optional<kdbx::Credentials> DatabaseSession::credentialsFrom(kdbx::SecureBytes typed)
{
    kdbx::Credentials credentials;
    if (typed.size() > 0 || !screen_.keyFile)
        credentials.password = std::move(typed);
    if (screen_.keyFile) {
        try {
            auto read = files::readDiskBytes(*screen_.keyFile);
            credentials.keyFile = kdbx::SecureBytes::from(read.bytes);
            kdbx::secureWipe(read.bytes.data(), read.bytes.size());
        } catch (const std::exception &) {
            Q_EMIT alert(unlockText::keyFileUnreadable);
            return std::nullopt;
        }
    }
    return credentials;
}

void DatabaseSession::beginSettingPIN(kdbx::SecureBytes typed)
{
    if (screen_.unlocking || !unlockSource_ || screen_.pinMode)
        return;
    if (typed.size() == 0 && !screen_.keyFile) {
        screen_.hint = unlockText::hintTypePasswordFirst;
        Q_EMIT unlockScreenChanged();
        return;
    }
    auto credentials = credentialsFrom(std::move(typed));
    if (!credentials)
        return;
    passwordForNewPIN_ = std::move(credentials);
    screen_.placeholder = unlockText::placeholderNewPIN;
    idleHint_ = unlockText::hintChoosePIN;
    screen_.hint = idleHint_;
    Q_EMIT clearField();
    Q_EMIT unlockScreenChanged();
}

void DatabaseSession::attemptUnlock(kdbx::SecureBytes typed)
{
    if (screen_.unlocking || !unlockSource_)
        return;
    if (!screen_.pinMode) {
        if (passwordForNewPIN_) {
            const auto password =
                passwordForNewPIN_->password ? passwordForNewPIN_->password->copy() : kdbx::SecureBytes();
            if (typed.size() == 0) {
                pendingPIN_.reset();
            } else if (const auto refusal = lock::PINGate::refusal(typed.span(), services_.isDuress)) {
                screen_.hint = QString::fromStdString(*refusal);
                Q_EMIT unlockScreenChanged();
                return;
            } else {
                pendingPIN_ = std::move(typed);
            }
            runAttempt(lock::UnlockMode::password, passwordForNewPIN_->copy(), password.copy());
            return;
        }
        if (typed.size() == 0 && !screen_.keyFile)
            return;
        auto copy = typed.copy();
        auto credentials = credentialsFrom(std::move(typed));
        if (!credentials)
            return;
        pendingPIN_.reset();
        runAttempt(lock::UnlockMode::password, std::move(*credentials), std::move(copy));
        return;
    }
    if (typed.size() == 0)
        return;
    Q_EMIT clearField();
    auto decision = pinGate_.enter(typed.span(), services_.isDuress);
    switch (decision.action) {
    case lock::PINDecision::Action::none:
        return;
    case lock::PINDecision::Action::fallBack:
        fallBackToPassword(QString::fromStdString(decision.hint));
        return;
    case lock::PINDecision::Action::unlock:
        runAttempt(decision.mode, decision.credentials ? std::move(*decision.credentials) : kdbx::Credentials(),
                   kdbx::SecureBytes());
        return;
    case lock::PINDecision::Action::tryAsPassword: {
        auto credentials = credentialsFrom(std::move(typed));
        if (credentials)
            runAttempt(lock::UnlockMode::passwordAtPIN, std::move(*credentials), kdbx::SecureBytes());
        return;
    }
    }
}

void DatabaseSession::runAttempt(lock::UnlockMode mode, kdbx::Credentials credentials, kdbx::SecureBytes typed)
{
    unlockMode_ = mode;
    const auto token = ++unlockToken_;
    if (cancel_)
        cancel_->store(true);
    cancel_ = std::make_shared<std::atomic<bool>>(false);
    screen_.unlocking = true;
    screen_.hint = unlockText::hintUnlocking;
    Q_EMIT unlockScreenChanged();

    auto job = std::make_shared<AttemptJob>();
    job->source = *unlockSource_;
    job->location = location_.value_or(std::filesystem::path());
    if (job->source == UnlockSource::snapshot && lockedSnapshot_)
        job->snapshot = *lockedSnapshot_;
    job->credentials = credentials.copy();
    job->typed = std::move(typed);
    job->mode = mode;
    job->isDuress = services_.isDuress;
    job->clock = services_.clock;
    job->cancel = cancel_;
    attemptCredentials_ = std::move(credentials);

    std::weak_ptr<QObject> receiver = receiver_;
    services_.runInBackground([this, job, receiver, token] {
        auto result = std::make_shared<AttemptResult>();
        try {
            if (job->mode == lock::UnlockMode::duressAtPIN) {
                result->file = decoy();
                result->decoy = true;
            } else {
                std::vector<std::uint8_t> bytes;
                if (job->source == UnlockSource::file) {
                    auto read = files::readDiskBytes(job->location);
                    result->stamp = read.stamp;
                    result->bytes = read.bytes;
                    bytes = std::move(read.bytes);
                } else {
                    bytes = std::move(job->snapshot);
                }
                result->file = kdbx::KdbxFile::open(std::move(bytes), job->credentials, job->cancel.get());
                result->prepared = prepare(result->file->document, job->clock);
            }
        } catch (const kdbx::Cancelled &) {
            return; // abandoned: nobody waits for it
        } catch (const kdbx::KdbxError &error) {
            const bool wrong = error.which() == kdbx::KdbxError::Case::wrongCredentials;
            if (job->mode == lock::UnlockMode::password &&
                lock::decoyInstead(wrong, job->typed.span(), job->isDuress)) {
                result->file = decoy();
                result->decoy = true;
                result->stamp.reset();
            } else {
                result->wrongCredentials = wrong;
                result->error = QString::fromUtf8(error.what());
            }
        } catch (const std::exception &error) {
            result->error = QString::fromUtf8(error.what());
        }
        postBack(receiver, [this, token, result] { finishAttempt(token, std::move(*result)); });
    });
}

void DatabaseSession::finishAttempt(std::uint64_t token, AttemptResult result)
{
    if (token != unlockToken_ || !unlockSource_)
        return; // a late result of an abandoned attempt
    screen_.unlocking = false;
    screen_.hint = idleHint_;
    auto credentials = std::move(attemptCredentials_);
    attemptCredentials_.reset();
    cancel_.reset();

    if (result.file) {
        const auto source = *unlockSource_;
        pinGate_.attemptSucceeded(pendingPIN_);
        pendingPIN_.reset();
        passwordForNewPIN_.reset();
        if (result.decoy && source == UnlockSource::snapshot)
            heldSnapshot_ = std::move(lockedSnapshot_);
        lockedSnapshot_.reset();
        unlockSource_.reset();
        lastActivity_ = services_.clock();
        // A decoy from the file keeps no stamp, so that saving it cannot replace the real file unasked.
        auto stampNow = source == UnlockSource::file ? result.stamp : std::exchange(keptStamp_, std::nullopt);
        if (result.decoy && source == UnlockSource::file)
            stampNow.reset();
        auto database = std::make_unique<files::DatabaseFile>(location_.value_or(std::filesystem::path()),
                                                              std::move(result.file), std::move(stampNow));
        const bool hasCredentials = unlockMode_ != lock::UnlockMode::duressAtPIN && credentials;
        attach(std::move(database), hasCredentials ? std::move(*credentials) : kdbx::Credentials(),
               std::move(result.prepared));
        if (!hasCredentials)
            credentials_.reset();
        isDecoy_ = result.decoy;
        if (source == UnlockSource::file)
            keepLastFile(std::move(result.bytes));
        else if (lastBytes_ && credentials_ && !isDecoy_)
            lastCredentials_ = credentials_->copy(); // the seal opened with what the kept file was written with
        else
            lastBytes_.reset();
        undo_.clear();
        if (source == UnlockSource::file)
            undo_.markSaved();
        else
            undo_.markUnsaved();
        dirtyMaybeChanged();
        Q_EMIT undoStateChanged();
        Q_EMIT unlockScreenChanged();
        Q_EMIT lockedChanged(false);
        if (source == UnlockSource::file && !result.decoy) {
            Q_EMIT unlockedFromFile();
            lookForLeftover();
        }
        return;
    }

    const auto mode = unlockMode_;
    if (mode == lock::UnlockMode::pin || mode == lock::UnlockMode::duressAtPIN ||
        mode == lock::UnlockMode::passwordAtPIN) {
        const auto failure = pinGate_.attemptFailed(mode, result.wrongCredentials);
        if (failure.handled) {
            if (failure.fallBack) {
                fallBackToPassword(QString::fromStdString(failure.hint));
            } else {
                screen_.hint = QString::fromStdString(failure.hint);
                Q_EMIT shake();
                Q_EMIT unlockScreenChanged();
            }
            return;
        }
    }
    if (passwordForNewPIN_) {
        passwordForNewPIN_.reset();
        pendingPIN_.reset();
        screen_.placeholder = unlockText::placeholderPassword;
        idleHint_ = idleHintFor(*unlockSource_);
        screen_.hint = idleHint_;
    }
    Q_EMIT clearField();
    Q_EMIT unlockScreenChanged();
    if (result.wrongCredentials)
        Q_EMIT shake();
    else
        Q_EMIT alert(result.error);
}

} // namespace quillon::state
