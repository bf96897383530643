#include "ui/GeneratorBox.h"

#include "state/DatabaseSession.h"
#include "tools/Passphrase.h"

#include <QButtonGroup>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>

namespace quillon::ui {
namespace {

QString fromUtf8(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QPushButton* button(const QString& text, const char* name, QWidget* parent)
{
    auto* made = new QPushButton(text, parent);
    made->setObjectName(QString::fromLatin1(name));
    made->setAccessibleName(text);
    made->setAutoDefault(false);
    return made;
}

} // namespace

GeneratorBox::GeneratorBox(state::DatabaseSession& session, QWidget* parent)
    : GeneratorBox(session, tools::effWordList(), parent)
{
}

GeneratorBox::GeneratorBox(state::DatabaseSession& session, std::span<const std::string> words, QWidget* parent)
    : QFrame(parent), session_(session), followed_(session), panel_(words)
{
    setFrameShape(QFrame::StyledPanel);
    setObjectName(QStringLiteral("generatorBox"));
    setAccessibleName(QStringLiteral("Password generator"));

    // Two segments side by side, one of them always chosen.
    random_ = button(QStringLiteral("Random"), "generatorRandom", this);
    words_ = button(QStringLiteral("Words"), "generatorWords", this);
    auto* modes = new QButtonGroup(this);
    modes->setExclusive(true);
    for (QPushButton* segment : {random_, words_}) {
        segment->setCheckable(true);
        modes->addButton(segment);
    }
    connect(random_, &QPushButton::clicked, this, [this] {
        panel_.modeChanged(tools::GeneratorPanel::Mode::random);
        redraw();
    });
    connect(words_, &QPushButton::clicked, this, [this] {
        panel_.modeChanged(tools::GeneratorPanel::Mode::words);
        redraw();
    });
    auto* modeRow = new QHBoxLayout;
    modeRow->setSpacing(0);
    modeRow->addWidget(random_);
    modeRow->addWidget(words_);
    modeRow->addStretch();

    count_ = new QLineEdit(this);
    count_->setObjectName(QStringLiteral("generatorCount"));
    count_->setFixedWidth(60);
    auto* countLabel = new QLabel(QStringLiteral("Length / words"), this);
    countLabel->setBuddy(count_);
    count_->setAccessibleName(countLabel->text());
    connect(count_, &QLineEdit::textEdited, this, [this](const QString& text) {
        panel_.setCountText(text.toStdString());
        panel_.regenerate();
        redraw();
    });
    auto* countRow = new QHBoxLayout;
    countRow->addWidget(count_);
    countRow->addWidget(countLabel);
    countRow->addStretch();

    output_ = new QLineEdit(this);
    output_->setObjectName(QStringLiteral("generatorOutput"));
    output_->setAccessibleName(QStringLiteral("Generated password"));
    output_->setReadOnly(true);
    output_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));

    strength_ = new QLabel(this);
    strength_->setObjectName(QStringLiteral("generatorStrength"));
    strength_->setAccessibleName(QStringLiteral("Strength"));
    strength_->setForegroundRole(QPalette::PlaceholderText);
    QFont small = strength_->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    strength_->setFont(small);

    regenerate_ = button(QStringLiteral("Regenerate"), "generatorRegenerate", this);
    use_ = button(QStringLiteral("Use"), "generatorUse", this);
    cancel_ = button(QStringLiteral("Cancel"), "generatorCancel", this);
    connect(regenerate_, &QPushButton::clicked, this, [this] {
        panel_.regenerate();
        redraw();
    });
    connect(use_, &QPushButton::clicked, this, [this] { panel_.useIt(); });
    connect(cancel_, &QPushButton::clicked, this, [this] { panel_.cancelIt(); });
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this, nullptr, nullptr, Qt::WidgetWithChildrenShortcut);
    connect(escape, &QShortcut::activated, this, [this] { panel_.cancelIt(); });
    auto* buttonRow = new QHBoxLayout;
    buttonRow->addStretch();
    buttonRow->addWidget(regenerate_);
    buttonRow->addWidget(use_);
    buttonRow->addWidget(cancel_);

    auto* column = new QVBoxLayout(this);
    column->addLayout(modeRow);
    column->addLayout(countRow);
    column->addWidget(output_);
    column->addWidget(strength_);
    column->addLayout(buttonRow);

    panel_.onUse = [this](std::string_view text) {
        if (const auto& entry = followed_.entry())
            session_.editField(*entry, "Password", text);
        finish();
    };
    panel_.onCancel = [this] { finish(); };
    connect(&followed_, &FollowedEntry::gone, this, [this] {
        setEntry(std::nullopt);
        reset();
    });

    reset();
    setEntry(std::nullopt);
}

void GeneratorBox::setEntry(std::optional<model::Entry> entry)
{
    followed_.set(std::move(entry));
    use_->setEnabled(followed_.entry().has_value());
}

void GeneratorBox::reset()
{
    panel_.reset();
    redraw();
}

void GeneratorBox::redraw()
{
    const bool words = panel_.mode() == tools::GeneratorPanel::Mode::words;
    random_->setChecked(!words);
    words_->setChecked(words);
    const QString count = QString::fromStdString(panel_.countText());
    if (count_->text() != count)
        count_->setText(count);
    output_->setText(fromUtf8(panel_.output().view()));
    strength_->setText(QString::fromStdString(panel_.strength()));
}

void GeneratorBox::finish()
{
    // The value shown is not kept once the box is put away; the next showing starts afresh.
    reset();
    Q_EMIT finished();
}

} // namespace quillon::ui
