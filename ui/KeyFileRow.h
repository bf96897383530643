// ui/KeyFileRow.h: the key-file row of the pages that take credentials: its name, remove and choose.
#pragma once

class QHBoxLayout;
class QLabel;
class QPushButton;
class QToolButton;
class QWidget;

namespace quillon::ui {

// The unlock screen and the pages that set credentials show the key file alike; each connects the buttons.
struct KeyFileRow {
    QLabel* name;
    QPushButton* choose;
    QToolButton* remove;
    // The three, centred.
    QHBoxLayout* layout;
};

KeyFileRow makeKeyFileRow(QWidget* parent);

} // namespace quillon::ui
