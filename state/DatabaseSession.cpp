#include "state/DatabaseSession.h"

#include "state/EncodeJob.h"

#include "files/CanonicalPath.h"
#include "files/ChangedOnDisk.h"
#include "files/SaveError.h"
#include "model/Attachments.h"
#include "model/History.h"
#include "model/Nodes.h"

#include <QMetaObject>
#include <QThreadPool>

#include <algorithm>
#include <cstring>

namespace quillon::state {
namespace {

bool isItem(pugi::xml_node node) noexcept
{
    return model::nodes::isNamed(node, "Entry") || model::nodes::isNamed(node, "Group");
}

ItemKind kindOf(pugi::xml_node node) noexcept
{
    return model::nodes::isNamed(node, "Group") ? ItemKind::group : ItemKind::entry;
}

int rowOf(pugi::xml_node element)
{
    int row = 0;
    for (auto n = element.previous_sibling(element.name()); n; n = n.previous_sibling(element.name()))
        ++row;
    return row;
}

// The row an item of that name lands on when it goes in ahead of `before` (or last), counted beforehand.
int rowBefore(pugi::xml_node parent, pugi::xml_node before, const char *name)
{
    int row = 0;
    for (auto n = parent.first_child(); n && n != before; n = n.next_sibling())
        if (model::nodes::isNamed(n, name))
            ++row;
    return row;
}

} // namespace

// Turns the document's own account of each change into the session's signals, and hands it to the journal
// of the command being recorded. Content changes are gathered and told once, before the next structural
// change or at the end of the command, so one edit is one dataChanged.
class DatabaseSession::Notifier final : public model::DocumentObserver
{
public:
    explicit Notifier(DatabaseSession &session) : session_(session) {}

    model::Journal *journal = nullptr;

    void aboutToInsert(pugi::xml_node parent, pugi::xml_node before, pugi::xml_node prototype) override
    {
        if (journal)
            journal->aboutToInsert(parent, before, prototype);
        flush();
        if (isItem(prototype))
            Q_EMIT session_.itemAboutToBeInserted(parent, kindOf(prototype),
                                                  rowBefore(parent, before, prototype.name()));
    }
    void inserted(pugi::xml_node element) override
    {
        if (journal)
            journal->inserted(element);
        if (isItem(element)) {
            session_.sortKeys_.add(element);
            Q_EMIT session_.itemInserted(element, kindOf(element));
        } else {
            metaTouched_ = true;
        }
    }
    void aboutToRemove(pugi::xml_node element) override
    {
        if (journal)
            journal->aboutToRemove(element);
        flush();
        removing_ = isItem(element) ? std::optional(kindOf(element)) : std::nullopt;
        if (removing_) {
            Q_EMIT session_.itemAboutToBeRemoved(element, *removing_, rowOf(element));
            session_.sortKeys_.remove(element);
        }
    }
    void removed(pugi::xml_node parent) override
    {
        if (journal)
            journal->removed(parent);
        if (removing_)
            Q_EMIT session_.itemRemoved(parent, *removing_);
        else
            metaTouched_ = true;
        removing_.reset();
    }
    void aboutToMove(pugi::xml_node element, pugi::xml_node newParent, pugi::xml_node before) override
    {
        if (journal)
            journal->aboutToMove(element, newParent, before);
        flush();
        if (isItem(element))
            Q_EMIT session_.itemAboutToBeMoved(element, kindOf(element), rowOf(element), newParent,
                                               rowBefore(newParent, before, element.name()));
    }
    void moved(pugi::xml_node element, pugi::xml_node oldParent) override
    {
        if (journal)
            journal->moved(element, oldParent);
        if (isItem(element))
            Q_EMIT session_.itemMoved(element, kindOf(element));
    }
    void aboutToChangeContent(pugi::xml_node element) override
    {
        if (journal)
            journal->aboutToChangeContent(element);
    }
    void contentChanged(pugi::xml_node element) override
    {
        if (journal)
            journal->contentChanged(element);
        if (!isItem(element)) {
            metaTouched_ = true;
            return;
        }
        for (const auto n : changed_)
            if (n == element)
                return;
        changed_.push_back(element);
    }

