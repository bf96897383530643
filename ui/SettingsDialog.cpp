#include "ui/SettingsDialog.h"

#include "state/CredentialsForm.h"
#include "state/DatabaseSession.h"
#include "state/Preferences.h"
#include "ui/Asker.h"
#include "ui/CredentialsDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpacerItem>
#include <QVBoxLayout>

namespace quillon::ui {
namespace {

// Every word of this screen that the form does not hold itself.
namespace text {
const QString title = QStringLiteral("Database Settings");
const QString encryption = QStringLiteral("Encryption");
const QString keyDerivation = QStringLiteral("Key derivation");
const QString memory = QStringLiteral("Memory (MB)");
const QString iterations = QStringLiteral("Iterations");
const QString threads = QStringLiteral("Threads");
const QString useRecommended = QStringLiteral("Use Recommended");
const QString history = QStringLiteral("History kept");
const QString unlimited = QStringLiteral("Unlimited");
const QString autoLock = QStringLiteral("Auto-lock (min)");
const QString never = QStringLiteral("0 = never");
const QString reopen = QStringLiteral("Open the last database when Quillon starts");
const QString duress = QStringLiteral("Duress password");
const QString chooseDuress = QStringLiteral("Choose…");
const QString removeDuress = QStringLiteral("Remove");
const QString apply = QStringLiteral("Apply");
const QString cancel = QStringLiteral("Cancel");
const QString undoName = QStringLiteral("Change Settings");
QString recommended(int value)
{
    return QStringLiteral("recommended %1").arg(value);
}
} // namespace text

QLabel* heading(const QString& words, QWidget* parent)
{
    auto* label = new QLabel(words, parent);
    QFont font = label->font();
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

QLabel* note(const QString& words, QWidget* parent)
{
    auto* label = new QLabel(words, parent);
    label->setForegroundRole(QPalette::PlaceholderText);
    label->setWordWrap(true);
    return label;
}

QLineEdit* numberField(const QString& name, const QString& placeholder, QWidget* parent)
{
    auto* field = new QLineEdit(parent);
    field->setAccessibleName(name);
    field->setPlaceholderText(placeholder);
    field->setMaximumWidth(120);
    return field;
}

QComboBox* popUp(const QString& name, const QStringList& items, QWidget* parent)
{
    auto* box = new QComboBox(parent);
    box->setAccessibleName(name);
    box->addItems(items);
    return box;
}

} // namespace

SettingsDialog::SettingsDialog(state::DatabaseSession& session, state::Preferences& preferences, Asker& asker,
                               QWidget* parent)
    : QDialog(parent), session_(session), preferences_(preferences), asker_(asker),
      form_(state::SettingsForm::load(session.kdbx().header, session.document(), preferences))
{
    setWindowTitle(text::title);
    setAttribute(Qt::WA_DeleteOnClose);

    cipher_ = popUp(text::encryption, {QStringLiteral("AES-256"), QStringLiteral("ChaCha20")}, this);
    kdf_ = popUp(text::keyDerivation, {QStringLiteral("Argon2id"), QStringLiteral("Argon2d")}, this);
    memory_ = numberField(text::memory, text::recommended(state::recommendedMemoryMiB), this);
    iterations_ = numberField(text::iterations, text::recommended(state::recommendedIterations), this);
    threads_ = numberField(text::threads, QString(), this);
    warning_ = new QLabel(this);
    warning_->setObjectName(QStringLiteral("memoryWarning"));
    warning_->setWordWrap(true);
    warning_->setFixedWidth(300);
    useRecommended_ = new QPushButton(text::useRecommended, this);
    useRecommended_->setAutoDefault(false);
    history_ = numberField(text::history, QString(), this);
    unlimited_ = new QCheckBox(text::unlimited, this);
    auto* historyRow = new QHBoxLayout;
    historyRow->addWidget(history_);
    historyRow->addWidget(unlimited_);
    historyRow->addStretch();

    auto* useRow = new QHBoxLayout;
    useRow->addWidget(useRecommended_);
    useRow->addStretch();

    autoLock_ = numberField(text::autoLock, text::never, this);
    reopen_ = new QCheckBox(text::reopen, this);
    duressStatus_ = new QLabel(this);
    duressStatus_->setObjectName(QStringLiteral("duressStatus"));
    chooseDuress_ = new QPushButton(text::chooseDuress, this);
    chooseDuress_->setAccessibleName(text::duress);
    chooseDuress_->setAutoDefault(false);
    removeDuress_ = new QPushButton(text::removeDuress, this);
    removeDuress_->setAutoDefault(false);
    auto* duressRow = new QHBoxLayout;
    duressRow->addWidget(duressStatus_);
    duressRow->addWidget(chooseDuress_);
    duressRow->addWidget(removeDuress_);
    duressRow->addStretch();

    // One form for both sections, so that their labels line up.
    rows_ = new QFormLayout;
    rows_->addRow(heading(state::settingsText::databaseHeading, this));
    rows_->addRow(note(state::settingsText::databaseNote, this));
    rows_->addRow(text::encryption, cipher_);
    rows_->addRow(text::keyDerivation, kdf_);
    rows_->addRow(text::memory, memory_);
    rows_->addRow(QString(), warning_);
    rows_->addRow(text::iterations, iterations_);
    rows_->addRow(text::threads, threads_);
    rows_->addRow(QString(), useRow);
    rows_->addRow(text::history, historyRow);
    rows_->addItem(new QSpacerItem(0, 14));
    rows_->addRow(heading(state::settingsText::appHeading, this));
    rows_->addRow(note(state::settingsText::appNote, this));
    rows_->addRow(text::autoLock, autoLock_);
    rows_->addRow(QString(), reopen_);
    rows_->addRow(text::duress, duressRow);

    auto* buttons = new QDialogButtonBox(this);
    apply_ = buttons->addButton(text::apply, QDialogButtonBox::AcceptRole);
    apply_->setDefault(true);
    cancel_ = buttons->addButton(text::cancel, QDialogButtonBox::RejectRole);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(24, 18, 24, 16);
    // Grows and shrinks with the warning's row.
    column->setSizeConstraint(QLayout::SetFixedSize);
    column->addLayout(rows_);
    column->addSpacing(10);
    column->addWidget(buttons);

    fill();

    for (QLineEdit* field : {memory_, iterations_, threads_, history_, autoLock_})
        connect(field, &QLineEdit::textEdited, this, &SettingsDialog::textChanged);
    connect(cipher_, &QComboBox::currentIndexChanged, this, [this](int index) { form_.cipher = index; });
    connect(kdf_, &QComboBox::currentIndexChanged, this, [this](int index) { form_.kdf = index; });
    connect(unlimited_, &QCheckBox::toggled, this, [this](bool on) {
        form_.historyToggled(on);
        history_->setEnabled(form_.historyFieldEnabled());
    });
    connect(reopen_, &QCheckBox::toggled, this, [this](bool on) { form_.reopenLast = on; });
    connect(useRecommended_, &QPushButton::clicked, this, [this] {
        form_.useRecommended();
        fill();
    });
    connect(chooseDuress_, &QPushButton::clicked, this, &SettingsDialog::chooseDuressPassword);
    connect(removeDuress_, &QPushButton::clicked, this, [this] {
        form_.removeDuress();
        showDuress();
    });
    connect(apply_, &QPushButton::clicked, this, &SettingsDialog::applySettings);
    connect(cancel_, &QPushButton::clicked, this, &QDialog::reject);
    // Nothing of a locked database is edited behind its lock.
    connect(&session_, &state::DatabaseSession::lockedChanged, this, [this](bool locked) {
        if (locked)
            reject();
    });
}

void SettingsDialog::showPage()
{
    setWindowModality(Qt::WindowModal);
    open();
    memory_->setFocus(Qt::OtherFocusReason);
}

bool SettingsDialog::warningShown() const
{
    return rows_->isRowVisible(warning_);
}

void SettingsDialog::fill()
{
    cipher_->setCurrentIndex(form_.cipher);
    kdf_->setCurrentIndex(form_.kdf);
    memory_->setText(form_.memory);
    iterations_->setText(form_.iterations);
    threads_->setText(form_.parallelism);
    history_->setText(form_.historyField);
    history_->setEnabled(form_.historyFieldEnabled());
    unlimited_->setChecked(form_.historyUnlimited);
    autoLock_->setText(form_.autoLock);
    reopen_->setChecked(form_.reopenLast);
    showWarning();
    showDuress();
}

void SettingsDialog::textChanged()
{
    form_.memory = memory_->text();
    form_.iterations = iterations_->text();
    form_.parallelism = threads_->text();
    form_.historyField = history_->text();
    form_.autoLock = autoLock_->text();
    form_.updateWarning();
    showWarning();
}

void SettingsDialog::showWarning()
{
    warning_->setText(form_.warning);
    rows_->setRowVisible(warning_, form_.warningVisible());
}

void SettingsDialog::showDuress()
{
    const QString status = form_.duressStatus();
    duressStatus_->setText(status);
    removeDuress_->setEnabled(status == state::settingsText::duressSet ||
                              status == state::settingsText::duressSetOnApply);
}

void SettingsDialog::chooseDuressPassword()
{
    CredentialsPage page;
    page.title = state::credentialsText::duressTitle;
    page.explanation = state::credentialsText::duressNote;
    page.first = state::credentialsText::duressFirst;
    page.second = state::credentialsText::duressSecond;
    page.accept = state::credentialsText::duressAccept;
    page.offersKeyFile = false;
    auto* dialog = new CredentialsDialog(
        page, asker_,
        [this](kdbx::SecureBytes first, kdbx::SecureBytes second, const std::optional<std::filesystem::path>&) {
            const auto refusal = form_.chooseDuress(std::move(first), second);
            showDuress();
            return refusal;
        },
        this);
    dialog->setObjectName(QStringLiteral("duressPage"));
    dialog->showPage();
}

void SettingsDialog::applySettings()
{
    if (!session_.isOpen() || session_.isLocked()) {
        reject();
        return;
    }
    const auto settings = form_.databaseSettings();
    session_.changeSettings(text::undoName, [&settings](kdbx::OuterHeader& header, model::Document& document) {
        settings.applyTo(header, document);
    });
    if (!form_.applyPreferences(preferences_))
        asker_.warn(this, state::settingsText::duressNotWritten);
    accept();
}

} // namespace quillon::ui
