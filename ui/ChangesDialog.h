// ui/ChangesDialog.h: a read-only list of changes, what a save will write or what a merge did, and its words.
#pragma once

#include "model/Diff.h"
#include "model/Merge.h"

#include <QDialog>
#include <QStringList>

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace quillon::ui {

// The lines of a comparison, item by item; protected values are named, never shown.
QStringList changeLines(const model::Diff& diff);
// The lines of a merge: each thing done, then the counts.
QStringList mergeLines(const model::MergeSummary& summary);

// Window-modal over its parent and deleted once closed.
class ChangesDialog : public QDialog {
    Q_OBJECT

public:
    ChangesDialog(const QString& title, const QString& heading, const QStringList& lines, QWidget* parent);

    QLabel* headingLabel() const noexcept { return heading_; }
    QPlainTextEdit* list() const noexcept { return list_; }
    QPushButton* closeButton() const noexcept { return close_; }

private:
    QLabel* heading_;
    QPlainTextEdit* list_;
    QPushButton* close_;
};

} // namespace quillon::ui
