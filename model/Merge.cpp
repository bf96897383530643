#include "model/Merge.h"

#include "kdbx/Check.h"
#include "model/Group.h"
#include "model/Nodes.h"
#include "model/RecycleBin.h"

#include <algorithm>
#include <cstring>
#include <future>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace quillon::model {
namespace {

using Records = std::unordered_map<std::string, ItemRecord>;

const ItemRecord* find(const Records& records, const std::string& uuid)
{
    const auto it = records.find(uuid);
    return it == records.end() ? nullptr : &it->second;
}

std::optional<Time> deletionOf(const ItemIndex& index, const std::string& uuid)
{
    if (const auto it = index.deletions.find(uuid); it != index.deletions.end())
        return it->second;
    return std::nullopt;
}

// An absent time is older than any.
bool later(const std::optional<Time>& a, const std::optional<Time>& b)
{
    return a.value_or(Time::min()) > b.value_or(Time::min());
}

enum class Winner : std::uint8_t { same, mine, theirs };

struct Choice {
    Winner winner = Winner::same;
    bool conflict = false;
};

// Who holds the current content of an item both sides have. Ties between two changes go to the larger digest, so
// the outcome does not depend on which side is mine.
Choice choose(const ItemRecord& m, const ItemRecord& t, const ItemRecord* a)
{
    if (m.digest == t.digest)
        return {};
    const bool mineChanged = !a || m.digest != a->digest;
    const bool theirsChanged = !a || t.digest != a->digest;
    if (mineChanged && !theirsChanged)
        return {Winner::mine, false};
    if (theirsChanged && !mineChanged)
        return {Winner::theirs, false};
    // Without an ancestor a change on one side looks like a change on both; only the ancestor can tell a conflict.
    const bool conflict = a != nullptr;
    if (later(m.modified, t.modified))
        return {Winner::mine, conflict};
    if (later(t.modified, m.modified))
        return {Winner::theirs, conflict};
    return {m.digest > t.digest ? Winner::mine : Winner::theirs, conflict};
}

// An item's parent group: a move on one side is taken; moves on both go to the later one.
std::string chooseParent(const ItemRecord* m, const std::string& theirParent, const ItemRecord* t,
                         const ItemRecord* a)
{
    if (!t)
        return m->parent;
    if (!m || m->parent == theirParent)
        return theirParent;
    if (a && m->parent == a->parent)
        return theirParent;
    if (a && theirParent == a->parent)
        return m->parent;
    if (later(m->locationChanged, t->locationChanged))
        return m->parent;
    if (later(t->locationChanged, m->locationChanged))
        return theirParent;
    return std::max(m->parent, theirParent);
}

std::string titleOf(pugi::xml_node entry)
{
    for (const auto s : entry.children("String"))
        if (nodes::childText(s, "Key") == std::string_view("Title"))
            return s.child("Value").text().get();
    return {};
}

struct Version {
    pugi::xml_node node;
    VersionKey key;
    bool fromTheirs = false;
};

struct KeyHash {
    std::size_t operator()(const VersionKey& k) const noexcept
    {
        return static_cast<std::size_t>(k.digest ^ static_cast<std::uint64_t>(k.modified) * 0x9e3779b97f4a7c15ULL);
    }
};

bool isItem(pugi::xml_node node)
{
    return nodes::isNamed(node, "Group") || nodes::isNamed(node, "Entry");
}

class Merger {
public:
    Merger(Document& mine, std::vector<kdbx::InnerBinary>* pool, const DocumentSide& theirs,
           const DocumentSide* ancestor)
        : doc_(mine), theirDoc_(theirs.document), ancestorDoc_(ancestor ? &ancestor->document : nullptr), pool_(pool),
          theirPool_(theirs.binaries)
    {
        // The walks of the three trees are independent and take most of the time: two run on other threads.
        auto theirIndex = std::async(std::launch::async, [&theirs] { return ItemIndex(theirs); });
        auto ancestorIndex = std::async(std::launch::async, [ancestor] {
            return ancestor ? std::optional<ItemIndex>(std::in_place, *ancestor) : std::nullopt;
        });
        im_.emplace(DocumentSide{mine, pool});
        it_.emplace(theirIndex.get());
        ia_ = ancestorIndex.get();
        // Two databases made apart still share their top group and their bin.
        alias(it_->topGroup, im_->topGroup);
        alias(it_->bin, im_->bin);
        for (const auto& [uuid, record] : im_->groups)
            groupNodes_.emplace(uuid, record.element);
    }

