#include "ui/StartScreen.h"

#include "ui/Icons.h"

#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace quillon::ui {

StartScreen::StartScreen(QWidget* parent) : QWidget(parent)
{
    auto* icon = new QLabel(this);
    icon->setPixmap(icons::application().pixmap(64, 64));
    icon->setAlignment(Qt::AlignCenter);
    auto* title = new QLabel(QStringLiteral("Quillon"), this);
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.6);
    titleFont.setWeight(QFont::DemiBold);
    title->setFont(titleFont);
    title->setAlignment(Qt::AlignCenter);

    auto* open = new QPushButton(QStringLiteral("Open Database…"), this);
    open->setObjectName(QStringLiteral("openDatabase"));
    open->setDefault(true);
    newButton_ = new QPushButton(QStringLiteral("New Database…"), this);
    newButton_->setObjectName(QStringLiteral("newDatabase"));
    newButton_->setEnabled(false); // the new-database page comes with saving
    connect(open, &QPushButton::clicked, this, &StartScreen::openDatabase);
    connect(newButton_, &QPushButton::clicked, this, &StartScreen::newDatabase);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(open);
    buttons->addWidget(newButton_);
    buttons->addStretch();

    auto* recentTitle = new QLabel(QStringLiteral("Recent Databases"), this);
    recent_ = new QListWidget(this);
    recent_->setObjectName(QStringLiteral("recentDatabases"));
    recent_->setAccessibleName(QStringLiteral("Recent Databases"));
    recentTitle->setBuddy(recent_);
    recent_->setMaximumWidth(420);
    recent_->setMinimumHeight(120);
    connect(recent_, &QListWidget::itemActivated, this,
            [this](QListWidgetItem* item) { Q_EMIT openRecent(item->data(Qt::UserRole).toString()); });

    auto* column = new QVBoxLayout;
    column->addStretch(2);
    column->addWidget(icon);
    column->addWidget(title);
    column->addSpacing(12);
    column->addLayout(buttons);
    column->addSpacing(18);
    column->addWidget(recentTitle, 0, Qt::AlignHCenter);
    column->addWidget(recent_, 0, Qt::AlignHCenter);
    column->addStretch(3);
    setLayout(column);
    setRecent({});
}

void StartScreen::setRecent(const QStringList& paths)
{
    recent_->clear();
    for (const QString& path : paths) {
        auto* item = new QListWidgetItem(QFileInfo(path).fileName(), recent_);
        item->setToolTip(path);
        item->setData(Qt::UserRole, path);
    }
    if (paths.isEmpty()) {
        auto* none = new QListWidgetItem(QStringLiteral("No Recent Databases"), recent_);
        none->setFlags(Qt::NoItemFlags);
    }
}

} // namespace quillon::ui
