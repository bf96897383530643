#include "ui/VersionView.h"

#include "model/Attachments.h"
#include "ui/FieldText.h"
#include "ui/HistoryMenu.h"
#include "ui/InspectorTexts.h"
#include "ui/SecretField.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace quillon::ui {
namespace {

QLineEdit* readOnlyLine(const QString& text, const QString& name, QWidget* parent)
{
    auto* edit = new QLineEdit(text, parent);
    edit->setReadOnly(true);
    edit->setAccessibleName(name);
    return edit;
}

} // namespace

VersionView::VersionView(QWidget* parent)
    : QWidget(parent), heading_(new QLabel(this)), when_(new QLabel(this)), form_(new QFormLayout),
      password_(nullptr), restore_(new QPushButton(inspectorText::restore, this)),
      close_(new QPushButton(inspectorText::close, this))
{
    auto* layout = new QVBoxLayout(this);
    QFont big = heading_->font();
    big.setPointSizeF(big.pointSizeF() * 1.2);
    big.setWeight(QFont::DemiBold);
    heading_->setFont(big);
    heading_->setWordWrap(true);
    when_->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(heading_);
    layout->addWidget(when_);
    form_->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    layout->addLayout(form_);
    layout->addStretch(1);
    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(close_, QDialogButtonBox::RejectRole);
    buttons->addButton(restore_, QDialogButtonBox::AcceptRole);
    restore_->setAccessibleName(inspectorText::restore);
    close_->setAccessibleName(inspectorText::close);
    layout->addWidget(buttons);
    connect(restore_, &QPushButton::clicked, this, &VersionView::restoreRequested);
    connect(close_, &QPushButton::clicked, this, &VersionView::closeRequested);
}

VersionView::~VersionView()
{
    clear();
}

void VersionView::addRow(const QString& label, QWidget* value)
{
    form_->addRow(label, value);
}

void VersionView::showVersion(const model::Entry& version, int position)
{
    clear();
    position_ = position;
    const QString title = fromUtf8(version.title());
    heading_->setText(inspectorText::versionHeading + (title.isEmpty() ? inspectorText::untitled : title));
    when_->setText(versionTitle(version));
    addRow(inspectorText::title, readOnlyLine(title, inspectorText::title, this));
    addRow(inspectorText::username, readOnlyLine(fromUtf8(version.userName()), inspectorText::username, this));
    password_ = new SecretField(inspectorText::password, inspectorText::password.toLower(), this);
    password_->edit()->setReadOnly(true);
    password_->edit()->setText(fromUtf8(version.password()));
    password_->copyButton()->hide();
    addRow(inspectorText::password, password_);
    addRow(inspectorText::url, readOnlyLine(fromUtf8(version.url()), inspectorText::url, this));
    auto* notes = new QPlainTextEdit(fromUtf8(version.notes()), this);
    notes->setReadOnly(true);
    notes->setAccessibleName(inspectorText::notes);
    notes->setMaximumHeight(120);
    addRow(inspectorText::notes, notes);
    for (const auto& field : version.customFields()) {
        const QString name = fromUtf8(field.name);
        auto* value = readOnlyLine(fromUtf8(field.value), name, this);
        if (field.isProtected)
            value->setEchoMode(QLineEdit::Password);
        addRow(name, value);
    }
    QStringList names;
    for (const auto& attachment : model::attachments(version))
        names << fromUtf8(attachment.name);
    if (!names.isEmpty()) {
        auto* list = new QLabel(names.join(QStringLiteral(", ")), this);
        list->setWordWrap(true);
        addRow(inspectorText::attachments, list);
    }
    // Rows are made after the buttons: the keyboard still reads the version first.
    QList<QWidget*> order;
    for (int row = 0; row < form_->rowCount(); ++row) {
        QWidget* value = form_->itemAt(row, QFormLayout::FieldRole)->widget();
        if (auto* field = qobject_cast<SecretField*>(value))
            order << field->edit() << field->revealButton();
        else if (value->focusPolicy() & Qt::TabFocus)
            order << value;
    }
    order << close_ << restore_;
    for (qsizetype i = 1; i < order.size(); ++i)
        setTabOrder(order[i - 1], order[i]);
}

void VersionView::clear()
{
    position_ = 0;
    for (auto* edit : findChildren<QLineEdit*>())
        edit->clear();
    for (auto* edit : findChildren<QPlainTextEdit*>())
        edit->clear();
    while (form_->rowCount() > 0)
        form_->removeRow(0);
    password_ = nullptr;
}

QString VersionView::valueOf(const QString& label) const
{
    for (int row = 0; row < form_->rowCount(); ++row) {
        const auto* name = qobject_cast<QLabel*>(form_->itemAt(row, QFormLayout::LabelRole)->widget());
        if (!name || name->text() != label)
            continue;
        QWidget* value = form_->itemAt(row, QFormLayout::FieldRole)->widget();
        if (auto* field = qobject_cast<SecretField*>(value))
            return field->edit()->text();
        if (auto* line = qobject_cast<QLineEdit*>(value))
            return line->text();
        if (auto* notes = qobject_cast<QPlainTextEdit*>(value))
            return notes->toPlainText();
        if (auto* text = qobject_cast<QLabel*>(value))
            return text->text();
    }
    return {};
}

} // namespace quillon::ui