    MergeSummary run()
    {
        decideGroups();
        createTheirGroups();
        placeAndUpdateOurGroups();
        mergeEntries();
        removeDying();
        mergeMeta();
        mergeRecords();
        return std::move(summary_);
    }

private:
    void alias(const std::string& theirs, const std::string& ours)
    {
        if (theirs.empty() || ours.empty() || theirs == ours)
            return;
        toOurs_[theirs] = ours;
        toTheirs_[ours] = theirs;
    }
    std::string ourId(const std::string& theirUuid) const
    {
        const auto it = toOurs_.find(theirUuid);
        return it == toOurs_.end() ? theirUuid : it->second;
    }
    std::string theirId(const std::string& ourUuid) const
    {
        const auto it = toTheirs_.find(ourUuid);
        return it == toTheirs_.end() ? ourUuid : it->second;
    }
    const ItemRecord* ancestorGroup(const std::string& uuid) const { return ia_ ? find(ia_->groups, uuid) : nullptr; }
    const ItemRecord* ancestorEntry(const std::string& uuid) const { return ia_ ? find(ia_->entries, uuid) : nullptr; }

    void note(MergeEvent event, const std::string& uuid, std::string name)
    {
        summary_.lines.push_back({event, uuid, std::move(name)});
    }

    // Deleted on one side (gone from there, and known to the ancestor or recorded as deleted): kept only when the
    // other side changed it after the deletion.
    enum class Fate : std::uint8_t { present, deleted, kept };
    Fate fateOfOneSided(const ItemRecord& here, const ItemRecord* ancestor, const std::optional<Time>& deletedThere)
    {
        if (!ancestor && !deletedThere)
            return Fate::present;
        const bool changed = !ancestor || here.digest != ancestor->digest;
        if (changed && (!deletedThere || later(here.modified, deletedThere)))
            return Fate::kept;
        return Fate::deleted;
    }

    // --- Groups --------------------------------------------------------------------------------------------
    void decideGroups()
    {
        for (const auto& uuid : im_->groupOrder) {
            if (uuid.empty() || uuid == im_->topGroup || uuid == im_->bin || it_->groups.contains(theirId(uuid)))
                continue;
            const auto& record = im_->groups.at(uuid);
            const auto fate = fateOfOneSided(record, ancestorGroup(uuid), deletionOf(*it_, uuid));
            if (fate == Fate::deleted) {
                dying_.insert(uuid);
                if (!deletionOf(*it_, uuid))
                    newRecords_.push_back(uuid);
                ++summary_.groupsDeleted;
                note(MergeEvent::groupDeleted, uuid, std::string(nodes::childText(record.element, "Name")));
            } else if (fate == Fate::kept) {
                note(MergeEvent::groupKept, uuid, std::string(nodes::childText(record.element, "Name")));
            }
        }
        for (const auto& t : it_->groupOrder) {
            const auto uuid = ourId(t);
            if (uuid.empty() || im_->groups.contains(uuid))
                continue;
            const auto& record = it_->groups.at(t);
            const auto fate = fateOfOneSided(record, ancestorGroup(uuid), deletionOf(*im_, uuid));
            if (fate == Fate::deleted) {
                if (!deletionOf(*im_, uuid))
                    newRecords_.push_back(uuid);
                continue;
            }
            if (fate == Fate::kept)
                note(MergeEvent::groupKept, uuid, std::string(nodes::childText(record.element, "Name")));
            theirOnlyGroups_.push_back(t);
            created_.insert(uuid);
        }
    }

    bool survives(const std::string& group) const
    {
        return (im_->groups.contains(group) && !dying_.contains(group)) || created_.contains(group);
    }

