#include "ui/Asker.h"

#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

namespace quillon::ui {
namespace {

QMessageBox* makeBox(QMessageBox::Icon icon, QWidget* parent, const QString& message, const QString& note)
{
    auto* box = new QMessageBox(icon, QStringLiteral("Quillon"), message, QMessageBox::NoButton, parent);
    box->setInformativeText(note);
    box->setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    return box;
}

} // namespace

QMessageBox* DialogAsker::makeWarning(QWidget* parent, const QString& message, const QString& note)
{
    auto* box = makeBox(QMessageBox::Warning, parent, message, note);
    box->setStandardButtons(QMessageBox::Ok);
    return box;
}

QMessageBox* DialogAsker::makeQuestion(QWidget* parent, const QString& question, const QString& note)
{
    auto* box = makeBox(QMessageBox::Warning, parent, question, note);
    box->setDefaultButton(box->addButton(QStringLiteral("No"), QMessageBox::NoRole));
    box->addButton(QStringLiteral("Yes"), QMessageBox::YesRole);
    return box;
}

QMessageBox* DialogAsker::makeSaveQuestion(QWidget* parent, const QString& message, const QString& note)
{
    auto* box = makeBox(QMessageBox::Warning, parent, message, note);
    box->setDefaultButton(box->addButton(QStringLiteral("Save"), QMessageBox::AcceptRole));
    box->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    QPushButton* discard = box->addButton(QStringLiteral("Don't Save"), QMessageBox::DestructiveRole);
    discard->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_D));
    return box;
}

void DialogAsker::warn(QWidget* parent, const QString& message, const QString& note)
{
    makeWarning(parent, message, note)->exec();
}

bool DialogAsker::confirm(QWidget* parent, const QString& question, const QString& note)
{
    QMessageBox* box = makeQuestion(parent, question, note);
    box->setAttribute(Qt::WA_DeleteOnClose, false);
    box->exec();
    const bool yes = box->buttonRole(box->clickedButton()) == QMessageBox::YesRole;
    delete box;
    return yes;
}

SaveAnswer DialogAsker::askToSave(QWidget* parent, const QString& message, const QString& note)
{
    QMessageBox* box = makeSaveQuestion(parent, message, note);
    box->setAttribute(Qt::WA_DeleteOnClose, false);
    box->exec();
    const auto role = box->buttonRole(box->clickedButton());
    delete box;
    if (role == QMessageBox::AcceptRole)
        return SaveAnswer::save;
    if (role == QMessageBox::DestructiveRole)
        return SaveAnswer::dontSave;
    return SaveAnswer::cancel;
}

std::optional<QString> DialogAsker::chooseFile(QWidget* parent, const QString& message, const QString& filter)
{
    const QString chosen = QFileDialog::getOpenFileName(parent, message, QString(), filter);
    if (chosen.isEmpty())
        return std::nullopt;
    return chosen;
}

std::optional<QString> DialogAsker::chooseSaveFile(QWidget* parent, const QString& message, const QString& suggested,
                                                   const QString& filter)
{
    QFileDialog dialog(parent, message, suggested, filter);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setDefaultSuffix(QStringLiteral("kdbx"));
    if (!suggested.isEmpty())
        dialog.selectFile(suggested);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    return dialog.selectedFiles().front();
}

} // namespace quillon::ui
