#include "ui/AttachmentsPanel.h"

#include "files/DiskStamp.h"
#include "files/SafeWrite.h"
#include "files/SecretFile.h"
#include "model/Attachments.h"
#include "ui/Asker.h"
#include "ui/FieldText.h"
#include "ui/Icons.h"
#include "ui/InspectorTexts.h"
#include "ui/Paths.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include <exception>

namespace quillon::ui {
AttachmentsPanel::AttachmentsPanel(state::DatabaseSession& session, Asker& asker, QWidget* parent)
    : QWidget(parent), session_(session), asker_(asker), list_(new QVBoxLayout), add_(new QPushButton(this))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    list_->setContentsMargins(0, 0, 0, 0);
    list_->setSpacing(2);
    layout->addLayout(list_);
    add_->setText(inspectorText::addAttachment);
    add_->setIcon(icons::add());
    add_->setAccessibleName(inspectorText::chooseAttachment);
    layout->addWidget(add_, 0, Qt::AlignLeft);
    connect(add_, &QPushButton::clicked, this, &AttachmentsPanel::addFromFile);
}

void AttachmentsPanel::setEntry(std::optional<model::Entry> entry)
{
    entry_ = std::move(entry);
    reload();
}

void AttachmentsPanel::reload()
{
    add_->setEnabled(entry_.has_value());
    const auto listed = entry_ ? model::attachments(*entry_) : std::vector<model::Attachment>{};
    // Most changes of an entry leave its attachments alone; the rows, and the focus in them, then stay.
    bool same = listed.size() == rows_.size();
    for (std::size_t i = 0; same && i < listed.size(); ++i)
        same = rows_[i].name == fromUtf8(listed[i].name) && rows_[i].poolIndex == listed[i].poolIndex;
    if (same)
        return;
    dropRows();
    const QLocale locale;
    for (const auto& attachment : listed) {
        Row row;
        row.name = fromUtf8(attachment.name);
        row.poolIndex = attachment.poolIndex;
        row.box = new QWidget(this);
        auto* line = new QHBoxLayout(row.box);
        line->setContentsMargins(0, 0, 0, 0);
        row.label = new QLabel(row.name, row.box);
        row.label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        line->addWidget(row.label, 1);
        row.size = new QLabel(row.box);
        row.size->setForegroundRole(QPalette::PlaceholderText);
        if (const auto* bytes = content(row.name))
            row.size->setText(locale.formattedDataSize(qint64(bytes->size())));
        line->addWidget(row.size);
        row.save = new QPushButton(inspectorText::saveAttachment, row.box);
        row.save->setAccessibleName(inspectorText::saveAttachmentTip + row.name);
        row.save->setToolTip(inspectorText::saveAttachmentTip + row.name);
        line->addWidget(row.save);
        row.remove = new QToolButton(row.box);
        row.remove->setIcon(icons::remove());
        row.remove->setAutoRaise(true);
        row.remove->setFocusPolicy(Qt::StrongFocus);
        row.remove->setAccessibleName(inspectorText::removeAttachment + row.name);
        row.remove->setToolTip(inspectorText::removeAttachment + row.name);
        line->addWidget(row.remove);
        list_->addWidget(row.box);
        row.box->show(); // now, not on the next turn of the event loop, so the tab order holds at once
        connect(row.save, &QPushButton::clicked, this, [this, name = row.name] { saveToFile(name); });
        connect(row.remove, &QToolButton::clicked, this, [this, name = row.name] { remove(name); });
        rows_.push_back(row);
    }
    Q_EMIT rowsRebuilt();
}

void AttachmentsPanel::dropRows()
{
    for (auto& row : rows_) {
        for (auto* child : row.box->findChildren<QWidget*>())
            child->blockSignals(true);
        row.box->hide();
        list_->removeWidget(row.box);
        row.box->deleteLater();
    }
    rows_.clear();
}

QList<QWidget*> AttachmentsPanel::focusOrder() const
{
    QList<QWidget*> out;
    for (const auto& row : rows_)
        out << row.save << row.remove;
    out << add_;
    return out;
}

const kdbx::SecureBytes* AttachmentsPanel::content(const QString& name) const
{
    if (!entry_)
        return nullptr;
    const auto ref = withUtf8(name, [&](std::string_view utf8) { return model::attachmentRef(*entry_, utf8); });
    const auto& pool = session_.kdbx().inner.binaries;
    if (!ref || *ref >= pool.size())
        return nullptr;
    return &pool[*ref].data;
}

void AttachmentsPanel::addFromFile()
{
    if (!entry_)
        return;
    const auto path = asker_.chooseFile(window(), inspectorText::chooseAttachment, anyFileFilter);
    if (!path)
        return;
    kdbx::SecureBytes bytes;
    try {
        bytes = files::readSecretFile(toPath(*path));
    } catch (const std::system_error& error) {
        asker_.warn(window(), inspectorText::couldNotAdd, QString::fromStdString(error.code().message()));
        return;
    }
    const QString name = QFileInfo(*path).fileName();
    withUtf8(name, [&](std::string_view utf8) { return session_.addAttachment(*entry_, utf8, std::move(bytes)); });
}

void AttachmentsPanel::saveToFile(const QString& name)
{
    if (!content(name)) {
        asker_.warn(window(), inspectorText::couldNotSave, inspectorText::attachmentMissing);
        return;
    }
    const auto path =
        asker_.chooseSaveFile(window(), inspectorText::saveAttachmentTitle, name, anyFileFilter);
    // The chooser ran an event loop: the entry may have changed meanwhile.
    const auto* bytes = path ? content(name) : nullptr;
    if (!bytes)
        return;
    try {
        const auto target = toPath(*path);
        files::SafeWrite::write(bytes->span(), target, files::DiskStamp::ofFile(target));
    } catch (const std::system_error& error) {
        asker_.warn(window(), inspectorText::couldNotSave, QString::fromStdString(error.code().message()));
        return;
    } catch (const std::exception&) {
        asker_.warn(window(), inspectorText::couldNotSave);
        return;
    }
    Q_EMIT saved();
}

void AttachmentsPanel::remove(const QString& name)
{
    if (!entry_)
        return;
    withUtf8(name, [&](std::string_view utf8) { return session_.removeAttachment(*entry_, utf8); });
}

} // namespace quillon::ui