    Group bin()
    {
        if (!bin_) {
            if (!im_->bin.empty()) {
                bin_ = groupNodes_.at(im_->bin);
            } else if (const auto theirBin = groupNodes_.find(it_->bin); !it_->bin.empty() && theirBin != groupNodes_.end()) {
                bin_ = theirBin->second;
                doc_.setMetaText("RecycleBinUUID", it_->bin);
            } else {
                const auto made = findOrMakeBin(doc_);
                QUILLON_CHECK(made.has_value());
                bin_ = made->element();
            }
        }
        return Group(*bin_, doc_);
    }

    // Where an item goes: its chosen group, or the bin when that group is gone.
    pugi::xml_node target(const std::string& group, bool& intoBin)
    {
        intoBin = false;
        if (group.empty())
            return {};
        if (survives(group))
            if (const auto it = groupNodes_.find(group); it != groupNodes_.end())
                return it->second;
        intoBin = true;
        return bin().element();
    }

    pugi::xml_node topNode() const
    {
        const auto it = groupNodes_.find(im_->topGroup);
        return it == groupNodes_.end() ? doc_.root() : it->second;
    }

    void createTheirGroups()
    {
        for (const auto& t : theirOnlyGroups_) {
            const auto& record = it_->groups.at(t);
            const auto uuid = ourId(t);
            bool intoBin = false;
            auto parent = target(ourId(record.parent), intoBin);
            if (!parent)
                parent = topNode();
            pugi::xml_document scratch;
            auto copy = scratch.append_child("Group");
            for (const auto c : record.element.children())
                if (!isItem(c))
                    copy.append_copy(c);
            groupNodes_[uuid] = doc_.insertElement(parent, {}, copy);
            ++summary_.groupsAdded;
            note(intoBin ? MergeEvent::groupToBin : MergeEvent::groupAdded, uuid,
                 std::string(nodes::childText(record.element, "Name")));
        }
    }

    void stampMove(pugi::xml_node item, const ItemRecord* m, const ItemRecord* t)
    {
        const Document::ContentChange change(doc_, item);
        const auto when = later(t ? t->locationChanged : std::nullopt, m ? m->locationChanged : std::nullopt)
                              ? t->locationChanged
                              : m->locationChanged;
        nodes::stampTime(item, "LocationChanged", when.value_or(doc_.now()));
    }

    // Moves an item of ours to its chosen group; false when it stays.
    bool place(pugi::xml_node item, const std::string& chosen, const ItemRecord* m, const ItemRecord* t,
               bool& intoBin)
    {
        const auto parent = target(chosen, intoBin);
        if (!parent || parent == item.parent() || nodes::isSelfOrAncestor(item, parent))
            return false;
        if (intoBin) {
            moveIntoBin(item, Group(parent, doc_));
            return true;
        }
        doc_.moveElement(item, parent, {});
        stampMove(item, m, t);
        return true;
    }

    void placeAndUpdateOurGroups()
    {
        for (const auto& uuid : im_->groupOrder) {
            if (dying_.contains(uuid) || uuid == im_->topGroup)
                continue;
            const auto& m = im_->groups.at(uuid);
            const auto* t = find(it_->groups, theirId(uuid));
            const auto* a = ancestorGroup(uuid);
            const auto name = std::string(nodes::childText(m.element, "Name"));
            bool intoBin = false;
            const auto chosen = chooseParent(&m, t ? ourId(t->parent) : std::string(), t, a);
            if (place(m.element, chosen, &m, t, intoBin)) {
                ++summary_.groupsChanged;
                note(intoBin ? MergeEvent::groupToBin : MergeEvent::groupMoved, uuid, name);
            }
            if (t && choose(m, *t, a).winner == Winner::theirs) {
                replaceGroupContent(m.element, t->element);
                ++summary_.groupsChanged;
                note(MergeEvent::groupUpdated, uuid, std::string(nodes::childText(t->element, "Name")));
            }
        }
    }

