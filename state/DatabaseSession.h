// state/DatabaseSession.h: one open database and everything a window holds for it apart from widgets.
#pragma once

#include "files/DatabaseFile.h"
#include "files/OpenFiles.h"
#include "kdbx/CompositeKey.h"
#include "lock/DuressRules.h"
#include "lock/PINGate.h"
#include "lock/UnlockMode.h"
#include "model/Document.h"
#include "model/Entry.h"
#include "model/Group.h"
#include "model/Merge.h"
#include "model/Moves.h"
#include "model/RecycleBin.h"
#include "model/SearchIndex.h"
#include "state/SortKeys.h"
#include "state/UndoStack.h"

#include <QDateTime>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

Q_DECLARE_METATYPE(pugi::xml_node)

namespace quillon::state {

// The run's backups: the first save of each file in this run backs it up, whichever session saves it and
// however often it was locked and unlocked. Saves of different sessions may commit on workers at once.
struct RunBackups {
    std::mutex mutex;
    files::PreSaveBackup record;
};

// What every session of the run shares, handed in by whoever makes the sessions.
struct SessionServices {
    // Main thread only. None: no registry (the command line holds one file for one command).
    files::OpenFiles *openFiles = nullptr;
    std::shared_ptr<RunBackups> runBackups = std::make_shared<RunBackups>();
    // None: no backups at all.
    const files::Backups *backups = nullptr;
    // The preference, read at each save.
    std::function<bool()> backUpBeforeSaving = [] { return true; };
    // Whether a text is the duress password. Called on the unlock worker too, so it must not share state
    // with the main thread (a Preferences of its own per call does).
    lock::DuressTest isDuress;
    // Runs decoding off the main thread; the default is Qt's global pool.
    std::function<void(std::function<void()>)> runInBackground;
    // The document's clock and the idle timer's.
    std::function<kdbx::SystemTime()> clock = [] { return std::chrono::system_clock::now(); };
    // Whether the file as last read or written is kept (encrypted) for comparing and merging with another
    // program's change. The command line compares nothing, and saves in less memory without it.
    bool keepsLastFile = true;
};

enum class ItemKind : std::uint8_t { entry, group };

// One field of an entry edited at once with others: written with the protection given, or removed (no text).
struct FieldEdit {
    std::string_view name;
    std::optional<std::string_view> text;
    bool isProtected = false;
};
enum class UnlockSource : std::uint8_t { file, snapshot };

// What the unlock screen draws; rebuilt by the session, read by the view on unlockScreenChanged.
struct UnlockScreen {
    QString title;
    QString hint;
    QString placeholder;
    bool pinMode = false;
    std::optional<std::filesystem::path> keyFile;
    bool unlocking = false;
};

// One database: its location, credentials, decoded file and document, the stamp of the file as last read or
// written, unsaved changes as an undo stack, its claim in the open-file registry, search, the PIN gate and,
// while locked, the sealed snapshot of unsaved changes. Every change to the database is a command applied
// here: it notifies precisely (items inserted, removed, moved, changed) and can be undone exactly.
//
// Main thread only; decoding runs in the background and comes back with a token, so a late result of an
// abandoned attempt never lands.
class DatabaseSession : public QObject
{
    Q_OBJECT

public:
    explicit DatabaseSession(SessionServices services, QObject *parent = nullptr);
    ~DatabaseSession() override;

    // --- Opening -----------------------------------------------------------------------------------------
    // Claims the file and shows the unlock screen for it. The owner of another claim on the same file is
    // returned instead, and nothing changes.
    files::Owner openLocation(const std::filesystem::path &location);
    // An already decoded database (the command line, tests, a new database). With no location it is
    // unsaved until its first save; with one, the stamp is that of the bytes it was decoded from.
    void adopt(std::optional<std::filesystem::path> location, std::unique_ptr<kdbx::KdbxFile> file,
               kdbx::Credentials credentials, std::optional<files::DiskStamp> stamp);
    // An empty database with the new-database template, unsaved.
    void createNew(kdbx::Credentials credentials);

    const std::optional<std::filesystem::path> &location() const noexcept { return location_; }
    // The file name, or "Untitled" for a database that was never saved.
    QString displayName() const;
    const files::Owner &owner() const noexcept { return owner_; }

