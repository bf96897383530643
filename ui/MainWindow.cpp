#include "ui/MainWindow.h"

#include "ui/ActionTexts.h"
#include "ui/Icons.h"
#include "ui/MenuBar.h"
#include "ui/VaultWindow.h"

#include <QAction>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPointer>
#include <QMenuBar>
#include <QStatusBar>
#include <QTabBar>
#include <QTabWidget>
#include <QToolBar>

namespace quillon::ui {
namespace {

// What the unlocked page carries out: offered only while the front tab has its page.
constexpr Command pageCommands[] = {Command::focusSearch,  Command::addEntry,     Command::addGroup,
                                    Command::copyPassword, Command::copyUsername, Command::openURL};

} // namespace

MainWindow::MainWindow(const MenuHandlers& handlers, QWidget* parent) : QMainWindow(parent)
{
    setWindowIcon(icons::application());
    menu_ = new MenuBar(menuBar(), handlers);

    auto* toolbar = addToolBar(actionText::toolbar);
    toolbar->setObjectName(QStringLiteral("toolbar"));
    toolbar->setMovable(false);
    toolbar->setToolButtonStyle(Qt::ToolButtonIconOnly);
    const auto item = [this, toolbar](const QIcon& icon, const QString& text, const char* name, Command command) {
        QAction* action = toolbar->addAction(icon, text);
        action->setObjectName(QString::fromLatin1(name));
        connect(action, &QAction::triggered, this, [this, command] {
            if (auto* vault = currentVault())
                vault->perform(command);
        });
        return action;
    };
    lock_ = item(icons::lock(), actionText::lock, "vault.lock", Command::lockDatabase);
    lock_->setToolTip(actionText::lockTip);
    newEntry_ = item(icons::newEntry(), actionText::newEntry, "vault.newEntry", Command::addEntry);
    newGroup_ = item(icons::newGroup(), actionText::newGroup, "vault.newGroup", Command::addGroup);
    auto* spacer = new QWidget(toolbar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolbar->addWidget(spacer);
    searchSlot_ = new QWidget(toolbar);
    auto* slotLayout = new QHBoxLayout(searchSlot_);
    slotLayout->setContentsMargins(0, 0, 4, 0);
    searchItem_ = toolbar->addWidget(searchSlot_);
    searchItem_->setObjectName(QStringLiteral("vault.search"));
    searchItem_->setVisible(false);

    tabs_ = new QTabWidget(this);
    tabs_->setDocumentMode(true);
    tabs_->setAccessibleName(actionText::databaseTabs);
    tabs_->setTabBarAutoHide(true);
    tabs_->setMovable(true);
    tabs_->tabBar()->setExpanding(true);
    connect(tabs_, &QTabWidget::currentChanged, this, &MainWindow::refresh);
    setCentralWidget(tabs_);
    resize(820, 560);
}

VaultWindow* MainWindow::currentVault() const
{
    return qobject_cast<VaultWindow*>(tabs_->currentWidget());
}

std::vector<VaultWindow*> MainWindow::vaults() const
{
    std::vector<VaultWindow*> all;
    for (int i = 0; i < tabs_->count(); ++i)
        if (auto* vault = qobject_cast<VaultWindow*>(tabs_->widget(i)))
            all.push_back(vault);
    return all;
}

void MainWindow::addVault(VaultWindow* vault)
{
    const int index = tabs_->addTab(vault, vault->title());
    const auto update = [this, vault] {
        const int at = tabs_->indexOf(vault);
        if (at >= 0)
            tabs_->setTabText(at, vault->title());
        if (vault == currentVault())
            refresh();
    };
    connect(vault, &VaultWindow::titleChanged, this, update);
    connect(vault, &VaultWindow::lockedChanged, this, update);
    connect(vault, &VaultWindow::subtitleChanged, this, [this, vault] {
        if (vault == currentVault())
            refresh();
    });
    tabs_->setCurrentIndex(index);
    refresh();
}

void MainWindow::removeVault(VaultWindow* vault)
{
    const int at = tabs_->indexOf(vault);
    if (at >= 0)
        tabs_->removeTab(at);
    vault->disconnect(this);
    if (tabs_->count() == 0)
        close();
    else
        refresh();
}

void MainWindow::bringForward(VaultWindow* vault)
{
    tabs_->setCurrentWidget(vault);
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
    Q_EMIT activated(this);
}

void MainWindow::refresh()
{
    auto* vault = currentVault();
    if (!vault) {
        setWindowTitle(QStringLiteral("Quillon"));
        statusBar()->clearMessage();
        for (QAction* action : {lock_, newEntry_, newGroup_})
            action->setEnabled(false);
        for (const Command command : pageCommands)
            menu_->action(command)->setEnabled(false);
        placeSearchField(nullptr);
        return;
    }
    setWindowTitle(vault->title() + QStringLiteral("[*]"));
    if (vault->subtitle().isEmpty())
        statusBar()->clearMessage();
    else
        statusBar()->showMessage(vault->subtitle());
    setWindowModified(vault->session().isDirty());
    const bool unlocked = vault->session().isOpen() && !vault->session().isLocked();
    for (QAction* action : {lock_, newEntry_, newGroup_})
        action->setEnabled(unlocked);
    for (const Command command : pageCommands)
        menu_->action(command)->setEnabled(vault->hasHandler(command));
    placeSearchField(unlocked ? vault->searchField() : nullptr);
}

void MainWindow::placeSearchField(QLineEdit* field)
{
    searchItem_->setVisible(field != nullptr);
    if (field == placed_)
        return;
    if (placed_) {
        placed_->hide();
        if (placedHome_)
            placed_->setParent(placedHome_);
        else
            delete placed_.data();
    }
    placed_ = field;
    placedHome_ = field ? field->parentWidget() : nullptr;
    if (field) {
        searchSlot_->layout()->addWidget(field);
        field->setMinimumWidth(180);
        field->setMaximumWidth(280);
        field->show();
    }
}

void MainWindow::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::ActivationChange && isActiveWindow())
        Q_EMIT activated(this);
    QMainWindow::changeEvent(event);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    std::vector<QPointer<VaultWindow>> asking;
    for (auto* vault : vaults()) {
        vault->commitEditing();
        if (vault->session().isDirty() || vault->session().isSaving())
            asking.emplace_back(vault);
    }
    if (!closingAgreed_ && !asking.empty()) {
        // Each tab with changes asks in turn; the window closes once all agreed (a save may take a while).
        event->ignore();
        QPointer<MainWindow> self = this;
        VaultWindow::askEachToClose(
            std::move(asking), [this](VaultWindow* vault) { tabs_->setCurrentWidget(vault); },
            [self](bool agreed) {
                if (!self || !agreed)
                    return;
                self->closingAgreed_ = true;
                QMetaObject::invokeMethod(self, &QWidget::close, Qt::QueuedConnection);
            });
        return;
    }
    closingAgreed_ = false;
    Q_EMIT closing(this);
    event->accept();
}

} // namespace quillon::ui
