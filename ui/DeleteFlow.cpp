#include "ui/DeleteFlow.h"

#include "model/RecycleBin.h"
#include "ui/Asker.h"
#include "ui/VaultTexts.h"

namespace quillon::ui {
DeleteFlow::DeleteFlow(state::DatabaseSession& session, Asker& asker, Window window)
    : session_(session), asker_(asker), window_(std::move(window))
{
}

QString DeleteFlow::contents(std::size_t entries, std::size_t groups)
{
    return vaultText::contents(entries, groups);
}

bool DeleteFlow::isOpen() const
{
    return session_.isOpen() && !session_.isLocked();
}

void DeleteFlow::deleteEntry()
{
    const auto entry = isOpen() && window_.selectedEntry ? window_.selectedEntry() : std::nullopt;
    if (!entry)
        return;
    if (!model::isBinEnabled(session_.document()) || model::isInsideBin(*entry)) {
        const QString question = vaultText::permanentlyDeleteQuestion(vaultText::fromView(entry->title()));
        if (asker_.confirm(window_.parent(), question))
            session_.deletePermanently(*entry);
        return;
    }
    if (session_.deleteEntry(*entry) == model::DeleteResult::movedToBin)
        window_.showSubtitle(vaultText::movedToBin);
}

bool DeleteFlow::isBinSelected() const
{
    const auto group = isOpen() && window_.selectedGroup ? window_.selectedGroup() : std::nullopt;
    if (!group)
        return false;
    const auto bin = model::findBin(session_.document());
    return bin && bin->element() == group->element();
}

void DeleteFlow::deleteGroup()
{
    const auto group = isOpen() && window_.selectedGroup ? window_.selectedGroup() : std::nullopt;
    if (!group)
        return;
    auto& document = session_.document();
    const auto top = document.topGroup();
    if (top && top->element() == group->element()) {
        asker_.warn(window_.parent(), vaultText::topGroupRefusal);
        return;
    }
    const QString contents = DeleteFlow::contents(group->allEntries().size(), group->allGroups().size());
    const auto bin = model::findBin(document);
    if (bin && bin->element() == group->element()) {
        if (contents.isEmpty()) {
            asker_.warn(window_.parent(), vaultText::alreadyEmpty);
            return;
        }
        if (asker_.confirm(window_.parent(), vaultText::emptyBin.arg(contents)))
            session_.emptyBin();
        return;
    }
    const QString name = vaultText::fromView(group->name());
    const QString also = contents.isEmpty() ? QString() : vaultText::andIts + contents;
    const bool permanent = !model::isBinEnabled(document) || model::isInsideBin(*group);
    const QString question = permanent ? vaultText::permanentlyDeleteQuestion(name, contents)
                                       : vaultText::moveGroup.arg(name) + also + vaultText::toBin;
    if (!asker_.confirm(window_.parent(), question))
        return;
    switch (session_.deleteGroup(*group)) {
    case model::DeleteResult::movedToBin:
        window_.showSubtitle(vaultText::movedToBin);
        break;
    case model::DeleteResult::refusedHoldsBin:
        asker_.warn(window_.parent(), vaultText::holdsBinRefusal);
        break;
    case model::DeleteResult::refusedTopGroup:
    case model::DeleteResult::refusedAlreadyEmpty:
    case model::DeleteResult::deletedPermanently:
        break;
    }
}

void DeleteFlow::restore()
{
    if (!isOpen())
        return;
    bool done = false;
    if (const auto entry = window_.selectedEntry ? window_.selectedEntry() : std::nullopt;
        entry && model::isInsideBin(*entry))
        done = session_.restore(*entry);
    else if (const auto group = window_.selectedGroup ? window_.selectedGroup() : std::nullopt;
             group && model::isInsideBin(*group))
        done = session_.restore(*group);
    if (done)
        window_.showSubtitle(vaultText::restored);
}

} // namespace quillon::ui