    bool isOpen() const noexcept { return document_ != nullptr; }
    bool isLocked() const noexcept { return unlockSource_.has_value(); }
    bool isDecoy() const noexcept { return isDecoy_; }
    bool isDirty() const noexcept { return !undo_.atSavedPoint(); }
    // Valid while open.
    model::Document &document() noexcept { return *document_; }
    // Waits for a save's encoding that is reading the headers.
    kdbx::KdbxFile &kdbx()
    {
        finishEncoding();
        return file_->file();
    }
    const std::optional<kdbx::Credentials> &credentials() const noexcept { return credentials_; }
    // The stamp of the file as last read or written; kept while the changes are sealed in a locked snapshot.
    const std::optional<files::DiskStamp> &stamp() const noexcept;
    model::SearchIndex &searchIndex() noexcept { return *searchIndex_; }
    // Kept up to date by every change the session makes; empty while locked.
    const SortKeys &sortKeys() const noexcept { return sortKeys_; }
    const lock::PINGate &pinGate() const noexcept { return pinGate_; }
    bool hasLockedSnapshot() const noexcept { return lockedSnapshot_.has_value(); }
    bool hasHeldSnapshot() const noexcept { return heldSnapshot_.has_value(); }

    // --- Changing: each call is one command; false (and no command) when nothing changed -----------------
    bool editField(const model::Entry &entry, std::string_view name, std::string_view text);
    // A custom field: added or rewritten, protected or not; the entry's present state goes to history first.
    bool setField(const model::Entry &entry, std::string_view name, std::string_view text, bool isProtected);
    // Several fields in one command, behind one history version; false when none would change.
    bool editFields(const model::Entry &entry, const std::vector<FieldEdit> &edits);
    bool renameField(const model::Entry &entry, std::string_view from, std::string_view to);
    bool removeField(const model::Entry &entry, std::string_view name);
    bool setExpiry(const model::Entry &entry, std::optional<model::Time> when);
    // Replaces an attachment of the same name.
    bool addAttachment(const model::Entry &entry, std::string_view name, kdbx::SecureBytes content);
    bool removeAttachment(const model::Entry &entry, std::string_view name);
    // With the fields given filled in as part of the same command.
    std::optional<model::Entry> newEntry(const model::Group &parent, std::string_view title,
                                         const std::vector<FieldEdit> &fields = {});
    std::optional<model::Group> newGroup(const model::Group &parent, std::string_view name);
    bool renameGroup(const model::Group &group, std::string_view name);
    model::MoveResult moveEntry(const model::Entry &entry, const model::Group &target);
    model::MoveResult moveGroup(const model::Group &group, const model::Group &target,
                                const std::optional<model::Group> &before = std::nullopt);
    bool reorder(const model::Entry &entry, const std::optional<model::Entry> &before);
    bool reorder(const model::Group &group, const std::optional<model::Group> &before);
    model::DeleteResult deleteEntry(const model::Entry &entry);
    model::DeleteResult deleteGroup(const model::Group &group);
    void deletePermanently(const model::Entry &entry);
    void deletePermanently(const model::Group &group);
    model::DeleteResult emptyBin();
    bool restore(const model::Entry &entry);
    bool restore(const model::Group &group);
    bool restoreVersion(const model::Entry &entry, const model::Entry &version);
    // The outer header's settings and the document's, changed together by the caller's function.
    bool changeSettings(const QString &text, const std::function<void(kdbx::OuterHeader &, model::Document &)> &change);
    bool changeCredentials(kdbx::Credentials credentials);

    const Command *nextUndo() const noexcept { return undo_.nextUndo(); }
    const Command *nextRedo() const noexcept { return undo_.nextRedo(); }
    bool undo();
    bool redo();

    // --- Saving ------------------------------------------------------------------------------------------
    // Writes through the conflict-checked writer, backing the file up first once per run; the saved point
    // moves here. Throws what the writer throws, and then nothing has changed. Returns what became of the
    // backup.
    files::PreSaveBackup::Outcome save();
    // Expecting the stamp given (the user agreed to overwrite, or Save As); the session then lives there.
    files::PreSaveBackup::Outcome saveTo(const std::filesystem::path &location,
                                         const std::optional<files::DiskStamp> &expected);
    // The same without freezing the caller: the document is encoded into a temporary file beside location,
    // then checked, backed up and put in place, on a worker; saved or saveFailed follows. Changes made
    // meanwhile stay unsaved, and a lock asked for meanwhile waits for the end. Locked with a snapshot, the
    // sealed snapshot itself is written, without unlocking, and the session then shows the file locked. False
    // when a save is already running or there is nothing to save.
    bool saveInBackground(const std::filesystem::path &location, const std::optional<files::DiskStamp> &expected);
    bool isSaving() const noexcept { return saving_; }
    // Open with credentials, or locked with a snapshot.
    bool canSave() const noexcept { return (file_ && credentials_) || lockedSnapshot_; }