    void flush()
    {
        const auto changed = std::exchange(changed_, {});
        for (const auto element : changed) {
            session_.sortKeys_.update(element);
            Q_EMIT session_.itemChanged(element, kindOf(element));
        }
        if (std::exchange(metaTouched_, false))
            Q_EMIT session_.databaseChanged();
    }
    void forget() noexcept
    {
        changed_.clear();
        metaTouched_ = false;
    }
    void touchDatabase() noexcept { metaTouched_ = true; }

private:
    DatabaseSession &session_;
    std::vector<pugi::xml_node> changed_;
    std::optional<ItemKind> removing_;
    bool metaTouched_ = false;
};

DatabaseSession::DatabaseSession(SessionServices services, QObject *parent)
    : QObject(parent), services_(std::move(services)), notifier_(std::make_unique<Notifier>(*this)),
      receiver_(std::make_shared<QObject>())
{
    if (!services_.runInBackground)
        services_.runInBackground = [](std::function<void()> job) { QThreadPool::globalInstance()->start(job); };
    if (!services_.runBackups)
        services_.runBackups = std::make_shared<RunBackups>();
    lastActivity_ = services_.clock();
}

DatabaseSession::~DatabaseSession()
{
    if (encoding_)
        encoding_->abandon();
    if (cancel_)
        cancel_->store(true);
    if (document_)
        document_->setObserver(nullptr);
    if (services_.openFiles)
        services_.openFiles->release(owner_);
}

files::Owner DatabaseSession::openLocation(const std::filesystem::path &location)
{
    if (services_.openFiles) {
        if (auto other = services_.openFiles->owner(location, owner_))
            return other;
        services_.openFiles->claim(location, owner_);
    }
    if (location_ && files::canonicalPath(*location_) != files::canonicalPath(location))
        pinGate_.retire(); // a PIN belongs to one location
    location_ = location;
    showLockedFile();
    return {};
}

void DatabaseSession::adopt(std::optional<std::filesystem::path> location, std::unique_ptr<kdbx::KdbxFile> file,
                            kdbx::Credentials credentials, std::optional<files::DiskStamp> stamp)
{
    if (location && services_.openFiles)
        services_.openFiles->claim(*location, owner_);
    location_ = std::move(location);
    unlockSource_.reset();
    lastBytes_.reset(); // not read here: a review shows everything as new
    lastCredentials_.reset();
    auto database = std::make_unique<files::DatabaseFile>(location_.value_or(std::filesystem::path()), std::move(file),
                                                          std::move(stamp));
    attach(std::move(database), std::move(credentials));
    undo_.clear();
    if (location_)
        undo_.markSaved();
    else
        undo_.markUnsaved();
    Q_EMIT lockedChanged(false);
    dirtyMaybeChanged();
}

void DatabaseSession::createNew(kdbx::Credentials credentials)
{
    adopt(std::nullopt, kdbx::KdbxFile::newDatabase(), std::move(credentials), std::nullopt);
}

QString DatabaseSession::displayName() const
{
    if (!location_)
        return QStringLiteral("Untitled");
    return QString::fromStdString(location_->filename().string());
}

const std::optional<files::DiskStamp> &DatabaseSession::stamp() const noexcept
{
    return file_ ? file_->stamp() : keptStamp_;
}

std::unique_ptr<DatabaseSession::Prepared> DatabaseSession::prepare(pugi::xml_document &tree,
                                                                   model::Document::Clock clock)
{
    auto prepared = std::make_unique<Prepared>();
    prepared->document = std::make_unique<model::Document>(tree, std::move(clock));
    auto &document = *prepared->document;
    document.countPositions();
    if (const auto top = document.topGroup())
        prepared->sortKeys.gather(*top);
    prepared->searchIndex = std::make_unique<model::SearchIndex>(document);
    prepared->searchIndex->prepare(model::SearchScope::everywhere);
    return prepared;
}

void DatabaseSession::attach(std::unique_ptr<files::DatabaseFile> file, kdbx::Credentials credentials,
                             std::unique_ptr<Prepared> prepared)
{
    dropDocument();
    ++attached_;
    file_ = std::move(file);
    credentials_ = std::move(credentials);
    if (prepared && prepared->document && &prepared->document->xml() == &file_->file().document) {
        document_ = std::move(prepared->document);
        sortKeys_ = std::move(prepared->sortKeys);
        searchIndex_ = std::move(prepared->searchIndex);
    } else {
        document_ = std::make_unique<model::Document>(file_->file().document, services_.clock);
        if (const auto top = document_->topGroup())
            sortKeys_.gatherLater(*top);
        searchIndex_ = std::make_unique<model::SearchIndex>(*document_);
    }
    document_->setObserver(notifier_.get());
    Q_EMIT documentReset();
}

void DatabaseSession::finishEncoding()
{
    if (encoding_) {
        encoding_->finish();
        encoding_.reset();
    }
}

void DatabaseSession::dropDocument()
{
    if (encoding_) {
        encoding_->abandon();
        encoding_.reset();
    }
    const bool had = document_ != nullptr;
    leftover_.reset();
    notifier_->forget();
    if (searchIndex_)
        searchIndex_->clear();
    searchIndex_.reset();
    sortKeys_.clear();
    if (document_)
        document_->setObserver(nullptr);
    document_.reset();
    ++attached_;
    file_.reset();
    credentials_.reset();
    if (had)
        Q_EMIT documentReset();
}

void DatabaseSession::dirtyMaybeChanged()
{
    const bool dirty = isDirty();
    if (dirty != lastDirty_) {
        lastDirty_ = dirty;
        Q_EMIT dirtyChanged(dirty);
    }
}

template <class Change> auto DatabaseSession::perform(const QString &text, Change &&change)
{
    finishEncoding();
    auto command = std::make_unique<Command>(text);
    command->journal().recordOn(*document_);
    notifier_->journal = &command->journal();
    try {
        auto result = change(*command);
        notifier_->journal = nullptr;
        command->journal().finish();
        notifier_->flush();
        if (!command->empty()) {
            undo_.push(std::move(command));
            Q_EMIT undoStateChanged();
            dirtyMaybeChanged();
        }
        return result;
    } catch (...) {
        // Whatever was done is taken back, so a failure leaves the database as it was.
        notifier_->journal = nullptr;
        command->journal().finish();
        command->undo(*document_);
        notifier_->flush();
        throw;
    }
}

void DatabaseSession::performChange(const QString &text, const std::function<void(Command &)> &change)
{
    perform(text, [&](Command &command) {
        change(command);
        return true;
    });
}

bool DatabaseSession::editField(const model::Entry &entry, std::string_view name, std::string_view text)
{
    return perform(QStringLiteral("Edit"), [&](Command &) { return model::editField(entry, name, text); });
}

bool DatabaseSession::setField(const model::Entry &entry, std::string_view name, std::string_view text,
                               bool isProtected)
{
    const auto current = entry.field(name);
    if (current && model::nodes::sameText(*current, text) && entry.isFieldProtected(name) == isProtected)
        return false;
    return perform(QStringLiteral("Edit Field"), [&](Command &) {
        model::snapshot(entry);
        return entry.setField(name, text, isProtected);
    });
}

bool DatabaseSession::editFields(const model::Entry &entry, const std::vector<FieldEdit> &edits)
{
    const auto changes = [&](const FieldEdit &edit) {
        const auto current = entry.field(edit.name);
        if (!edit.text)
            return current.has_value();
        return !current || !model::nodes::sameText(*current, *edit.text) ||
               entry.isFieldProtected(edit.name) != edit.isProtected;
    };
    if (std::none_of(edits.begin(), edits.end(), changes))
        return false;
    return perform(QStringLiteral("Edit"), [&](Command &) {
        model::snapshot(entry);
        for (const auto &edit : edits) {
            if (edit.text)
                entry.setField(edit.name, *edit.text, edit.isProtected);
            else
                entry.removeField(edit.name);
        }
        return true;
    });
}

bool DatabaseSession::renameField(const model::Entry &entry, std::string_view from, std::string_view to)
{
    const auto value = entry.field(from);
    if (!value || from == to || entry.field(to) || model::isStandardField(from) || model::isStandardField(to))
        return false;
    const auto text = kdbx::SecureBytes::fromText(*value); // copied before the element it lives in goes
    const bool isProtected = entry.isFieldProtected(from);
    return perform(QStringLiteral("Rename Field"), [&](Command &) {
        model::snapshot(entry);
        entry.removeField(from);
        return entry.setField(to, text.view(), isProtected);
    });
}

bool DatabaseSession::removeField(const model::Entry &entry, std::string_view name)
{
    if (!entry.field(name))
        return false;
    return perform(QStringLiteral("Remove Field"), [&](Command &) {
        model::snapshot(entry);
        return entry.removeField(name);
    });
}

bool DatabaseSession::setExpiry(const model::Entry &entry, std::optional<model::Time> when)
{
    if (entry.expiry() == when || !entry.element().child("Times"))
        return false;
    return perform(QStringLiteral("Change Expiry"), [&](Command &) {
        model::snapshot(entry);
        return entry.setExpiry(when);
    });
}

bool DatabaseSession::addAttachment(const model::Entry &entry, std::string_view name, kdbx::SecureBytes content)
{
    if (name.empty())
        return false;
    return perform(QStringLiteral("Add Attachment"), [&](Command &command) {
        auto &pool = kdbx().inner.binaries;
        std::optional<std::size_t> index;
        for (std::size_t i = 0; i < pool.size() && !index; ++i)
            if (pool[i].data.size() == content.size() &&
                (content.size() == 0 || std::memcmp(pool[i].data.data(), content.data(), content.size()) == 0))
                index = i;
        if (index && model::attachmentRef(entry, name) == index)
            return false;
        if (!index) {
            // Entries and their history versions that hold the same file share one pool entry.
            pool.push_back({0, std::move(content)});
            index = pool.size() - 1;
            auto kept = std::make_shared<kdbx::InnerBinary>();
            command.addStep(
                [this, kept] {
                    *kept = std::move(kdbx().inner.binaries.back());
                    kdbx().inner.binaries.pop_back();
                },
                [this, kept] { kdbx().inner.binaries.push_back(std::move(*kept)); });
        }
        model::snapshot(entry);
        model::setAttachment(entry, name, *index);
        return true;
    });
}

bool DatabaseSession::removeAttachment(const model::Entry &entry, std::string_view name)
{
    if (!model::attachmentRef(entry, name))
        return false;
    // The pool entry stays: the history version made first still refers to it.
    return perform(QStringLiteral("Remove Attachment"), [&](Command &) {
        model::snapshot(entry);
        return model::removeAttachment(entry, name);
    });
}

std::optional<model::Entry> DatabaseSession::newEntry(const model::Group &parent, std::string_view title,
                                                      const std::vector<FieldEdit> &fields)
{
    return perform(QStringLiteral("New Entry"), [&](Command &) {
        const auto entry = document_->newEntry(parent, title);
        for (const auto &f : fields)
            if (f.text)
                entry.setField(f.name, *f.text, f.isProtected);
        return std::optional(entry);
    });
}

std::optional<model::Group> DatabaseSession::newGroup(const model::Group &parent, std::string_view name)
{
    return perform(QStringLiteral("New Group"),
                   [&](Command &) { return std::optional(document_->newGroup(parent, name)); });
}

bool DatabaseSession::renameGroup(const model::Group &group, std::string_view name)
{
    return perform(QStringLiteral("Rename Group"), [&](Command &) { return group.rename(name); });
}

model::MoveResult DatabaseSession::moveEntry(const model::Entry &entry, const model::Group &target)
{
    return perform(QStringLiteral("Move"), [&](Command &) { return model::moveEntry(entry, target); });
}

model::MoveResult DatabaseSession::moveGroup(const model::Group &group, const model::Group &target,
                                             const std::optional<model::Group> &before)
{
    return perform(QStringLiteral("Move"), [&](Command &) { return model::moveGroup(group, target, before); });
}

bool DatabaseSession::reorder(const model::Entry &entry, const std::optional<model::Entry> &before)
{
    return perform(QStringLiteral("Reorder"), [&](Command &) { return model::reorder(entry, before); });
}

bool DatabaseSession::reorder(const model::Group &group, const std::optional<model::Group> &before)
{
    return perform(QStringLiteral("Reorder"), [&](Command &) { return model::reorder(group, before); });
}

model::DeleteResult DatabaseSession::deleteEntry(const model::Entry &entry)
{
    return perform(QStringLiteral("Delete"), [&](Command &) { return model::deleteEntry(entry); });
}

model::DeleteResult DatabaseSession::deleteGroup(const model::Group &group)
{
    return perform(QStringLiteral("Delete"), [&](Command &) { return model::deleteGroup(group); });
}

void DatabaseSession::deletePermanently(const model::Entry &entry)
{
    perform(QStringLiteral("Delete Permanently"), [&](Command &) {
        model::deletePermanently(entry);
        return true;
    });
}

void DatabaseSession::deletePermanently(const model::Group &group)
{
    perform(QStringLiteral("Delete Permanently"), [&](Command &) {
        model::deletePermanently(group);
        return true;
    });
}

model::DeleteResult DatabaseSession::emptyBin()
{
    return perform(QStringLiteral("Empty Recycle Bin"), [&](Command &) { return model::emptyBin(*document_); });
}

bool DatabaseSession::restore(const model::Entry &entry)
{
    return perform(QStringLiteral("Restore"), [&](Command &) { return model::restore(entry); });
}

bool DatabaseSession::restore(const model::Group &group)
{
    return perform(QStringLiteral("Restore"), [&](Command &) { return model::restore(group); });
}

bool DatabaseSession::restoreVersion(const model::Entry &entry, const model::Entry &version)
{
    return perform(QStringLiteral("Restore Version"), [&](Command &) {
        model::restoreVersion(entry, version);
        return true;
    });
}

bool DatabaseSession::changeSettings(const QString &text,
                                     const std::function<void(kdbx::OuterHeader &, model::Document &)> &change)
{
    return perform(text, [&](Command &command) {
        auto before = std::make_shared<kdbx::OuterHeader>(kdbx().header);
        change(kdbx().header, *document_);
        auto after = std::make_shared<kdbx::OuterHeader>(kdbx().header);
        if (*after == *before)
            return !command.journal().empty();
        command.addStep(
            [this, before] {
                kdbx().header = *before;
                notifier_->touchDatabase();
            },
            [this, after] {
                kdbx().header = *after;
                notifier_->touchDatabase();
            });
        notifier_->touchDatabase();
        return true;
    });
}

bool DatabaseSession::changeCredentials(kdbx::Credentials credentials)
{
    if (!credentials_)
        return false;
    return perform(QStringLiteral("Change Password"), [&](Command &command) {
        auto before = std::make_shared<kdbx::Credentials>(credentials_->copy());
        auto after = std::make_shared<kdbx::Credentials>(std::move(credentials));
        credentials_ = after->copy();
        command.addStep([this, before] { credentials_ = before->copy(); },
                        [this, after] { credentials_ = after->copy(); });
        notifier_->touchDatabase();
        return true;
    });
}

bool DatabaseSession::undo()
{
    if (!document_)
        return false;
    finishEncoding();
    const bool done = undo_.undo(*document_);
    notifier_->flush();
    if (done) {
        Q_EMIT undoStateChanged();
        dirtyMaybeChanged();
    }
    return done;
}

bool DatabaseSession::redo()
{
    if (!document_)
        return false;
    finishEncoding();
    const bool done = undo_.redo(*document_);
    notifier_->flush();
    if (done) {
        Q_EMIT undoStateChanged();
        dirtyMaybeChanged();
    }
    return done;
}

files::PreSaveBackup::Outcome DatabaseSession::save()
{
    if (!location_)
        throw std::logic_error("a database without a location is saved with saveTo");
    return saveTo(*location_, stamp());
}

files::BackupSetting DatabaseSession::backupSetting() const
{
    files::BackupSetting setting;
    setting.backups = isDecoy_ ? nullptr : services_.backups; // a decoy never makes backups
    setting.backUpBeforeSaving = services_.backUpBeforeSaving();
    return setting;
}

files::PreSaveBackup::Outcome DatabaseSession::saveTo(const std::filesystem::path &location,
                                                      const std::optional<files::DiskStamp> &expected)
{
    if (!file_ || !credentials_ || saving_)
        throw std::logic_error("nothing to save, or a save is running");
    finishEncoding();
    const auto position = undo_.position();
    auto encoded = file_->encode(location, *credentials_);
    const std::lock_guard held(services_.runBackups->mutex);
    auto done = files::commit(encoded, expected, backupSetting(), services_.runBackups->record,
                              services_.keepsLastFile);
    afterSave(location, done.stamp, position);
    keepLastFile(std::move(done.bytes));
    return done.backup;
}

bool DatabaseSession::saveInBackground(const std::filesystem::path &location,
                                       const std::optional<files::DiskStamp> &expected)
{
    if (saving_)
        return false;
    if (lockedSnapshot_) {
        auto sealed = std::make_shared<std::vector<std::uint8_t>>(*lockedSnapshot_);
        commitInBackground(
            [sealed, location, expected](const files::BackupSetting &setting, files::PreSaveBackup &record) {
                return files::commitSealed(*sealed, location, expected, setting, record);
            },
            [this, location, sealed](files::Committed &done) {
                location_ = location;
                if (services_.openFiles) {
                    services_.openFiles->claim(location, owner_);
                    services_.openFiles->refresh(owner_);
                }
                if (lockedSnapshot_) {
                    showLockedFile(); // the changes are in the file now: the window stays locked, on the file
                } else if (file_) {
                    // Unlocked from the snapshot meanwhile: what is open stays unsaved, and the next save compares
                    // with the file just written.
                    file_->adopt(location, done.stamp);
                    keepLastFile(*sealed);
                }
            });
        return true;
    }
    if (!file_ || !credentials_)
        return false;
    finishEncoding();
    const auto position = undo_.position();
    // The encoding runs on the worker too; until it is done, whatever would change the document waits for it
    // (or runs it, when the worker has not started yet).
    auto job = std::make_shared<EncodeJob>(
        [file = file_.get(), location, credentials = std::make_shared<kdbx::Credentials>(credentials_->copy())] {
            return file->encode(location, *credentials);
        });
    encoding_ = job;
    commitInBackground(
        [job, expected, keep = services_.keepsLastFile](const files::BackupSetting &setting,
                                                         files::PreSaveBackup &record) {
            job->finish();
            return files::commit(job->result(), expected, setting, record, keep);
        },
        [this, location, position](files::Committed &done) {
            afterSave(location, done.stamp, position);
            keepLastFile(std::move(done.bytes));
        });
    return true;
}

void DatabaseSession::commitInBackground(
    std::function<files::Committed(const files::BackupSetting &, files::PreSaveBackup &)> write,
    std::function<void(files::Committed &)> adopt)
{
    saving_ = true;
    struct Outcome {
        std::optional<files::Committed> done;
        QString cause;
        bool changedOnDisk = false;
    };
    std::weak_ptr<QObject> receiver = receiver_;
    services_.runInBackground([this, receiver, write = std::move(write), adopt = std::move(adopt),
                               setting = backupSetting(), runBackups = services_.runBackups] {
        auto outcome = std::make_shared<Outcome>();
        try {
            const std::lock_guard held(runBackups->mutex);
            outcome->done = write(setting, runBackups->record);
        } catch (const files::SaveError &error) {
            outcome->cause = QString::fromStdString(error.cause());
        } catch (const files::ChangedOnDisk &error) {
            outcome->cause = QString::fromUtf8(error.what());
            outcome->changedOnDisk = true;
        } catch (const std::exception &error) {
            outcome->cause = QString::fromUtf8(error.what());
        }
        postBack(receiver, [this, outcome, adopt] {
            saving_ = false;
            encoding_.reset(); // done by now: the worker finished it before writing
            if (outcome->done) {
                adopt(*outcome->done);
                Q_EMIT saved(outcome->done->backup);
            } else {
                Q_EMIT saveFailed(outcome->cause, outcome->changedOnDisk);
            }
            if (std::exchange(lockAfterSave_, false))
                lock();
        });
    });
}

void DatabaseSession::postBack(const std::weak_ptr<QObject> &receiver, std::function<void()> then)
{
    const auto anchor = receiver.lock();
    if (!anchor)
        return;
    QMetaObject::invokeMethod(
        anchor.get(),
        [receiver, then = std::move(then)] {
            if (!receiver.expired())
                then();
        },
        Qt::QueuedConnection);
}

void DatabaseSession::afterSave(const std::filesystem::path &location, const files::DiskStamp &stamp,
                                std::uint64_t position)
{
    file_->adopt(location, stamp);
    location_ = location;
    // A save replaces the file: the claim follows it to the new one.
    if (services_.openFiles) {
        services_.openFiles->claim(location, owner_);
        services_.openFiles->refresh(owner_);
    }
    undo_.markSavedAt(position);
    dirtyMaybeChanged();
}

} // namespace quillon::state