    void replaceGroupContent(pugi::xml_node group, pugi::xml_node from)
    {
        const Document::ContentChange change(doc_, group);
        for (auto c = group.first_child(); c;) {
            const auto next = c.next_sibling();
            if (!isItem(c))
                nodes::remove(c);
            c = next;
        }
        pugi::xml_node firstItem;
        for (auto c = group.first_child(); c && !firstItem; c = c.next_sibling())
            if (isItem(c))
                firstItem = c;
        for (const auto c : from.children()) {
            if (isItem(c))
                continue;
            if (firstItem)
                group.insert_copy_before(c, firstItem);
            else
                group.append_copy(c);
        }
    }

    // --- Attachments ---------------------------------------------------------------------------------------
    std::size_t ourPoolIndex(std::size_t theirIndex)
    {
        if (const auto it = poolMap_.find(theirIndex); it != poolMap_.end())
            return it->second;
        const auto& data = (*theirPool_)[theirIndex].data;
        std::size_t found = pool_->size();
        for (std::size_t i = 0; i < pool_->size() && found == pool_->size(); ++i)
            if ((*pool_)[i].data.view() == data.view())
                found = i;
        if (found == pool_->size())
            pool_->push_back({(*theirPool_)[theirIndex].flags, data.copy()});
        poolMap_.emplace(theirIndex, found);
        return found;
    }

    // Points the attachments of an element copied from theirs at mine's pool.
    void remapAttachments(pugi::xml_node copy)
    {
        if (!pool_ || !theirPool_)
            return;
        std::vector<pugi::xml_node> stack{copy};
        while (!stack.empty()) {
            const auto node = stack.back();
            stack.pop_back();
            for (const auto c : node.children()) {
                if (nodes::isNamed(c, "Binary")) {
                    auto ref = c.child("Value").attribute("Ref");
                    const auto index = ref ? readDecimal(ref.value()) : std::nullopt;
                    if (index && *index >= 0 && static_cast<std::uint64_t>(*index) < theirPool_->size())
                        ref.set_value(static_cast<unsigned long long>(ourPoolIndex(static_cast<std::size_t>(*index))));
                } else if (nodes::isNamed(c, "History") || nodes::isNamed(c, "Entry")) {
                    stack.push_back(c);
                }
            }
        }
    }

    // --- Entries -------------------------------------------------------------------------------------------
    void mergeEntries()
    {
        for (const auto& uuid : im_->entryOrder) {
            if (uuid.empty())
                continue;
            const auto& m = im_->entries.at(uuid);
            const auto* t = find(it_->entries, uuid);
            const auto* a = ancestorEntry(uuid);
            if (!t) {
                const auto fate = fateOfOneSided(m, a, deletionOf(*it_, uuid));
                if (fate == Fate::deleted) {
                    dyingEntries_.push_back(m.element);
                    if (!deletionOf(*it_, uuid))
                        newRecords_.push_back(uuid);
                    ++summary_.entriesDeleted;
                    note(MergeEvent::entryDeleted, uuid, titleOf(m.element));
                    continue;
                }
                if (fate == Fate::kept) {
                    ++summary_.entriesKept;
                    note(MergeEvent::entryKept, uuid, titleOf(m.element));
                }
            }
            bool intoBin = false;
            const auto chosen = chooseParent(&m, t ? ourId(t->parent) : std::string(), t, a);
            if (place(m.element, chosen, &m, t, intoBin)) {
                ++(intoBin ? summary_.intoBin : summary_.entriesMoved);
                note(intoBin ? MergeEvent::entryToBin : MergeEvent::entryMoved, uuid, titleOf(m.element));
            }
            if (t)
                mergeEntryContent(uuid, m, *t, a);
        }
        for (const auto& uuid : it_->entryOrder) {
            if (uuid.empty() || im_->entries.contains(uuid))
                continue;
            const auto& t = it_->entries.at(uuid);
            const auto fate = fateOfOneSided(t, ancestorEntry(uuid), deletionOf(*im_, uuid));
            if (fate == Fate::deleted) {
                if (!deletionOf(*im_, uuid))
                    newRecords_.push_back(uuid);
                continue;
            }
            bool intoBin = false;
            auto parent = target(ourId(t.parent), intoBin);
            if (!parent)
                parent = topNode();
            pugi::xml_document scratch;
            auto copy = scratch.append_copy(t.element);
            remapAttachments(copy);
            doc_.insertElement(parent, {}, copy);
            if (fate == Fate::kept) {
                ++summary_.entriesKept;
                note(MergeEvent::entryKept, uuid, titleOf(t.element));
            } else {
                ++(intoBin ? summary_.intoBin : summary_.entriesAdded);
                note(intoBin ? MergeEvent::entryToBin : MergeEvent::entryAdded, uuid, titleOf(t.element));
            }
        }
    }

