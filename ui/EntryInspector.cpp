#include "ui/EntryInspector.h"

#include "model/Document.h"
#include "model/Nodes.h"
#include "state/Preferences.h"
#include "ui/AttachmentsPanel.h"
#include "ui/Clipboard.h"
#include "ui/CustomFieldsPanel.h"
#include "ui/DateText.h"
#include "ui/FieldText.h"
#include "ui/HistoryMenu.h"
#include "ui/Icons.h"
#include "ui/InspectorTexts.h"
#include "ui/OpenUrl.h"
#include "ui/SecretField.h"
#include "ui/VaultWindow.h"
#include "ui/VersionView.h"

#include <QCalendarWidget>
#include <QCheckBox>
#include <QDateTimeEdit>
#include <QDesktopServices>
#include <QEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace quillon::ui {
namespace {

QToolButton* iconButton(const QIcon& icon, const QString& name, QWidget* parent)
{
    auto* button = new QToolButton(parent);
    button->setIcon(icon);
    button->setAutoRaise(true);
    button->setToolTip(name);
    button->setAccessibleName(name);
    button->setFocusPolicy(Qt::StrongFocus);
    return button;
}

QWidget* rowOf(QWidget* parent, std::initializer_list<QWidget*> widgets)
{
    auto* box = new QWidget(parent);
    auto* line = new QHBoxLayout(box);
    line->setContentsMargins(0, 0, 0, 0);
    line->setSpacing(2);
    bool first = true;
    for (auto* widget : widgets) {
        line->addWidget(widget, first ? 1 : 0);
        first = false;
    }
    return box;
}

// The focusable controls of a panel another part of the window made, in the order it made them.
QList<QWidget*> focusablesOf(QWidget* panel)
{
    QList<QWidget*> out;
    if (!panel)
        return out;
    if (panel->focusPolicy() & Qt::TabFocus)
        out << panel;
    for (auto* child : panel->findChildren<QWidget*>())
        if ((child->focusPolicy() & Qt::TabFocus) && !child->focusProxy())
            out << child;
    return out;
}

} // namespace

EntryInspector::EntryInspector(VaultWindow& vault, QWidget* parent)
    : QWidget(parent), vault_(vault), session_(vault.session()),
      openUrl_([](const QUrl& url) { QDesktopServices::openUrl(url); })
{
    build();
    connect(&session_, &state::DatabaseSession::itemChanged, this, [this](pugi::xml_node element) {
        if (entry_ && element == entry_->element())
            reload();
    });
    connect(&session_, &state::DatabaseSession::itemAboutToBeRemoved, this, [this](pugi::xml_node element) {
        if (!entry_)
            return;
        for (auto at = entry_->element(); at; at = at.parent())
            if (at == element) {
                // In the middle of the removal's command: nothing typed is committed now.
                entry_.reset();
                setEntry(std::nullopt);
                return;
            }
    });
    // The old document is gone by now: the handle must not be read.
    connect(&session_, &state::DatabaseSession::documentReset, this, [this] {
        entry_.reset();
        setEntry(std::nullopt);
    });
    connect(&vault_.context().preferences.changes(), &state::PreferenceChanges::flagChanged, this,
            [this](const QString& key) {
                if (key == state::keys::wrapNotes)
                    applyWrap();
            });
    setEntry(std::nullopt);
}

EntryInspector::~EntryInspector()
{
    // Children are destroyed after this body: a focused editor's end of editing must not reach back here.
    for (auto* child : findChildren<QWidget*>())
        child->blockSignals(true);
    disconnect(&session_, nullptr, this, nullptr);
    entry_.reset();
    emptyFields();
}