    // --- Comparing and merging -------------------------------------------------------------------------
    // A file decoded on a worker; no file and the error (wrongCredentials for a password that does not open
    // it) on failure. bytes: what was decoded, still encrypted.
    struct Decoded {
        std::unique_ptr<kdbx::KdbxFile> file;
        std::vector<std::uint8_t> bytes;
        std::optional<files::DiskStamp> stamp;
        bool wrongCredentials = false;
        QString error;
    };
    using DecodedThen = std::function<void(Decoded)>;
    // Whether the file as last read or written is kept (not for a database never saved, nor a decoy).
    bool hasLastFile() const noexcept { return lastBytes_ && lastCredentials_; }
    // Each decodes on a worker and calls `then` here later, unless the database was locked or replaced
    // meanwhile: the file as last read or written (with the credentials it was written with), the file now at
    // the location (with the session's), or any file with the credentials given. False when there is none.
    bool decodeLastFile(DecodedThen then);
    bool decodeDisk(DecodedThen then);
    void decodeFile(const std::filesystem::path &path, kdbx::Credentials credentials, DecodedThen then);
    // Brings theirs into the document as one command; ancestor: the version both grew from, if known.
    model::MergeSummary mergeFrom(const model::DocumentSide &theirs, const model::DocumentSide *ancestor);
    // The same with the file now on disk (from decodeDisk): the command also makes that version the one the
    // next save expects and the one later merges start from, so that the save writes over it without asking;
    // undoing the merge takes that back too.
    model::MergeSummary mergeFromDisk(Decoded &disk, const model::DocumentSide *ancestor);

    // --- What a killed save left behind ------------------------------------------------------------------
    // After each unlock from the file, a newer temporary file of the writer beside it is decoded on a worker
    // with the same credentials: leftoverFound offers it, leftoverUnreadable names one that does not open.
    // Nothing is removed. Recovering puts its document in as unsaved changes; the database file stays as it is
    // until the next save, which compares with the stamp read at the unlock.
    bool recoverLeftover();
    void dropLeftover();

    // --- Locking and unlocking ---------------------------------------------------------------------------
    // Locks as the user asked or a trigger fired; does nothing when there is nothing to lock.
    void lock();
    const UnlockScreen &unlockScreen() const noexcept { return screen_; }
    void setPendingKeyFile(std::optional<std::filesystem::path> keyFile);
    void beginSettingPIN(kdbx::SecureBytes typed);
    void attemptUnlock(kdbx::SecureBytes typed);
    // Input was seen; the idle check counts from here.
    void noteActivity();
    kdbx::SystemTime lastActivity() const noexcept { return lastActivity_; }
    // Locks when idleLockMinutes (1 or more) have passed since the last input.
    void checkIdle(int idleLockMinutes);

Q_SIGNALS:
    // Rows count items of one kind among their parent's children of that kind, as item models count them.
    void itemAboutToBeInserted(pugi::xml_node parent, quillon::state::ItemKind kind, int row);
    void itemInserted(pugi::xml_node element, quillon::state::ItemKind kind);
    void itemAboutToBeRemoved(pugi::xml_node element, quillon::state::ItemKind kind, int row);
    void itemRemoved(pugi::xml_node parent, quillon::state::ItemKind kind);
    // toRow counts as before the move, as QAbstractItemModel::beginMoveRows does.
    void itemAboutToBeMoved(pugi::xml_node element, quillon::state::ItemKind kind, int fromRow,
                            pugi::xml_node newParent, int toRow);
    void itemMoved(pugi::xml_node element, quillon::state::ItemKind kind);
    void itemChanged(pugi::xml_node element, quillon::state::ItemKind kind);
    // Meta, the deletion records, the outer header or the credentials changed.
    void databaseChanged();
    // The document was replaced or dropped as a whole (unlocked, locked).
    void documentReset();
    void dirtyChanged(bool dirty);
    void undoStateChanged();
    void lockedChanged(bool locked);
    void unlockScreenChanged();
    // The unlock field: empty it, shake it for a wrong password.
    void clearField();
    void shake();
    // A warning alert with one "OK" button.
    void alert(const QString &message);
    // The clipboard is to be cleared if it still holds what this application put there.
    void clipboardClearRequested();
    // A background save finished; backup says what became of the pre-save backup.
    void saved(files::PreSaveBackup::Outcome backup);
    // It failed and nothing was written: the cause, without a "Could not save" of its own. changedOnDisk when
    // another program changed the file meanwhile, so that the window can ask.
    void saveFailed(const QString &cause, bool changedOnDisk);
    // The real database opened from its file: the window adds it to the recent list and remembers the key
    // file used (unlockScreen().keyFile).
    void unlockedFromFile();
    // A killed save's newer version, decoded and held until recoverLeftover or dropLeftover; modified: when
    // that save was written.
    void leftoverFound(const QDateTime &modified);
    // A temporary file of the writer that does not open with these credentials; name: its file name.
    void leftoverUnreadable(const QString &name);

private:
    class Notifier;
    friend class Notifier;
    struct AttemptResult;
    struct LeftoverResult;

