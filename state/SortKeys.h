// state/SortKeys.h: what the entry table sorts by, for every entry of the open database, kept up to date.
#pragma once

#include "model/Group.h"

#include <QCollator>
#include <QCollatorSortKey>

#include <pugixml.hpp>

#include <optional>
#include <unordered_map>

namespace quillon::state {

// Reading titles and times out of a large tree costs far more than sorting them, so the keys of every entry
// (not the versions in its history) are made once, off the window's thread while a database unlocks, and
// then follow each change the session makes. Titles and usernames compare as a file browser orders names:
// case-insensitive, digits by value.
class SortKeys {
public:
    struct Keys {
        QCollatorSortKey title;
        QCollatorSortKey userName;
        // Seconds since 1970; entries without a modification time sort as the oldest.
        qint64 modified = 0;
    };

    SortKeys();
    static QCollator collator();

    // Every entry under the top group, on as many threads as help; pugixml is only read meanwhile.
    void gather(const model::Group& topGroup);
    // The same, but only when a key is first asked for: a session that never sorts makes none.
    void gatherLater(const model::Group& topGroup)
    {
        clear();
        pending_ = topGroup;
    }
    // An entry or a whole group that came into the tree or is about to leave it; history versions are
    // left out.
    void add(pugi::xml_node item);
    void remove(pugi::xml_node item);
    // An item whose own content changed: an entry's keys are made again, a group's entries keep theirs.
    void update(pugi::xml_node item);
    void clear() noexcept
    {
        keys_.clear();
        document_ = nullptr;
        pending_.reset();
    }

    const Keys* find(pugi::xml_node entry) const;
    std::size_t size() const noexcept { return keys_.size(); }

private:
    static Keys make(pugi::xml_node entry, const QCollator& collator);
    void fill(const model::Group& topGroup) const;

    QCollator collator_;
    mutable std::unordered_map<const void*, Keys> keys_;
    // The document of the keys made, for the groups that come into it.
    mutable model::Document* document_ = nullptr;
    // The top group whose keys are still to be made; changes are not followed until they are.
    mutable std::optional<model::Group> pending_;
};

} // namespace quillon::state
