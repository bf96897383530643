#include "ui/KeyFileRow.h"

#include "ui/Icons.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>

namespace quillon::ui {

KeyFileRow makeKeyFileRow(QWidget* parent)
{
    KeyFileRow row{};
    row.name = new QLabel(parent);
    row.name->setObjectName(QStringLiteral("keyFileName"));
    row.choose = new QPushButton(QStringLiteral("Key File…"), parent);
    row.choose->setObjectName(QStringLiteral("chooseKeyFile"));
    row.choose->setAutoDefault(false);
    row.remove = new QToolButton(parent);
    row.remove->setObjectName(QStringLiteral("removeKeyFile"));
    row.remove->setIcon(icons::removeKeyFile());
    row.remove->setAutoRaise(true);
    row.remove->setToolTip(QStringLiteral("Remove key file"));
    row.remove->setAccessibleName(QStringLiteral("Remove key file"));
    row.layout = new QHBoxLayout;
    row.layout->addStretch();
    row.layout->addWidget(row.name);
    row.layout->addWidget(row.remove);
    row.layout->addWidget(row.choose);
    row.layout->addStretch();
    return row;
}

} // namespace quillon::ui
