#include "ui/ExpandedGroups.h"

#include "state/DatabaseMemory.h"
#include "state/DatabaseSession.h"
#include "ui/GroupTreeModel.h"

#include <QTimer>
#include <QTreeView>

#include <vector>

namespace quillon::ui {

ExpandedGroups::ExpandedGroups(QTreeView& tree, GroupTreeModel& model, state::DatabaseSession& session,
                               state::Preferences& preferences)
    : QObject(&tree), tree_(tree), model_(model), session_(session), preferences_(preferences), timer_(new QTimer(this))
{
    timer_->setSingleShot(true);
    timer_->setInterval(pause);
    connect(timer_, &QTimer::timeout, this, &ExpandedGroups::writeNow);
    if (const auto path = databasePath())
        expanded_ = written_ = state::DatabaseMemory(preferences_).expandedGroups(*path);
    restore();
    connect(&tree_, &QTreeView::expanded, this, [this](const QModelIndex& index) { note(index, true); });
    connect(&tree_, &QTreeView::collapsed, this, [this](const QModelIndex& index) { note(index, false); });
    // After the model has reset itself for the new document.
    connect(&session_, &state::DatabaseSession::documentReset, this, [this] {
        if (session_.isOpen() && !session_.isLocked())
            restore();
    });
}

ExpandedGroups::~ExpandedGroups()
{
    if (isWritePending())
        writeNow();
}

bool ExpandedGroups::isWritePending() const
{
    return timer_->isActive();
}

std::optional<QString> ExpandedGroups::databasePath() const
{
    if (!session_.location())
        return std::nullopt;
    return QString::fromStdString(session_.location()->string());
}

void ExpandedGroups::restore()
{
    if (expanded_.isEmpty())
        return;
    restoring_ = true;
    // Walked without recursion: a hostile file may nest groups deeply.
    std::vector<QModelIndex> pending{QModelIndex()};
    while (!pending.empty()) {
        const QModelIndex parent = pending.back();
        pending.pop_back();
        for (int row = 0, rows = model_.rowCount(parent); row < rows; ++row) {
            const QModelIndex child = model_.index(row, 0, parent);
            const auto group = model_.groupAt(child);
            if (group && expanded_.contains(QString::fromUtf8(group->uuid().data(), static_cast<qsizetype>(group->uuid().size()))))
                tree_.expand(child);
            pending.push_back(child);
        }
    }
    restoring_ = false;
}

void ExpandedGroups::note(const QModelIndex& index, bool open)
{
    if (restoring_)
        return;
    const auto group = model_.groupAt(index);
    if (!group)
        return;
    const QString id = QString::fromUtf8(group->uuid().data(), static_cast<qsizetype>(group->uuid().size()));
    if (open)
        expanded_.insert(id);
    else
        expanded_.remove(id);
    timer_->start();
}

void ExpandedGroups::writeNow()
{
    timer_->stop();
    const auto path = databasePath();
    if (!path || expanded_ == written_)
        return;
    state::DatabaseMemory(preferences_).setExpandedGroups(expanded_, *path);
    written_ = expanded_;
}

} // namespace quillon::ui
