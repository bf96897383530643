#include "state/UndoStack.h"

namespace quillon::state {

std::uint64_t freshSerial() noexcept
{
    static std::uint64_t next = 0; // main thread only, like every command
    return ++next;
}

Command::Command(QString text) : text_(std::move(text)), serial_(freshSerial()) {}

UndoStack::UndoStack() : base_(freshSerial()) {}

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

void UndoStack::markSavedAt(std::uint64_t position) noexcept
{
    saved_.reset();
    if (position == base_)
        saved_ = 0;
    for (std::size_t i = 0; i < commands_.size(); ++i)
        if (commands_[i]->serial() == position)
            saved_ = i + 1;
}

void UndoStack::clear() noexcept
{
    const bool saved = atSavedPoint();
    commands_.clear();
    index_ = 0;
    base_ = freshSerial();
    if (saved)
        saved_ = 0;
    else
        saved_.reset();
}

} // namespace quillon::state
