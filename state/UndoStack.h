// state/UndoStack.h: the changes made to one database, each undone and redone exactly, and the saved point.
#pragma once

#include "model/Journal.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace quillon::state {

// One user action. The journal puts the tree back; what lives outside the tree (the outer header, the
// credentials, the attachment pool) is swapped back by the steps added beside it.
class Command {
public:
    explicit Command(QString text);

    // Unique in the run: a save names the state it wrote by the command it stood after.
    std::uint64_t serial() const noexcept { return serial_; }
    const QString& text() const noexcept { return text_; }
    model::Journal& journal() noexcept { return journal_; }
    // An outside change, made already; undo and redo put its before and after back.
    void addStep(std::function<void()> undo, std::function<void()> redo);
    bool empty() const noexcept { return journal_.empty() && steps_.empty(); }

    void undo(model::Document& document) const;
    void redo(model::Document& document) const;

private:
    struct Step {
        std::function<void()> undo;
        std::function<void()> redo;
    };
    QString text_;
    std::uint64_t serial_;
    model::Journal journal_;
    std::vector<Step> steps_;
};

// The saved point is where the stack stood at the last save; away from it the database has unsaved changes.
// New commands drop whatever could have been redone.
class UndoStack {
public:
    UndoStack();
    void push(std::unique_ptr<Command> command);
    const Command* nextUndo() const noexcept { return index_ > 0 ? commands_[index_ - 1].get() : nullptr; }
    const Command* nextRedo() const noexcept { return index_ < commands_.size() ? commands_[index_].get() : nullptr; }
    // Steps back or forward; false at either end.
    bool undo(model::Document& document);
    bool redo(model::Document& document);

    void markSaved() noexcept { saved_ = index_; }
    // The state the stack stands at now, as a later save will name it.
    std::uint64_t position() const noexcept { return index_ > 0 ? commands_[index_ - 1]->serial() : base_; }
    // A save that began at `position` finished: that state becomes the saved point if the stack can still
    // reach it (commands undone or added meanwhile keep their unsaved mark).
    void markSavedAt(std::uint64_t position) noexcept;
    // The saved state cannot be reached again (a new database, or changes kept over a lock).
    void markUnsaved() noexcept { saved_.reset(); }
    bool atSavedPoint() const noexcept { return saved_ == index_; }
    // Drops every command and the copies of secrets they hold; the saved point stays where it was only if
    // the stack stood on it.
    void clear() noexcept;

private:
    std::vector<std::unique_ptr<Command>> commands_;
    std::size_t index_ = 0;
    std::optional<std::size_t> saved_ = 0;
    // Names the state before every command; each clear starts from a new one.
    std::uint64_t base_;
};

// A number no command or stack of this run has used.
std::uint64_t freshSerial() noexcept;

} // namespace quillon::state
