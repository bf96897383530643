#include "ui/CustomFieldsPanel.h"

#include "ui/Asker.h"
#include "ui/FieldText.h"
#include "ui/Icons.h"
#include "ui/InspectorTexts.h"
#include "ui/SecretField.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace quillon::ui {
namespace {

// Another panel shows the one-time password.
constexpr std::string_view otpField = "otp";

std::vector<model::CustomField> listedFields(const model::Entry& entry)
{
    auto fields = entry.customFields();
    std::erase_if(fields, [](const model::CustomField& f) { return f.name == otpField; });
    return fields;
}

} // namespace

CustomFieldsPanel::CustomFieldsPanel(state::DatabaseSession& session, Asker& asker, QWidget* parent)
    : QWidget(parent), session_(session), asker_(asker), list_(new QVBoxLayout), add_(new QPushButton(this))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    list_->setContentsMargins(0, 0, 0, 0);
    list_->setSpacing(4);
    layout->addLayout(list_);
    add_->setText(inspectorText::addField);
    add_->setIcon(icons::add());
    add_->setAccessibleName(inspectorText::addField);
    layout->addWidget(add_, 0, Qt::AlignLeft);
    connect(add_, &QPushButton::clicked, this, &CustomFieldsPanel::addField);
}

void CustomFieldsPanel::setEntry(std::optional<model::Entry> entry)
{
    entry_ = std::move(entry);
    // Entries of one kind share their field names, so the rows stay and take the new values; each starts
    // masked again.
    for (auto& row : rows_) {
        if (row.secret)
            row.secret->setRevealed(false);
        row.valueEdit->setModified(false);
    }
    reload();
}

void CustomFieldsPanel::reload()
{
    add_->setEnabled(entry_.has_value());
    if (!entry_) {
        dropRows();
        return;
    }
    const auto fields = listedFields(*entry_);
    bool same = fields.size() == rows_.size();
    for (std::size_t i = 0; same && i < fields.size(); ++i)
        same = rows_[i].name == fromUtf8(fields[i].name) && rows_[i].isProtected == fields[i].isProtected;
    if (!same) {
        rebuild(fields);
        return;
    }
    for (std::size_t i = 0; i < fields.size(); ++i)
        showText(rows_[i].valueEdit, fromUtf8(fields[i].value));
}

void CustomFieldsPanel::rebuild(const std::vector<model::CustomField>& fields)
{
    // Focus comes back to the same place in the same row, so a rename or a protection change keeps the
    // user where they were.
    int focusRow = -1;
    int focusPart = 0;
    for (std::size_t i = 0; i < rows_.size(); ++i) {
        const QWidget* parts[] = {rows_[i].nameEdit, rows_[i].valueEdit, rows_[i].protect, rows_[i].remove,
                                  rows_[i].secret ? static_cast<QWidget*>(rows_[i].secret->revealButton()) : nullptr};
        for (int p = 0; p < 5; ++p)
            if (parts[p] && parts[p]->hasFocus()) {
                focusRow = int(i);
                focusPart = p;
            }
    }
    dropRows();
    for (const auto& field : fields) {
        Row row;
        row.name = fromUtf8(field.name);
        row.isProtected = field.isProtected;
        // The name with its buttons above, the value below at the full width of the pane.
        row.box = new QWidget(this);
        auto* lines = new QVBoxLayout(row.box);
        lines->setContentsMargins(0, 0, 0, 4);
        lines->setSpacing(2);
        auto* top = new QHBoxLayout;
        top->setSpacing(2);
        lines->addLayout(top);
        row.nameEdit = new QLineEdit(row.name, row.box);
        row.nameEdit->setAccessibleName(inspectorText::fieldName);
        top->addWidget(row.nameEdit, 1);
        row.protect = new QToolButton(row.box);
        row.protect->setText(inspectorText::protectField);
        row.protect->setCheckable(true);
        row.protect->setChecked(field.isProtected);
        row.protect->setFocusPolicy(Qt::StrongFocus);
        row.protect->setToolTip(inspectorText::protectFieldTip + row.name);
        row.protect->setAccessibleName(inspectorText::protectFieldTip + row.name);
        top->addWidget(row.protect);
        row.remove = new QToolButton(row.box);
        row.remove->setIcon(icons::remove());
        row.remove->setAutoRaise(true);
        row.remove->setFocusPolicy(Qt::StrongFocus);
        row.remove->setToolTip(inspectorText::removeField + row.name);
        row.remove->setAccessibleName(inspectorText::removeField + row.name);
        top->addWidget(row.remove);
        if (field.isProtected) {
            row.secret = new SecretField(inspectorText::fieldValue + row.name, row.name, row.box);
            row.valueEdit = row.secret->edit();
            lines->addWidget(row.secret);
            connect(row.secret, &SecretField::copyRequested, this, [this, name = row.name] {
                commitTyped();
                Q_EMIT copyRequested(name);
            });
        } else {
            row.valueEdit = new QLineEdit(row.box);
            row.valueEdit->setAccessibleName(inspectorText::fieldValue + row.name);
            lines->addWidget(row.valueEdit);
        }
        row.valueEdit->setText(fromUtf8(field.value));
        list_->addWidget(row.box);
        row.box->show(); // now, not on the next turn of the event loop, so the tab order holds at once

        const QString name = row.name;
        connect(row.nameEdit, &QLineEdit::editingFinished, this, [this, name] { rename(name); });
        connect(row.valueEdit, &QLineEdit::editingFinished, this, [this, name] { commitValue(name); });
        connect(row.protect, &QToolButton::clicked, this, [this, name] { toggleProtection(name); });
        connect(row.remove, &QToolButton::clicked, this, [this, name] { removeField(name); });
        rows_.push_back(row);
    }
    Q_EMIT rowsRebuilt();
    if (focusRow >= 0 && !rows_.empty()) {
        const Row& row = rows_[std::min(std::size_t(focusRow), rows_.size() - 1)];
        QWidget* parts[] = {row.nameEdit, row.valueEdit, row.protect, row.remove,
                            row.secret ? static_cast<QWidget*>(row.secret->revealButton()) : row.protect};
        parts[focusPart]->setFocus(Qt::OtherFocusReason);
    }
}