void EntryInspector::build()
{
    setAccessibleName(inspectorText::inspectorName);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    pages_ = new QStackedWidget(this);
    outer->addWidget(pages_);

    empty_ = new QLabel(inspectorText::noEntry, pages_);
    empty_->setAlignment(Qt::AlignCenter);
    empty_->setForegroundRole(QPalette::PlaceholderText);
    pages_->addWidget(empty_);

    auto* scroll = new QScrollArea(pages_);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setAccessibleName(inspectorText::fieldsName);
    editor_ = new QWidget(scroll);
    scroll->setWidget(editor_);
    pages_->addWidget(scroll);

    version_ = new VersionView(pages_);
    pages_->addWidget(version_);
    connect(version_, &VersionView::restoreRequested, this, &EntryInspector::restoreShownVersion);
    connect(version_, &VersionView::closeRequested, this, &EntryInspector::closeVersion);

    auto* column = new QVBoxLayout(editor_);
    auto* form = new QFormLayout;
    form_ = form;
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    column->addLayout(form);

    const auto labelled = [&](const QString& text, QWidget* field, QWidget* buddy) {
        auto* label = new QLabel(text, editor_);
        label->setBuddy(buddy);
        form->addRow(label, field);
    };

    title_ = new QLineEdit(editor_);
    title_->setAccessibleName(inspectorText::title);
    history_ = new HistoryMenu(editor_);
    connect(history_, &HistoryMenu::versionChosen, this, &EntryInspector::openVersion);
    labelled(inspectorText::title, rowOf(editor_, {title_, history_}), title_);

    username_ = new QLineEdit(editor_);
    username_->setAccessibleName(inspectorText::username);
    usernameCopy_ = iconButton(icons::copy(), inspectorText::copyItem(inspectorText::username.toLower()), editor_);
    connect(usernameCopy_, &QToolButton::clicked, this, &EntryInspector::copyUsername);
    labelled(inspectorText::username, rowOf(editor_, {username_, usernameCopy_}), username_);

    password_ = new SecretField(inspectorText::password, inspectorText::password.toLower(), editor_);
    connect(password_, &SecretField::copyRequested, this, &EntryInspector::copyPassword);
    labelled(inspectorText::password, password_, password_->edit());

    auto* extras = new QWidget(editor_);
    extras_ = new QVBoxLayout(extras);
    extras_->setContentsMargins(0, 0, 0, 0);
    extras->hide(); // until a panel is placed in it
    form->addRow(QString(), extras);

    url_ = new QLineEdit(editor_);
    url_->setAccessibleName(inspectorText::url);
    openUrlButton_ = iconButton(icons::openUrl(), inspectorText::openUrl, editor_);
    connect(openUrlButton_, &QToolButton::clicked, this, &EntryInspector::openUrl);
    labelled(inspectorText::url, rowOf(editor_, {url_, openUrlButton_}), url_);

    notes_ = new QPlainTextEdit(editor_);
    notes_->setAccessibleName(inspectorText::notes);
    notes_->setTabChangesFocus(true);
    notes_->setMinimumHeight(90);
    notes_->installEventFilter(this);
    labelled(inspectorText::notes, notes_, notes_);

    custom_ = new CustomFieldsPanel(session_, vault_.context().asker, editor_);
    connect(custom_, &CustomFieldsPanel::rowsRebuilt, this, &EntryInspector::relinkTabOrder);
    connect(custom_, &CustomFieldsPanel::copyRequested, this, [this](const QString& name) {
        withUtf8(name, [&](std::string_view field) { copyField(field, name, true); });
    });
    labelled(inspectorText::customFields, custom_, custom_);

    expires_ = new QCheckBox(inspectorText::expires, editor_);
    expires_->setAccessibleName(inspectorText::expires);
    picker_ = new QDateTimeEdit(editor_);
    picker_->setAccessibleName(inspectorText::expiryDate);
    picker_->setCalendarPopup(true);
    // The locale's short form, with the year in full: an expiry decades ahead must not read as a past one.
    QString dateFormat = QLocale().dateFormat(QLocale::ShortFormat);
    if (!dateFormat.contains(QStringLiteral("yyyy")))
        dateFormat.replace(QStringLiteral("yy"), QStringLiteral("yyyy"));
    picker_->setDisplayFormat(dateFormat + QLatin1Char(' ') + QLocale().timeFormat(QLocale::ShortFormat));
    connect(expires_, &QCheckBox::clicked, this, &EntryInspector::changeExpiry);
    connect(picker_, &QDateTimeEdit::editingFinished, this, [this] {
        if (expires_->isChecked())
            changeExpiry(true);
    });
    connect(picker_->calendarWidget(), &QCalendarWidget::clicked, this, [this] {
        if (expires_->isChecked())
            changeExpiry(true);
    });
    auto* expiryRow = new QWidget(editor_);
    auto* expiryLine = new QHBoxLayout(expiryRow);
    expiryLine->setContentsMargins(0, 0, 0, 0);
    expiryLine->addWidget(expires_);
    expiryLine->addWidget(picker_);
    expiryLine->addStretch(1);
    form->addRow(QString(), expiryRow);

    attachments_ = new AttachmentsPanel(session_, vault_.context().asker, editor_);
    connect(attachments_, &AttachmentsPanel::rowsRebuilt, this, &EntryInspector::relinkTabOrder);
    labelled(inspectorText::attachments, attachments_, attachments_);

    created_ = new QLabel(editor_);
    modified_ = new QLabel(editor_);
    for (auto* line : {created_, modified_}) {
        line->setForegroundRole(QPalette::PlaceholderText);
        line->setTextInteractionFlags(Qt::TextSelectableByMouse);
        column->addWidget(line);
    }
    column->addStretch(1);

    for (auto [edit, name] : {std::pair{title_, "Title"}, {username_, "UserName"}, {password_->edit(), "Password"},
                              {url_, "URL"}})
        connect(edit, &QLineEdit::editingFinished, this, [this, edit = edit, name = name] { commitField(edit, name); });
    applyWrap();
    relinkTabOrder();
}

