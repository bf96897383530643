#include "ui/Asker.h"

#include <QFileDialog>
#include <QMessageBox>

namespace quillon::ui {

QMessageBox* DialogAsker::makeWarning(QWidget* parent, const QString& message)
{
    auto* box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Quillon"), message, QMessageBox::Ok, parent);
    box->setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    return box;
}

void DialogAsker::warn(QWidget* parent, const QString& message)
{
    makeWarning(parent, message)->exec();
}

std::optional<QString> DialogAsker::chooseFile(QWidget* parent, const QString& message, const QString& filter)
{
    const QString chosen = QFileDialog::getOpenFileName(parent, message, QString(), filter);
    if (chosen.isEmpty())
        return std::nullopt;
    return chosen;
}

} // namespace quillon::ui
