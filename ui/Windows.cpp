#include "ui/Windows.h"

#include "state/Preferences.h"
#include "ui/Asker.h"
#include "ui/DatabasePages.h"
#include "ui/MainWindow.h"
#include "ui/Paths.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTabWidget>
#include <QTextDocument>
#include <QTextEdit>

#include <algorithm>

namespace quillon::ui {

Windows::Windows(Asker& asker, Clipboard& clipboard, state::Preferences& preferences,
                 state::SessionServices services, QObject* parent)
    : QObject(parent), recents_(preferences), context_{asker, clipboard, preferences, recents_, std::move(services)}
{
    context_.services.openFiles = &files_;
}

Windows::~Windows()
{
    for (auto& window : order_)
        delete window.data();
}

MainWindow* Windows::makeWindow()
{
    MenuHandlers handlers;
    handlers.perform = [this](Command command) { perform(command); };
    handlers.isChecked = [this](Command command) {
        if (command == Command::toggleBackups)
            return context_.preferences.backUpBeforeSaving();
        if (command == Command::toggleNotesWrap)
            return context_.preferences.wrapNotes();
        return false;
    };
    handlers.isEnabled = [this](Command command) {
        const auto* vault = frontVault();
        return !vault || vault->canPerform(command);
    };
    handlers.titleOf = [this](Command command) {
        const auto* vault = frontVault();
        return vault ? vault->menuTitle(command) : QString();
    };
    handlers.recentPaths = [this] { return recents_.paths(); };
    handlers.openRecent = [this](const QString& path) { open(path, frontWindow(), frontVault()); };
    handlers.clearRecents = [this] {
        recents_.clear();
        refreshRecent();
    };
    handlers.windowList = [this] {
        std::vector<WindowItem> items;
        const VaultWindow* front = frontVault();
        for (const VaultWindow* vault : all_)
            items.push_back({vault->title(), vault == front});
        return items;
    };
    handlers.showWindow = [this](std::size_t index) {
        if (index < all_.size())
            bringForward(all_[index]);
    };
    auto* window = new MainWindow(handlers);
    window->setAttribute(Qt::WA_DeleteOnClose);
    order_.insert(order_.begin(), window);
    connect(window, &MainWindow::activated, this, [this](MainWindow* w) {
        auto at = std::find(order_.begin(), order_.end(), w);
        if (at != order_.end())
            std::rotate(order_.begin(), at, at + 1);
    });
    connect(window, &MainWindow::closing, this, &Windows::forget);
    return window;
}

VaultWindow* Windows::makeVault()
{
    auto* vault = new VaultWindow(context_);
    all_.push_back(vault);
    connect(vault, &VaultWindow::chooseDatabaseRequested, this, [this, vault] { chooseAndOpen(vault); });
    connect(vault, &VaultWindow::openRequested, this, [this, vault](const QString& path) {
        open(path, qobject_cast<MainWindow*>(vault->window()), vault);
    });
    return vault;
}

MainWindow* Windows::newWindow()
{
    auto* window = makeWindow();
    auto* vault = makeVault();
    window->addVault(vault);
    window->bringForward(vault);
    return window;
}

VaultWindow* Windows::newTab()
{
    MainWindow* window = frontWindow();
    if (!window)
        return newWindow()->currentVault();
    auto* vault = makeVault();
    window->addVault(vault);
    window->bringForward(vault);
    return vault;
}

VaultWindow* Windows::open(const QString& path, MainWindow* host, VaultWindow* reusable)
{
    files_.prune();
    if (const auto owner = files_.owner(toPath(path))) {
        for (auto* vault : all_)
            if (vault->session().owner() == owner) {
                bringForward(vault);
                return vault;
            }
    }
    VaultWindow* vault = reusable && reusable->isEmpty() ? reusable : nullptr;
    if (!vault) {
        vault = makeVault();
        MainWindow* window = host ? host : makeWindow();
        window->addVault(vault);
    }
    bringForward(vault);
    vault->openFile(path);
    return vault;
}

void Windows::openHandedOver(const QStringList& paths)
{
    if (paths.isEmpty()) {
        if (auto* vault = frontVault())
            bringForward(vault);
        else
            newWindow();
        return;
    }
    for (const QString& path : paths)
        open(path, frontWindow(), frontVault());
}

void Windows::bringForward(VaultWindow* vault)
{
    if (auto* window = qobject_cast<MainWindow*>(vault->window()))
        window->bringForward(vault);
}

void Windows::closeVault(VaultWindow* vault)
{
    if (std::find(all_.begin(), all_.end(), vault) == all_.end())
        return;
    QPointer<VaultWindow> asked = vault;
    bringForward(vault);
    vault->askToClose([this, asked](bool agreed) {
        if (agreed && asked)
            discardVault(asked);
    });
}

void Windows::quit()
{
    std::vector<QPointer<VaultWindow>> each;
    for (auto* window : windows())
        for (auto* vault : window->vaults())
            each.emplace_back(vault);
    VaultWindow::askEachToClose(std::move(each), [this](VaultWindow* vault) { bringForward(vault); },
                                [this](bool agreed) {
        if (agreed)
            Q_EMIT quitRequested();
    });
}

void Windows::discardVault(VaultWindow* vault)
{
    auto at = std::find(all_.begin(), all_.end(), vault);
    if (at == all_.end())
        return;
    all_.erase(at);
    if (auto* window = qobject_cast<MainWindow*>(vault->window()))
        window->removeVault(vault);
    vault->setParent(nullptr);
    delete vault;
}

void Windows::forget(MainWindow* window)
{
    for (auto* vault : window->vaults()) {
        all_.erase(std::remove(all_.begin(), all_.end(), vault), all_.end());
        // Gone now rather than with the window, so the file is free for the next open at once.
        vault->setParent(nullptr);
        delete vault;
    }
    order_.erase(std::remove(order_.begin(), order_.end(), window), order_.end());
}

std::vector<MainWindow*> Windows::windows() const
{
    std::vector<MainWindow*> list;
    for (const auto& window : order_)
        if (window)
            list.push_back(window.data());
    return list;
}

MainWindow* Windows::frontWindow() const
{
    for (const auto& window : order_)
        if (window)
            return window.data();
    return nullptr;
}

VaultWindow* Windows::frontVault() const
{
    auto* window = frontWindow();
    return window ? window->currentVault() : nullptr;
}

void Windows::lockAll()
{
    for (auto* vault : all_)
        vault->perform(Command::lockDatabase);
}

void Windows::noteActivity()
{
    for (auto* vault : all_)
        vault->session().noteActivity();
}

void Windows::checkIdle()
{
    const int minutes = context_.preferences.idleLockMinutes();
    for (auto* vault : all_)
        vault->session().checkIdle(minutes);
}

state::Session Windows::currentSession() const
{
    QList<state::WindowTabs> tabs;
    for (auto* window : windows()) {
        state::WindowTabs one;
        for (auto* vault : window->vaults())
            one.tabs << vault->path();
        one.current = window->tabs()->currentIndex();
        tabs << one;
    }
    return state::buildSession(tabs);
}

bool Windows::restore(const state::Session& session)
{
    const auto plan = state::restorePlan(session, [this](const QString& path) {
        files_.prune();
        return files_.owner(toPath(path)) != nullptr;
    });
    VaultWindow* front = nullptr;
    for (const auto& group : plan) {
        MainWindow* window = nullptr;
        std::vector<VaultWindow*> made;
        for (const QString& path : group.open) {
            VaultWindow* vault = open(path, window);
            window = qobject_cast<MainWindow*>(vault->window());
            made.push_back(vault);
        }
        if (group.bringForward && *group.bringForward < static_cast<int>(made.size()))
            bringForward(made[static_cast<std::size_t>(*group.bringForward)]);
        if (!front && !made.empty())
            front = frontVault();
    }
    // Groups were remembered front to back: the window that was in front at quit is in front again.
    if (front)
        bringForward(front);
    return front != nullptr;
}

void Windows::refreshRecent()
{
    const QStringList paths = recents_.paths();
    for (auto* vault : all_)
        vault->setRecent(paths);
}

void Windows::chooseAndOpen(VaultWindow* reusable)
{
    QWidget* parent = reusable ? reusable->window() : frontWindow();
    const auto chosen = context_.asker.chooseFile(parent, QStringLiteral("Open Database"), databaseFilter);
    if (chosen)
        open(*chosen, frontWindow(), reusable ? reusable : frontVault());
}

namespace {

// Edit commands go to the field that has the keyboard, as the responder chain would send them.
bool sendToFocus(const char* method)
{
    QWidget* focus = QApplication::focusWidget();
    return focus && focus->metaObject()->indexOfMethod(QMetaObject::normalizedSignature((std::string(method) + "()").c_str())) >= 0 &&
           QMetaObject::invokeMethod(focus, method);
}

// Undo and Redo stay with a text field only while it has typing of its own to take back; otherwise they act on
// the database, even with a field in focus.
bool fieldHasHistory(Command command)
{
    QWidget* focus = QApplication::focusWidget();
    const bool undo = command == Command::undo;
    if (const auto* line = qobject_cast<QLineEdit*>(focus))
        return undo ? line->isUndoAvailable() : line->isRedoAvailable();
    const QTextDocument* text = nullptr;
    if (const auto* edit = qobject_cast<QTextEdit*>(focus))
        text = edit->document();
    else if (const auto* plain = qobject_cast<QPlainTextEdit*>(focus))
        text = plain->document();
    if (text)
        return undo ? text->isUndoAvailable() : text->isRedoAvailable();
    return true;
}

} // namespace

void Windows::perform(Command command)
{
    VaultWindow* vault = frontVault();
    MainWindow* window = frontWindow();
    switch (command) {
    case Command::hide:
        for (auto* w : windows())
            w->showMinimized();
        return;
    case Command::terminate:
        quit();
        return;
    case Command::newWindow:
        newWindow();
        return;
    case Command::newTab:
        newTab();
        return;
    case Command::openDatabase:
        chooseAndOpen(vault);
        return;
    case Command::newDatabase:
        showNewDatabase(*this);
        return;
    case Command::performClose:
        if (vault)
            closeVault(vault);
        else if (window)
            window->close();
        return;
    case Command::toggleBackups:
        context_.preferences.setBackUpBeforeSaving(!context_.preferences.backUpBeforeSaving());
        return;
    case Command::toggleNotesWrap:
        context_.preferences.setWrapNotes(!context_.preferences.wrapNotes());
        return;
    case Command::undo:
    case Command::redo:
        // A field being typed in undoes its own typing first.
        if (!(fieldHasHistory(command) && sendToFocus(commandName(command))) && vault)
            vault->perform(command);
        return;
    case Command::cut:
    case Command::copy:
    case Command::paste:
    case Command::selectAll:
        sendToFocus(commandName(command));
        return;
    case Command::performMiniaturize:
        if (window)
            window->showMinimized();
        return;
    case Command::performZoom:
        if (window)
            window->isMaximized() ? window->showNormal() : window->showMaximized();
        return;
    default:
        if (vault)
            vault->perform(command);
        return;
    }
}

} // namespace quillon::ui