void EntryInspector::setEntry(std::optional<model::Entry> entry)
{
    const bool same = entry && entry_ && entry->element() == entry_->element();
    if (same) {
        reload();
        return;
    }
    keepTyped();
    entry_ = std::move(entry);
    closeVersion();
    password_->setRevealed(false);
    emptyFields();
    custom_->setEntry(entry_);
    attachments_->setEntry(entry_);
    reload();
}

void EntryInspector::reload()
{
    if (!entry_) {
        pages_->setCurrentWidget(empty_);
        history_->setEntry(std::nullopt);
        return;
    }
    loading_ = true;
    const auto& e = *entry_;
    showText(title_, fromUtf8(e.title()));
    showText(username_, fromUtf8(e.userName()));
    showText(password_->edit(), fromUtf8(e.password()));
    showText(url_, fromUtf8(e.url()));
    showText(notes_, fromUtf8(e.notes()));
    custom_->reload();
    attachments_->reload();
    history_->setEntry(entry_);

    const auto expiry = e.expiry();
    expires_->setChecked(expiry.has_value());
    picker_->setEnabled(expiry.has_value());
    if (!picker_->hasFocus()) {
        const auto stored = model::nodes::childTime(e.element(), "ExpiryTime");
        picker_->setDateTime(toDateTime(expiry.value_or(stored.value_or(e.document().now()))));
    }
    const auto created = e.creationTime();
    const auto modified = e.lastModificationTime();
    created_->setText(created ? inspectorText::created + mediumDateTime(*created) : QString());
    created_->setVisible(created.has_value());
    modified_->setText(modified ? inspectorText::lastModified + mediumDateTime(*modified) : QString());
    modified_->setVisible(modified.has_value());
    loading_ = false;

    if (isShowingVersion()) {
        // The history may have moved under the open version: show it again, or leave if it has gone.
        const auto versions = e.history();
        const int position = version_->position();
        if (position >= 1 && std::size_t(position) <= versions.size())
            version_->showVersion(versions[std::size_t(position - 1)], position);
        else
            closeVersion();
    } else if (pages_->currentWidget() == empty_) {
        pages_->setCurrentIndex(1);
    }
}