    // Two copies of one edit have the same versions, made at the same times: most entries are settled here,
    // without a digest of every version.
    static bool sameVersionTimes(pugi::xml_node a, pugi::xml_node b)
    {
        auto va = a.child("History").first_child();
        auto vb = b.child("History").first_child();
        for (; va && vb; va = va.next_sibling(), vb = vb.next_sibling())
            if (std::strcmp(va.child("Times").child("LastModificationTime").text().get(),
                            vb.child("Times").child("LastModificationTime").text().get()) != 0)
                return false;
        return !va && !vb;
    }

    std::vector<Version> versionsOf(const ItemIndex& index, pugi::xml_node entry, bool fromTheirs) const
    {
        std::vector<Version> out;
        for (const auto v : entry.child("History").children("Entry"))
            out.push_back({v, versionKey(index, v), fromTheirs});
        return out;
    }

    // Both lists oldest first; joined by modification time (ours first on a tie), each version once, cut to the
    // limit from the oldest end.
    std::vector<Version> joinHistories(const std::vector<Version>& a, const std::vector<Version>& b) const
    {
        std::vector<Version> out;
        out.reserve(a.size() + b.size());
        std::unordered_set<VersionKey, KeyHash> seen;
        std::size_t i = 0;
        std::size_t j = 0;
        while (i < a.size() || j < b.size()) {
            const bool takeA = j >= b.size() || (i < a.size() && a[i].key.modified <= b[j].key.modified);
            const auto& v = takeA ? a[i++] : b[j++];
            if (seen.insert(v.key).second)
                out.push_back(v);
        }
        if (const auto limit = doc_.historyLimit(); limit && out.size() > *limit)
            out.erase(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(out.size() - *limit));
        return out;
    }

    static bool sameKeys(const std::vector<Version>& a, const std::vector<Version>& b)
    {
        return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                          [](const Version& x, const Version& y) { return x.key == y.key; });
    }

    void mergeEntryContent(const std::string& uuid, const ItemRecord& m, const ItemRecord& t, const ItemRecord* a)
    {
        const auto choice = choose(m, t, a);
        if (choice.winner == Winner::same && m.modified == t.modified && sameVersionTimes(m.element, t.element))
            return;
        auto ours = versionsOf(*im_, m.element, false);
        auto theirs = versionsOf(*it_, t.element, true);
        if (choice.winner == Winner::same && ours.size() == theirs.size() && sameKeys(ours, theirs))
            return;
        const auto before = ours;
        // The version that stops being current stays, as the newest of its side's history.
        if (choice.winner == Winner::theirs)
            ours.push_back({m.element, versionKey(*im_, m.element), false});
        else if (choice.winner == Winner::mine)
            theirs.push_back({t.element, versionKey(*it_, t.element), true});
        const auto joined = joinHistories(ours, theirs);
        if (choice.winner != Winner::theirs && sameKeys(joined, before))
            return;

        pugi::xml_document scratch;
        auto entry = scratch.append_child("Entry");
        const auto current = choice.winner == Winner::theirs ? t.element : m.element;
        for (const auto c : current.children())
            if (!nodes::isNamed(c, "History"))
                entry.append_copy(c);
        auto history = entry.append_child("History");
        for (const auto& v : joined) {
            auto version = history.append_child("Entry");
            for (const auto c : v.node.children())
                if (!nodes::isNamed(c, "History"))
                    version.append_copy(c);
            if (v.fromTheirs)
                remapAttachments(version);
        }
        if (choice.winner == Winner::theirs)
            remapAttachments(entry);
        {
            auto element = m.element;
            const Document::ContentChange change(doc_, element);
            for (auto c = element.first_child(); c;) {
                const auto next = c.next_sibling();
                nodes::remove(c);
                c = next;
            }
            for (const auto c : entry.children())
                element.append_copy(c);
        }
        if (choice.conflict) {
            ++summary_.conflicts;
            note(MergeEvent::entryConflict, uuid, titleOf(m.element));
        } else if (choice.winner == Winner::theirs) {
            ++summary_.entriesUpdated;
            note(MergeEvent::entryUpdated, uuid, titleOf(m.element));
        }
    }