void CustomFieldsPanel::dropRows()
{
    // A row may be dropped from inside its own editor's signal, so it goes later, silenced, and emptied now.
    for (auto& row : rows_) {
        for (auto* child : row.box->findChildren<QWidget*>())
            child->blockSignals(true);
        row.valueEdit->clear();
        row.box->hide();
        list_->removeWidget(row.box);
        row.box->deleteLater();
    }
    rows_.clear();
}

QList<QWidget*> CustomFieldsPanel::focusOrder() const
{
    QList<QWidget*> out;
    for (const auto& row : rows_) {
        out << row.nameEdit << row.protect << row.remove << row.valueEdit;
        if (row.secret)
            out << row.secret->revealButton() << row.secret->copyButton();
    }
    out << add_;
    return out;
}

const CustomFieldsPanel::Row* CustomFieldsPanel::rowNamed(const QString& name) const
{
    for (const auto& row : rows_)
        if (row.name == name)
            return &row;
    return nullptr;
}

void CustomFieldsPanel::addField()
{
    if (!entry_)
        return;
    commitTyped();
    QString name = inspectorText::newFieldName;
    for (int n = 2; withUtf8(name, [&](std::string_view utf8) { return entry_->field(utf8).has_value(); }); ++n)
        name = inspectorText::newFieldName + QLatin1Char(' ') + QString::number(n);
    withUtf8(name, [&](std::string_view utf8) { return session_.setField(*entry_, utf8, "", false); });
    if (const Row* row = rowNamed(name)) {
        row->nameEdit->setFocus(Qt::OtherFocusReason);
        row->nameEdit->selectAll();
    }
}

void CustomFieldsPanel::rename(const QString& name)
{
    const Row* row = rowNamed(name);
    if (!row || !entry_)
        return;
    const QString to = row->nameEdit->text().trimmed();
    if (to == name || to.isEmpty()) {
        row->nameEdit->setText(name);
        return;
    }
    const QByteArray utf8 = to.toUtf8();
    const std::string_view toName(utf8.constData(), std::size_t(utf8.size()));
    const QString refusal = model::isStandardField(toName) || toName == otpField ? inspectorText::fieldNameReserved
                            : entry_->field(toName)                             ? inspectorText::fieldExists
                                                                                : QString();
    if (!refusal.isEmpty()) {
        row->nameEdit->setText(name);
        asker_.warn(window(), refusal);
        return;
    }
    commitValue(name);
    withUtf8(name, [&](std::string_view from) { return session_.renameField(*entry_, from, toName); });
}

void CustomFieldsPanel::commitValue(const QString& name)
{
    const Row* row = rowNamed(name);
    if (!row || !entry_ || !isTypedInto(row->valueEdit))
        return;
    const bool isProtected = row->isProtected;
    QLineEdit* edit = row->valueEdit;
    markCommitted(edit);
    withUtf8(name, [&](std::string_view field) {
        return withUtf8(edit->text(),
                        [&](std::string_view text) { return session_.setField(*entry_, field, text, isProtected); });
    });
}

void CustomFieldsPanel::toggleProtection(const QString& name)
{
    const Row* row = rowNamed(name);
    if (!row || !entry_)
        return;
    // What was typed goes in with the new protection, as one change.
    const bool isProtected = !row->isProtected;
    const QString text = row->valueEdit->text();
    withUtf8(name, [&](std::string_view field) {
        return withUtf8(text,
                        [&](std::string_view value) { return session_.setField(*entry_, field, value, isProtected); });
    });
}

void CustomFieldsPanel::removeField(const QString& name)
{
    if (!entry_)
        return;
    withUtf8(name, [&](std::string_view field) { return session_.removeField(*entry_, field); });
}

void CustomFieldsPanel::commitTyped()
{
    for (const auto& row : rows_)
        if (isTypedInto(row.valueEdit)) {
            commitValue(row.name);
            return; // the command rebuilt or refreshed the rows
        }
}

} // namespace quillon::ui
