#include "ui/MergeController.h"

#include "model/Diff.h"
#include "state/DatabaseSession.h"
#include "ui/Asker.h"
#include "ui/ChangesDialog.h"
#include "ui/MenuTable.h"
#include "ui/TypedSecret.h"
#include "ui/VaultWindow.h"

#include <QFileInfo>
#include <QInputDialog>
#include <QLineEdit>

namespace quillon::ui {
namespace {

const QString reviewTitle = QStringLiteral("Review Changes");
const QString mergeDiskTitle = QStringLiteral("Merge Changes From Disk");
const QString mergeDatabaseTitle = QStringLiteral("Merge From Database");

// The window-modal question for another database's password; the typed text leaves the widget at once.
std::optional<kdbx::SecureBytes> askPasswordInDialog(QWidget* parent, const QString& fileName)
{
    QInputDialog dialog(parent);
    dialog.setWindowModality(Qt::WindowModal);
    dialog.setWindowTitle(mergeDatabaseTitle);
    dialog.setLabelText(QStringLiteral("Password for %1:").arg(fileName));
    dialog.setTextEchoMode(QLineEdit::Password);
    dialog.setOkButtonText(QStringLiteral("Merge"));
    auto* field = dialog.findChild<QLineEdit*>();
    if (!field)
        return std::nullopt;
    field->setAccessibleName(QStringLiteral("Password"));
    const bool accepted = dialog.exec() == QDialog::Accepted;
    auto typed = takeTyped(field);
    if (!accepted)
        return std::nullopt;
    return typed;
}

QString summaryHeading(const model::MergeSummary& summary, const QString& from)
{
    if (!summary.changed())
        return QStringLiteral("Nothing to merge: this window already holds every change in %1.").arg(from);
    return QStringLiteral("Merged the changes in %1. They are not saved yet: save to keep them, or undo the merge.")
        .arg(from);
}

} // namespace

MergeController::MergeController(VaultWindow& vault, QObject* parent)
    : QObject(parent), vault_(vault), askPassword_(askPasswordInDialog)
{
    vault.setHandler(Command::reviewChanges, this, [this] { reviewChanges(); });
    vault.setHandler(Command::mergeFromDisk, this, [this] { mergeFromDisk(); });
    vault.setHandler(Command::mergeFromDatabase, this, [this] { mergeFromDatabase(); });
    // A lock drops whatever was being read for the document it replaced.
    connect(&vault.session(), &state::DatabaseSession::documentReset, this, [this] {
        if (std::exchange(busy_, false))
            vault_.setStatus({});
    });
}

ChangesDialog* MergeController::dialog() const
{
    return dialog_.data();
}

bool MergeController::ready() const
{
    auto& session = vault_.session();
    return !busy_ && session.isOpen() && !session.isLocked() && !session.isSaving() && session.credentials();
}

void MergeController::show(const QString& title, const QString& heading, const QStringList& lines)
{
    if (dialog_)
        dialog_->close();
    dialog_ = new ChangesDialog(title, heading, lines, &vault_);
    dialog_->setObjectName(QStringLiteral("changesDialog"));
    dialog_->open();
}

void MergeController::reviewChanges()
{
    if (!ready())
        return;
    vault_.commitEditing();
    auto& session = vault_.session();
    const auto compare = [this](model::Document& before, const std::vector<kdbx::InnerBinary>* pool) {
        auto& current = vault_.session();
        const auto changes = model::diff({before, pool}, {current.document(), &current.kdbx().inner.binaries});
        const auto name = current.displayName();
        show(reviewTitle,
             changes.empty() ? QStringLiteral("No changes to save: %1 holds what this window shows.").arg(name)
                             : QStringLiteral("What the next save will write to %1, against the file as last read:")
                                   .arg(name),
             changeLines(changes));
    };
    if (!session.hasLastFile()) {
        // Never read from a file: every group and entry is new, and its settings are simply those of a new one.
        pugi::xml_document empty;
        empty.append_child("KeePassFile").append_child("Root");
        model::Document before(empty);
        auto changes = model::diff({before, nullptr}, {session.document(), &session.kdbx().inner.binaries});
        changes.settings.clear();
        show(reviewTitle,
             QStringLiteral("%1 has not been saved yet: everything in it is new.").arg(session.displayName()),
             changeLines(changes));
        return;
    }
    busy_ = true;
    vault_.setStatus(QStringLiteral("Reading…"));
    session.decodeLastFile([this, compare](state::DatabaseSession::Decoded last) {
        busy_ = false;
        vault_.setStatus({});
        if (!last.file) {
            vault_.context().asker.warn(&vault_, QStringLiteral("Could not read the file as last saved."),
                                        last.error);
            return;
        }
        model::Document before(last.file->document);
        compare(before, &last.file->inner.binaries);
    });
}

void MergeController::mergeFromDisk()
{
    if (!ready() || !vault_.session().location())
        return;
    vault_.commitEditing();
    auto& session = vault_.session();
    busy_ = true;
    vault_.setStatus(QStringLiteral("Reading…"));
    auto ancestor = std::make_shared<std::unique_ptr<kdbx::KdbxFile>>();
    auto mergeDisk = [this, ancestor] {
        const bool started = vault_.session().decodeDisk([this, ancestor](state::DatabaseSession::Decoded disk) {
            busy_ = false;
            vault_.setStatus({});
            auto& current = vault_.session();
            const auto name = current.displayName();
            if (!disk.file) {
                vault_.context().asker.warn(&vault_, QStringLiteral("Could not merge %1.").arg(name),
                                            disk.error);
                return;
            }
            std::optional<model::Document> before;
            std::optional<model::DocumentSide> side;
            if (*ancestor) {
                before.emplace((*ancestor)->document);
                side.emplace(model::DocumentSide{*before, &(*ancestor)->inner.binaries});
            }
            const auto summary = current.mergeFromDisk(disk, side ? &*side : nullptr);
            show(mergeDiskTitle, summaryHeading(summary, QStringLiteral("%1 on disk").arg(name)),
                 mergeLines(summary));
        });
        if (!started) {
            busy_ = false;
            vault_.setStatus({});
        }
    };
    // The version both grew from first, so that a deletion on either side is told from an addition on the other.
    if (!session.decodeLastFile([ancestor, mergeDisk](state::DatabaseSession::Decoded last) {
            *ancestor = std::move(last.file); // unreadable: merged without it, by modification times
            mergeDisk();
        }))
        mergeDisk();
}

void MergeController::mergeFromDatabase()
{
    if (!ready())
        return;
    vault_.commitEditing();
    auto& asker = vault_.context().asker;
    const auto chosen = asker.chooseFile(&vault_, QStringLiteral("Choose the database to merge"), databaseFilter);
    if (!chosen)
        return;
    const QString fileName = QFileInfo(*chosen).fileName();
    auto password = askPassword_(&vault_, fileName);
    if (!password || !ready())
        return;
    kdbx::Credentials credentials;
    credentials.password = std::move(*password);
    busy_ = true;
    vault_.setStatus(QStringLiteral("Reading…"));
    vault_.session().decodeFile(
        std::filesystem::path(chosen->toStdString()), std::move(credentials),
        [this, fileName](state::DatabaseSession::Decoded other) {
            busy_ = false;
            vault_.setStatus({});
            if (!other.file) {
                vault_.context().asker.warn(&vault_, QStringLiteral("Could not open %1.").arg(fileName),
                                            other.wrongCredentials
                                                ? QStringLiteral("The password is not the one it was saved with.")
                                                : other.error);
                return;
            }
            model::Document theirs(other.file->document);
            // No common version is known: modification times and deletion records decide.
            const auto summary =
                vault_.session().mergeFrom({theirs, &other.file->inner.binaries}, nullptr);
            show(mergeDatabaseTitle, summaryHeading(summary, fileName), mergeLines(summary));
        });
}

} // namespace quillon::ui