    // --- Removal, metadata, deletion records ---------------------------------------------------------------
    void removeDying()
    {
        for (const auto element : dyingEntries_)
            doc_.removeElement(element);
        std::unordered_set<pugi::xml_node_struct*> dying;
        for (const auto& uuid : dying_)
            dying.insert(im_->groups.at(uuid).element.internal_object());
        for (const auto& uuid : im_->groupOrder) {
            if (!dying_.contains(uuid))
                continue;
            const auto element = im_->groups.at(uuid).element;
            bool outermost = true;
            for (auto p = element.parent(); p && outermost; p = p.parent())
                outermost = !dying.contains(p.internal_object());
            if (outermost)
                doc_.removeElement(element);
        }
    }

    void mergeMeta()
    {
        auto meta = doc_.meta();
        const auto theirMeta = theirDoc_.meta();
        if (!meta || !theirMeta)
            return;
        const auto ancestorMeta = ancestorDoc_ ? ancestorDoc_->meta() : pugi::xml_node();
        for (const auto t : theirMeta.children()) {
            const std::string_view name = t.name();
            if (t.type() != pugi::node_element || name == "HeaderHash" || name == "Generator" ||
                name.starts_with("RecycleBin") || name == "CustomIcons" || name.ends_with("Changed"))
                continue;
            const auto m = meta.child(t.name());
            const auto a = ancestorMeta.child(t.name());
            const auto dt = elementDigest(t);
            const auto dm = m ? elementDigest(m) : 0;
            if (m && dm == dt)
                continue;
            const bool theirsChanged = !ancestorMeta || !a || elementDigest(a) != dt;
            const bool mineChanged = !ancestorMeta || (a ? !m || elementDigest(a) != dm : bool(m));
            const std::string stampName = std::string(name) + "Changed";
            const auto stampT = readTime(nodes::childText(theirMeta, stampName.c_str()));
            const auto stampM = readTime(nodes::childText(meta, stampName.c_str()));
            if (!theirsChanged || (mineChanged && !later(stampT, stampM)))
                continue;
            const Document::ContentChange change(doc_, meta);
            const auto copy = m ? meta.insert_copy_before(t, m) : meta.append_copy(t);
            if (m)
                nodes::remove(m);
            if (const auto stamp = theirMeta.child(stampName.c_str()))
                nodes::setChildText(meta, stampName.c_str(), stamp.text().get());
            (void)copy;
            ++summary_.settingsChanged;
            note(MergeEvent::settingChanged, {}, std::string(name));
        }
        mergeIcons(meta, theirMeta.child("CustomIcons"));
        // Their bin, brought in whole, is ours when we had none.
        if (im_->bin.empty() && !it_->bin.empty() && groupNodes_.contains(ourId(it_->bin))) {
            doc_.setMetaText("RecycleBinUUID", ourId(it_->bin));
            if (const auto changed = theirDoc_.metaText("RecycleBinChanged"))
                doc_.setMetaText("RecycleBinChanged", *changed);
        }
    }