void EntryInspector::emptyFields()
{
    loading_ = true;
    for (auto* edit : {title_, username_, password_->edit(), url_})
        edit->setText(QString());
    notes_->setPlainText(QString());
    version_->clear();
    if (!entry_) {
        custom_->setEntry(std::nullopt);
        attachments_->setEntry(std::nullopt);
        created_->clear();
        modified_->clear();
        expires_->setChecked(false);
    }
    loading_ = false;
}

bool EntryInspector::isShowingVersion() const
{
    return pages_->currentWidget() == version_;
}

void EntryInspector::setOneTimePanel(QWidget* panel)
{
    // A row of its own under the password and its generator, named like the others.
    if (oneTimePanel_)
        form_->removeRow(oneTimePanel_);
    oneTimePanel_ = panel;
    if (panel) {
        int row = 0;
        QFormLayout::ItemRole role{};
        form_->getWidgetPosition(extras_->parentWidget(), &row, &role); // under the generator
        auto* label = new QLabel(inspectorText::oneTimePassword, editor_);
        label->setBuddy(panel);
        form_->insertRow(row + 1, label, panel);
    }
    relinkTabOrder();
}

void EntryInspector::setGeneratorBox(QWidget* box)
{
    placeExtra(generatorBox_, box, 0);
}

void EntryInspector::placeExtra(QWidget*& slot, QWidget* widget, int index)
{
    if (slot) {
        extras_->removeWidget(slot);
        slot->deleteLater();
    }
    slot = widget;
    if (widget) {
        widget->setParent(extras_->parentWidget());
        extras_->insertWidget(index, widget);
    }
    extras_->parentWidget()->setVisible(generatorBox_ != nullptr);
    relinkTabOrder();
}

void EntryInspector::relinkTabOrder()
{
    QList<QWidget*> order{title_, history_, username_, usernameCopy_, password_->edit(), password_->revealButton(),
                          password_->copyButton()};
    order << focusablesOf(generatorBox_) << focusablesOf(oneTimePanel_);
    order << url_ << openUrlButton_ << notes_ << custom_->focusOrder() << expires_ << picker_
          << attachments_->focusOrder();
    for (qsizetype i = 1; i < order.size(); ++i)
        setTabOrder(order[i - 1], order[i]);
}

void EntryInspector::applyWrap()
{
    notes_->setLineWrapMode(vault_.context().preferences.wrapNotes() ? QPlainTextEdit::WidgetWidth
                                                                     : QPlainTextEdit::NoWrap);
}

bool EntryInspector::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == notes_ && event->type() == QEvent::FocusOut)
        commitNotes();
    return QWidget::eventFilter(watched, event);
}

void EntryInspector::commitField(QLineEdit* edit, std::string_view name)
{
    if (!entry_ || loading_ || !isTypedInto(edit))
        return;
    markCommitted(edit);
    withUtf8(edit->text(), [&](std::string_view text) { return session_.editField(*entry_, name, text); });
}

void EntryInspector::commitNotes()
{
    if (!entry_ || loading_ || !isTypedInto(notes_))
        return;
    markCommitted(notes_);
    withUtf8(notes_->toPlainText(), [&](std::string_view text) { return session_.editField(*entry_, "Notes", text); });
}

void EntryInspector::commitTyped()
{
    if (!entry_)
        return;
    for (auto [edit, name] : {std::pair{title_, "Title"}, {username_, "UserName"}, {password_->edit(), "Password"},
                              {url_, "URL"}})
        commitField(edit, name);
    commitNotes();
    custom_->commitTyped();
}

