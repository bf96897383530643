// ui/StartScreen.h: what an empty window shows: open a database, make one, or pick a recent one.
#pragma once

#include <QStringList>
#include <QWidget>

class QListWidget;
class QPushButton;

namespace quillon::ui {

class StartScreen : public QWidget {
    Q_OBJECT

public:
    explicit StartScreen(QWidget* parent = nullptr);

    void setRecent(const QStringList& paths);
    QListWidget* recentList() const noexcept { return recent_; }

Q_SIGNALS:
    void openDatabase();
    void newDatabase();
    void openRecent(const QString& path);

private:
    QListWidget* recent_;
    QPushButton* newButton_;
};

} // namespace quillon::ui
