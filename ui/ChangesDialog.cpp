#include "ui/ChangesDialog.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace quillon::ui {
namespace {

QString text(const std::string& s)
{
    return QString::fromStdString(s);
}

QString where(const std::string& path, const std::string& name)
{
    return path.empty() ? text(name) : text(path) + QLatin1Char('/') + text(name);
}

QString placeText(const std::string& path)
{
    return path.empty() ? QStringLiteral("the top group") : text(path);
}

QString quoted(const std::optional<kdbx::SecureBytes>& value)
{
    if (!value)
        return QStringLiteral("(protected)");
    QString shown = QString::fromUtf8(value->view().data(), static_cast<qsizetype>(value->view().size()));
    shown.replace(QLatin1Char('\n'), QStringLiteral(" ⏎ "));
    return QLatin1Char('"') + shown + QLatin1Char('"');
}

QString fieldLine(const model::FieldChange& f)
{
    const QString name = text(f.name);
    if (f.isProtected)
        return QStringLiteral("    %1: %2 (protected)")
            .arg(name, f.change == model::ItemChange::added     ? QStringLiteral("added")
                       : f.change == model::ItemChange::removed ? QStringLiteral("removed")
                                                                : QStringLiteral("changed"));
    switch (f.change) {
    case model::ItemChange::added:
        return QStringLiteral("    %1: added %2").arg(name, quoted(f.after));
    case model::ItemChange::removed:
        return QStringLiteral("    %1: removed %2").arg(name, quoted(f.before));
    case model::ItemChange::changed:
        break;
    }
    return QStringLiteral("    %1: %2 → %3").arg(name, quoted(f.before), quoted(f.after));
}

QString changeWord(model::ItemChange change)
{
    switch (change) {
    case model::ItemChange::added:
        return QStringLiteral("Added");
    case model::ItemChange::removed:
        return QStringLiteral("Removed");
    case model::ItemChange::changed:
        break;
    }
    return QStringLiteral("Changed");
}

} // namespace

QStringList changeLines(const model::Diff& diff)
{
    QStringList lines;
    for (const auto& g : diff.groups) {
        lines << QStringLiteral("%1 group: %2").arg(changeWord(g.change), where(g.path, g.name));
        if (g.renamed)
            lines << QStringLiteral("    renamed from \"%1\"").arg(text(g.oldName));
        if (g.moved)
            lines << QStringLiteral("    moved from %1").arg(placeText(g.movedFrom));
        for (const auto& other : g.otherChanged)
            lines << QStringLiteral("    %1 changed").arg(text(other));
    }
    for (const auto& e : diff.entries) {
        lines << QStringLiteral("%1: %2").arg(changeWord(e.change), where(e.path, e.title));
        if (e.moved)
            lines << QStringLiteral("    moved from %1").arg(placeText(e.movedFrom));
        // A new entry's fields are all new: its title says enough.
        if (e.change == model::ItemChange::changed)
            for (const auto& f : e.fields)
                lines << fieldLine(f);
        for (const auto& a : e.attachmentsAdded)
            lines << QStringLiteral("    attachment added: %1").arg(text(a));
        for (const auto& a : e.attachmentsRemoved)
            lines << QStringLiteral("    attachment removed: %1").arg(text(a));
        for (const auto& a : e.attachmentsChanged)
            lines << QStringLiteral("    attachment changed: %1").arg(text(a));
        if (e.expiryChanged)
            lines << QStringLiteral("    expiry changed");
        if (e.oneTimeChanged)
            lines << QStringLiteral("    one-time password settings changed");
        if (e.historyAdded > 0)
            lines << (e.historyAdded == 1 ? QStringLiteral("    1 history version added")
                                          : QStringLiteral("    %1 history versions added").arg(e.historyAdded));
        for (const auto& other : e.otherChanged)
            lines << QStringLiteral("    %1 changed").arg(text(other));
    }
    for (const auto& s : diff.settings)
        lines << QStringLiteral("Changed setting: %1").arg(text(s.name));
    return lines;
}

QStringList mergeLines(const model::MergeSummary& s)
{
    QStringList lines;
    for (const auto& line : s.lines) {
        const auto word = model::describe(line.event);
        lines << QString::fromUtf8(word.data(), static_cast<qsizetype>(word.size())) + QStringLiteral(": ") +
                     text(line.name);
    }
    // The counts that are not zero, one line for entries and one for groups and settings.
    const auto counts = [](const QString& label, std::initializer_list<std::pair<std::size_t, const char*>> parts) {
        QStringList said;
        for (const auto& [count, what] : parts)
            if (count > 0)
                said << QStringLiteral("%1 %2").arg(count).arg(QLatin1String(what));
        return said.isEmpty() ? QString() : label + said.join(QStringLiteral(", ")) + QLatin1Char('.');
    };
    const QStringList totals = {
        counts(QStringLiteral("Entries: "), {{s.entriesAdded, "added"},
                                             {s.entriesUpdated, "updated"},
                                             {s.conflicts, "changed in both"},
                                             {s.entriesDeleted, "deleted"},
                                             {s.entriesKept, "kept after deletion"},
                                             {s.entriesMoved, "moved"},
                                             {s.intoBin, "to the Recycle Bin"}}),
        counts(QStringLiteral("Groups: "), {{s.groupsAdded, "added"}, {s.groupsChanged, "changed"},
                                            {s.groupsDeleted, "deleted"}}),
        counts(QStringLiteral("Settings: "), {{s.settingsChanged, "changed"}}),
    };
    bool first = true;
    for (const auto& total : totals) {
        if (total.isEmpty())
            continue;
        if (std::exchange(first, false) && !lines.isEmpty())
            lines << QString();
        lines << total;
    }
    return lines;
}

ChangesDialog::ChangesDialog(const QString& title, const QString& heading, const QStringList& lines, QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(title);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowModality(Qt::WindowModal);
    auto* column = new QVBoxLayout(this);
    heading_ = new QLabel(heading, this);
    heading_->setWordWrap(true);
    list_ = new QPlainTextEdit(this);
    list_->setReadOnly(true);
    list_->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    list_->setPlainText(lines.join(QLatin1Char('\n')));
    list_->setAccessibleName(title);
    list_->setVisible(!lines.isEmpty());
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    close_ = buttons->button(QDialogButtonBox::Close);
    close_->setAccessibleName(close_->text());
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    column->addWidget(heading_);
    column->addWidget(list_, 1);
    column->addWidget(buttons);
    resize(560, lines.isEmpty() ? 120 : 420);
    close_->setDefault(true);
    close_->setFocus();
}

} // namespace quillon::ui