    template <class Change> auto perform(const QString &text, Change &&change);
    // perform for the other source files of the class.
    void performChange(const QString &text, const std::function<void(Command &)> &change);
    // Before anything changes the document, its headers or the credentials: a save's encoding is done.
    void finishEncoding();
    // From a worker: runs `then` on the session's thread later, unless the session has gone by then (it owns
    // the only strong reference to the receiver).
    static void postBack(const std::weak_ptr<QObject> &receiver, std::function<void()> then);
    // What the windows need of a large tree, made on the thread that decoded it.
    struct Prepared {
        std::unique_ptr<model::Document> document;
        SortKeys sortKeys;
        std::unique_ptr<model::SearchIndex> searchIndex;
    };
    static std::unique_ptr<Prepared> prepare(pugi::xml_document &tree, model::Document::Clock clock);
    void attach(std::unique_ptr<files::DatabaseFile> file, kdbx::Credentials credentials,
                std::unique_ptr<Prepared> prepared = {});
    void dropDocument();
    void dirtyMaybeChanged();
    void afterSave(const std::filesystem::path &location, const files::DiskStamp &stamp, std::uint64_t position);
    files::BackupSetting backupSetting() const;
    // Runs write on a worker with the run's backup record; saved or saveFailed follows on this thread, after
    // adopt on success.
    void commitInBackground(std::function<files::Committed(const files::BackupSetting &, files::PreSaveBackup &)> write,
                            std::function<void(files::Committed &)> adopt);
    void lookForLeftover();
    void decodeLater(std::function<Decoded()> decode, DecodedThen then);
    // The file just read or written, which opens with the session's credentials; empty bytes keep none.
    void keepLastFile(std::vector<std::uint8_t> bytes);
    void finishLeftover(std::uint64_t token, const std::filesystem::path &path, LeftoverResult result);

    void lockToFile();
    // The location as a locked window shows it: nothing decoded, nothing sealed, the unlock screen for the file.
    void showLockedFile();
    void lockWithSnapshot(std::vector<std::uint8_t> bytes);
    void showUnlockScreen(UnlockSource source, QString title);
    void fallBackToPassword(const QString &hint);
    std::optional<kdbx::Credentials> credentialsFrom(kdbx::SecureBytes typed);
    void runAttempt(lock::UnlockMode mode, kdbx::Credentials credentials, kdbx::SecureBytes typed);
    void finishAttempt(std::uint64_t token, AttemptResult result);
    QString idleHintFor(UnlockSource source) const;
    QString lockedTitle() const;

    SessionServices services_;
    files::Owner owner_ = std::make_shared<int>(0);
    std::optional<std::filesystem::path> location_;
    std::optional<kdbx::Credentials> credentials_;
    std::unique_ptr<files::DatabaseFile> file_;
    std::unique_ptr<model::Document> document_;
    std::unique_ptr<model::SearchIndex> searchIndex_;
    SortKeys sortKeys_;
    std::unique_ptr<Notifier> notifier_;
    UndoStack undo_;
    bool lastDirty_ = false;
    bool isDecoy_ = false;
    bool saving_ = false;
    bool lockAfterSave_ = false;
    std::shared_ptr<class EncodeJob> encoding_;

    std::optional<std::vector<std::uint8_t>> lockedSnapshot_;
    // The stamp of the file as last read or written, kept while the changes are sealed.
    std::optional<files::DiskStamp> keptStamp_;
    std::optional<std::vector<std::uint8_t>> heldSnapshot_;
    std::unique_ptr<kdbx::KdbxFile> leftover_;
    // The file as last read or written, encrypted, and what opens it. A lock drops the credentials, and the
    // bytes too unless changes are sealed (an unlock from the seal brings the credentials back).
    std::shared_ptr<const std::vector<std::uint8_t>> lastBytes_;
    std::optional<kdbx::Credentials> lastCredentials_;
    // Counts the documents attached, so a late decoding for an earlier one is dropped.
    std::uint64_t attached_ = 0;
    lock::PINGate pinGate_;
    std::optional<kdbx::Credentials> passwordForNewPIN_;
    std::optional<kdbx::SecureBytes> pendingPIN_;
    std::optional<UnlockSource> unlockSource_;
    lock::UnlockMode unlockMode_ = lock::UnlockMode::password;
    std::uint64_t unlockToken_ = 0;
    std::optional<kdbx::Credentials> attemptCredentials_;
    std::shared_ptr<std::atomic<bool>> cancel_;
    // Lets a result find its way back only while the session lives.
    std::shared_ptr<QObject> receiver_;
    QString idleHint_;
    UnlockScreen screen_;
    kdbx::SystemTime lastActivity_;
};

} // namespace quillon::state
