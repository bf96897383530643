#include "ui/VaultWindow.h"

#include "files/CanonicalPath.h"
#include "state/DatabaseMemory.h"
#include "state/Preferences.h"
#include "ui/Asker.h"
#include "ui/BrowseView.h"
#include "ui/Clipboard.h"
#include "ui/DeleteFlow.h"
#include "ui/Paths.h"
#include "ui/RecentDatabases.h"
#include "ui/SaveFlow.h"
#include "ui/StartScreen.h"
#include "ui/UnlockView.h"
#include "ui/UnlockedPage.h"
#include "ui/VaultTexts.h"

#include <QApplication>
#include <QLineEdit>
#include <QTimer>

namespace quillon::ui {
VaultWindow::VaultWindow(VaultContext& context, QWidget* parent)
    : QStackedWidget(parent), context_(context), session_(std::make_unique<state::DatabaseSession>(context.services))
{
    start_ = new StartScreen(this);
    unlock_ = new UnlockView(*session_, context_.asker, this);
    addWidget(start_);
    addWidget(unlock_);
    start_->setRecent(context_.recents.paths());
    connect(start_, &StartScreen::openDatabase, this, &VaultWindow::chooseDatabaseRequested);
    connect(start_, &StartScreen::openRecent, this, &VaultWindow::openRequested);

    auto* session = session_.get();
    connect(session, &state::DatabaseSession::lockedChanged, this, [this](bool locked) {
        showPage();
        Q_EMIT titleChanged();
        Q_EMIT lockedChanged(locked);
    });
    connect(session, &state::DatabaseSession::unlockScreenChanged, this, &VaultWindow::titleChanged);
    connect(session, &state::DatabaseSession::dirtyChanged, this, &VaultWindow::titleChanged);
    connect(session, &state::DatabaseSession::alert, this,
            [this](const QString& message) { context_.asker.warn(window(), message); });
    connect(session, &state::DatabaseSession::clipboardClearRequested, this,
            [this] { context_.clipboard.clearIfStillOurs(); });
    connect(session, &state::DatabaseSession::unlockedFromFile, this, &VaultWindow::rememberDatabase);
    subtitleTimer_ = new QTimer(this);
    subtitleTimer_->setSingleShot(true);
    subtitleTimer_->setInterval(1500);
    connect(subtitleTimer_, &QTimer::timeout, this, [this] {
        subtitle_.clear();
        Q_EMIT subtitleChanged();
    });

    SaveFlow::Window hooks;
    hooks.parent = [this] { return window(); };
    hooks.commitEditing = [this] { commitEditing(); };
    hooks.showSubtitle = [this](const QString& text) { showSubtitle(text); };
    hooks.setStatus = [this](const QString& text) { setStatus(text); };
    hooks.saved = [this] {
        rememberDatabase();
        Q_EMIT titleChanged();
    };
    saveFlow_ = new SaveFlow(*session_, context_.asker, context_.services.openFiles, context_.services.backups,
                             std::move(hooks), this);
    DeleteFlow::Window deleting;
    deleting.parent = [this] { return window(); };
    deleting.selectedEntry = [this] {
        auto* view = browseView();
        return view ? view->selectedEntry() : std::nullopt;
    };
    deleting.selectedGroup = [this] {
        auto* view = browseView();
        return view ? view->selectedGroup() : std::nullopt;
    };
    deleting.showSubtitle = [this](const QString& text) { showSubtitle(text); };
    deleteFlow_ = std::make_unique<DeleteFlow>(*session_, context_.asker, std::move(deleting));

    setHandler(Command::saveDatabase, this, [this] {
        if (!session_->isSaving())
            saveFlow_->save();
    });
    setHandler(Command::saveDatabaseAs, this, [this] {
        if (!session_->isSaving())
            saveFlow_->saveAs();
    });
    setHandler(Command::showBackups, this, [this] { saveFlow_->showBackups(); });
    setHandler(Command::deleteEntry, this, [this] { deleteFlow_->deleteEntry(); });
    setHandler(Command::deleteGroup, this, [this] { deleteFlow_->deleteGroup(); });
    setHandler(Command::restoreItem, this, [this] { deleteFlow_->restore(); });
    showPage();
}

VaultWindow::~VaultWindow()
{
    // The page may look at the session while it goes.
    delete unlocked_;
    unlocked_ = nullptr;
}

files::Owner VaultWindow::openFile(const QString& path)
{
    if (auto other = session_->openLocation(toPath(path)))
        return other;
    const auto keyFile = state::DatabaseMemory(context_.preferences).keyFile(path);
    session_->setPendingKeyFile(keyFile ? std::optional(toPath(*keyFile)) : std::nullopt);
    showPage();
    Q_EMIT titleChanged();
    return {};
}

bool VaultWindow::isEmpty() const
{
    return !session_->location() && !session_->isOpen();
}

std::optional<QString> VaultWindow::path() const
{
    if (!session_->location())
        return std::nullopt;
    return fromPath(*session_->location());
}

QString VaultWindow::title() const
{
    if (isEmpty())
        return QStringLiteral("Quillon");
    if (session_->isLocked())
        return session_->unlockScreen().title;
    return session_->displayName();
}

void VaultWindow::setRecent(const QStringList& paths)
{
    start_->setRecent(paths);
}

void VaultWindow::showPage()
{
    if (session_->isOpen() && !session_->isLocked()) {
        if (!unlocked_) {
            unlocked_ = makeUnlockedPage(*this);
            addWidget(unlocked_);
        }
        setCurrentWidget(unlocked_);
        return;
    }
    // Nothing of an unlocked database outlives its lock in a widget.
    if (unlocked_) {
        removeWidget(unlocked_);
        delete unlocked_;
        unlocked_ = nullptr;
    }
    if (session_->isLocked()) {
        setCurrentWidget(unlock_);
        unlock_->focusField();
    } else {
        start_->setRecent(context_.recents.paths());
        setCurrentWidget(start_);
    }
}

BrowseView* VaultWindow::browseView() const
{
    if (!unlocked_)
        return nullptr;
    if (auto* view = qobject_cast<BrowseView*>(unlocked_))
        return view;
    return unlocked_->findChild<BrowseView*>();
}

void VaultWindow::rememberDatabase()
{
    const auto location = path();
    if (!location)
        return;
    const QString canonical = fromPath(files::canonicalPath(*session_->location()));
    const auto& keyFile = session_->unlockScreen().keyFile;
    const auto keyText = keyFile ? std::optional(fromPath(files::canonicalPath(*keyFile))) : std::nullopt;
    // Each write flushes the settings file to disk: one per turn of the event loop, and none that changes
    // nothing, so the window stays responsive right after a large database opens.
    QTimer::singleShot(0, this, [this, canonical] {
        const QStringList recent = context_.recents.paths();
        if (recent.isEmpty() || recent.front() != canonical)
            context_.recents.add(canonical);
    });
    QTimer::singleShot(0, this, [this, canonical] {
        if (context_.preferences.lastDatabasePath() != canonical)
            context_.preferences.setLastDatabasePath(canonical);
    });
    QTimer::singleShot(0, this, [this, canonical, keyText] {
        state::DatabaseMemory memory(context_.preferences);
        if (memory.keyFile(canonical) != keyText)
            memory.setKeyFile(keyText, canonical);
    });
}

void VaultWindow::setHandler(Command command, QObject* owner, std::function<void()> handler)
{
    handlers_.insert(command, Handler{owner, std::move(handler)});
}

bool VaultWindow::hasHandler(Command command) const
{
    const auto found = handlers_.constFind(command);
    return found != handlers_.constEnd() && found->owner;
}

void VaultWindow::showSubtitle(const QString& text)
{
    subtitle_ = text;
    subtitleTimer_->start();
    Q_EMIT subtitleChanged();
}

void VaultWindow::setStatus(const QString& text)
{
    status_ = text;
    Q_EMIT subtitleChanged();
}

void VaultWindow::askToClose(std::function<void(bool)> done)
{
    saveFlow_->askToClose(std::move(done));
}

void VaultWindow::askEachToClose(std::vector<QPointer<VaultWindow>> windows, std::function<void(VaultWindow*)> show,
                                 std::function<void(bool)> done)
{
    while (!windows.empty() && !windows.front())
        windows.erase(windows.begin());
    if (windows.empty())
        return done(true);
    QPointer<VaultWindow> first = windows.front();
    windows.erase(windows.begin());
    if (first->session().isDirty() && show)
        show(first);
    first->askToClose([rest = std::move(windows), show, done = std::move(done)](bool agreed) mutable {
        if (!agreed)
            return done(false);
        askEachToClose(std::move(rest), std::move(show), std::move(done));
    });
}

bool VaultWindow::canPerform(Command command) const
{
    switch (command) {
    case Command::saveDatabase:
    case Command::saveDatabaseAs:
        return session_->canSave() && !session_->isSaving();
    case Command::showBackups:
        return session_->location().has_value();
    case Command::deleteEntry:
    case Command::deleteGroup:
    case Command::restoreItem:
        return session_->isOpen() && !session_->isLocked();
    default:
        return true;
    }
}

QString VaultWindow::menuTitle(Command command) const
{
    if (command == Command::deleteGroup && deleteFlow_->isBinSelected())
        return vaultText::emptyBinItem;
    return {};
}

void VaultWindow::commitEditing()
{
    // Editors commit when they lose focus; the focus comes back so that typing goes on where it was.
    QWidget* focus = QApplication::focusWidget();
    if (!focus || !isAncestorOf(focus))
        return;
    focus->clearFocus();
    focus->setFocus();
}

void VaultWindow::perform(Command command)
{
    if (const auto found = handlers_.constFind(command); found != handlers_.constEnd() && found->owner) {
        found->run();
        return;
    }
    switch (command) {
    case Command::lockDatabase:
        // Focus leaves any field first, so no editor keeps a secret it was showing.
        if (QWidget* focus = QApplication::focusWidget(); focus && isAncestorOf(focus))
            focus->clearFocus();
        session_->lock();
        break;
    case Command::undo:
        session_->undo();
        break;
    case Command::redo:
        session_->redo();
        break;
    default:
        break;
    }
}

} // namespace quillon::ui