void EntryInspector::keepTyped()
{
    if (!entry_)
        return;
    // What was typed belongs to the entry it was typed for. The selection may move in the middle of another
    // command (a row leaving the table as its entry moves), where no command can start, so the edit is made
    // on the next turn, on the entry found again by its UUID.
    struct Typed {
        std::string name;
        QString text;
        bool isProtected;
    };
    std::vector<Typed> typed;
    for (auto [edit, name] : {std::pair{title_, "Title"}, {username_, "UserName"}, {password_->edit(), "Password"},
                              {url_, "URL"}})
        if (isTypedInto(edit))
            typed.push_back({name, edit->text(), edit == password_->edit()});
    if (isTypedInto(notes_))
        typed.push_back({"Notes", notes_->toPlainText(), entry_->notesProtected()});
    for (const auto& row : custom_->rows())
        if (isTypedInto(row.valueEdit))
            typed.push_back({row.name.toStdString(), row.valueEdit->text(), row.isProtected});
    if (typed.empty())
        return;
    QTimer::singleShot(0, &session_, [session = &session_, uuid = std::string(entry_->uuid()), typed] {
        const auto entry = session->isOpen() ? session->document().findEntry(uuid) : std::nullopt;
        if (!entry)
            return;
        std::vector<QByteArray> texts;
        std::vector<state::FieldEdit> edits;
        texts.reserve(typed.size());
        for (const auto& t : typed) {
            texts.push_back(t.text.toUtf8());
            edits.push_back({t.name, std::string_view(texts.back().constData(), std::size_t(texts.back().size())),
                             t.isProtected});
        }
        session->editFields(*entry, edits);
        for (auto& text : texts)
            kdbx::secureWipe(text.data(), std::size_t(text.size()));
    });
}

void EntryInspector::changeExpiry(bool expires)
{
    if (!entry_ || loading_)
        return;
    picker_->setEnabled(expires);
    session_.setExpiry(*entry_, expires ? std::optional(fromDateTime(picker_->dateTime())) : std::nullopt);
}

void EntryInspector::copyField(std::string_view name, const QString& shownName, bool secret)
{
    if (!entry_)
        return;
    commitTyped();
    vault_.context().clipboard.copy(fromUtf8(entry_->field(name).value_or("")), secret);
    vault_.showSubtitle(inspectorText::copied(shownName));
}

void EntryInspector::copyPassword()
{
    copyField("Password", inspectorText::password, true);
}

void EntryInspector::copyUsername()
{
    copyField("UserName", inspectorText::username, false);
}

void EntryInspector::openUrl()
{
    if (!entry_)
        return;
    commitTyped();
    if (const auto url = urlToOpen(fromUtf8(entry_->url())))
        openUrl_(*url);
}

void EntryInspector::openVersion(int position)
{
    if (!entry_)
        return;
    commitTyped();
    const auto versions = entry_->history();
    if (position < 1 || std::size_t(position) > versions.size())
        return;
    version_->showVersion(versions[std::size_t(position - 1)], position);
    pages_->setCurrentWidget(version_);
    version_->closeButton()->setFocus(Qt::OtherFocusReason);
}

void EntryInspector::restoreShownVersion()
{
    if (!entry_ || !isShowingVersion())
        return;
    const auto versions = entry_->history();
    const int position = version_->position();
    if (position < 1 || std::size_t(position) > versions.size())
        return;
    const auto& version = versions[std::size_t(position - 1)];
    const auto when = version.lastModificationTime();
    const QString subtitle =
        when ? inspectorText::restoredFrom(mediumDateTime(*when)) : inspectorText::restoredEarlier;
    closeVersion();
    if (session_.restoreVersion(*entry_, version))
        vault_.showSubtitle(subtitle);
}

void EntryInspector::closeVersion()
{
    const bool wasShowing = isShowingVersion();
    version_->clear();
    pages_->setCurrentIndex(entry_ ? 1 : 0);
    if (wasShowing)
        title_->setFocus(Qt::OtherFocusReason);
}

} // namespace quillon::ui
