#include "ui/FollowedEntry.h"

#include "state/DatabaseSession.h"

namespace quillon::ui {

FollowedEntry::FollowedEntry(state::DatabaseSession& session, QObject* parent) : QObject(parent)
{
    connect(&session, &state::DatabaseSession::itemChanged, this, [this](pugi::xml_node element, state::ItemKind) {
        if (entry_ && element == entry_->element())
            Q_EMIT changed();
    });
    connect(&session, &state::DatabaseSession::itemAboutToBeRemoved, this,
            [this](pugi::xml_node element, state::ItemKind, int) {
                if (!entry_)
                    return;
                for (auto node = entry_->element(); node; node = node.parent())
                    if (node == element) {
                        drop();
                        return;
                    }
            });
    connect(&session, &state::DatabaseSession::documentReset, this, [this] {
        if (entry_)
            drop();
    });
}

void FollowedEntry::drop()
{
    entry_.reset();
    Q_EMIT gone();
}

} // namespace quillon::ui
