#include "state/UndoStack.h"

namespace quillon::state {

void Command::addStep(std::function<void()> undo, std::function<void()> redo)
{
    steps_.push_back({std::move(undo), std::move(redo)});
}

void Command::undo(model::Document& document) const
{
    for (auto s = steps_.rbegin(); s != steps_.rend(); ++s)
        s->undo();
    journal_.undo(document);
}

void Command::redo(model::Document& document) const
{
    journal_.redo(document);
    for (const auto& s : steps_)
        s.redo();
}

void UndoStack::push(std::unique_ptr<Command> command)
{
    commands_.resize(index_);
    if (saved_ && *saved_ > index_)
        saved_.reset();
    commands_.push_back(std::move(command));
    index_ = commands_.size();
}

bool UndoStack::undo(model::Document& document)
{
    if (index_ == 0)
        return false;
    commands_[index_ - 1]->undo(document);
    --index_;
    return true;
}

bool UndoStack::redo(model::Document& document)
{
    if (index_ == commands_.size())
        return false;
    commands_[index_]->redo(document);
    ++index_;
    return true;
}

void UndoStack::clear() noexcept
{
    const bool saved = atSavedPoint();
    commands_.clear();
    index_ = 0;
    if (saved)
        saved_ = 0;
    else
        saved_.reset();
}

} // namespace quillon::state