    // Icons their entries may use: added by UUID.
    void mergeIcons(pugi::xml_node meta, pugi::xml_node theirIcons)
    {
        std::unordered_set<std::string_view> known;
        for (const auto icon : meta.child("CustomIcons").children("Icon"))
            known.insert(nodes::childText(icon, "UUID"));
        std::vector<pugi::xml_node> missing;
        for (const auto icon : theirIcons.children("Icon"))
            if (!known.contains(nodes::childText(icon, "UUID")))
                missing.push_back(icon);
        if (missing.empty())
            return;
        const Document::ContentChange change(doc_, meta);
        auto icons = nodes::childOrAppend(meta, "CustomIcons");
        for (const auto icon : missing)
            icons.append_copy(icon);
    }

    void mergeRecords()
    {
        std::vector<std::pair<std::string, Time>> added;
        for (const auto& [uuid, when] : it_->deletions)
            if (!im_->deletions.contains(uuid))
                added.emplace_back(uuid, when);
        std::sort(added.begin(), added.end());
        const auto now = doc_.now();
        for (const auto& uuid : newRecords_)
            if (!im_->deletions.contains(uuid) && !it_->deletions.contains(uuid))
                added.emplace_back(uuid, now);
        const auto root = doc_.root();
        if (added.empty() || !root)
            return;
        const Document::ContentChange change(doc_, root);
        auto records = nodes::childOrAppend(root, "DeletedObjects");
        for (const auto& [uuid, when] : added) {
            auto record = records.append_child("DeletedObject");
            record.append_child("UUID").text().set(uuid.c_str());
            record.append_child("DeletionTime").text().set(writeTime(when).c_str());
        }
        summary_.deletionRecordsAdded = added.size();
    }

    Document& doc_;
    Document& theirDoc_;
    Document* ancestorDoc_;
    std::vector<kdbx::InnerBinary>* pool_;
    const std::vector<kdbx::InnerBinary>* theirPool_;
    std::optional<ItemIndex> im_;
    std::optional<ItemIndex> it_;
    std::optional<ItemIndex> ia_;
    std::unordered_map<std::string, std::string> toOurs_;
    std::unordered_map<std::string, std::string> toTheirs_;
    std::unordered_map<std::string, pugi::xml_node> groupNodes_;
    std::unordered_set<std::string> dying_;
    std::unordered_set<std::string> created_;
    std::vector<std::string> theirOnlyGroups_;
    std::vector<pugi::xml_node> dyingEntries_;
    std::vector<std::string> newRecords_;
    std::unordered_map<std::size_t, std::size_t> poolMap_;
    std::optional<pugi::xml_node> bin_;
    MergeSummary summary_;
};

} // namespace

std::string_view describe(MergeEvent event) noexcept
{
    switch (event) {
    case MergeEvent::entryAdded:
        return "Added";
    case MergeEvent::entryUpdated:
        return "Updated from the other copy";
    case MergeEvent::entryConflict:
        return "Changed in both: the later version is current, the other is in its history";
    case MergeEvent::entryDeleted:
        return "Deleted";
    case MergeEvent::entryKept:
        return "Kept: changed after it was deleted in the other copy";
    case MergeEvent::entryMoved:
        return "Moved";
    case MergeEvent::entryToBin:
        return "Moved to the Recycle Bin: its group was deleted";
    case MergeEvent::groupAdded:
        return "Group added";
    case MergeEvent::groupUpdated:
        return "Group updated from the other copy";
    case MergeEvent::groupDeleted:
        return "Group deleted";
    case MergeEvent::groupKept:
        return "Group kept: changed after it was deleted in the other copy";
    case MergeEvent::groupMoved:
        return "Group moved";
    case MergeEvent::groupToBin:
        return "Group moved to the Recycle Bin: its parent was deleted";
    case MergeEvent::settingChanged:
        return "Setting taken from the other copy";
    }
    return {};
}

MergeSummary merge(Document& mine, std::vector<kdbx::InnerBinary>* minePool, const DocumentSide& theirs,
                   const DocumentSide* ancestor)
{
    Merger merger(mine, minePool, theirs, ancestor);
    auto summary = merger.run();
    if (summary.changed())
        mine.changed();
    return summary;
}

} // namespace quillon::model
