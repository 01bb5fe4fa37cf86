#include "directorystore.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QStringMatcher>

#include <algorithm>

#include "envelope.h"
#include "orgreplyparser.h"

namespace {
bool isDecimal(QStringView s) {
    if (s.isEmpty()) return false;
    for (QChar c : s)
        if (c < QLatin1Char('0') || c > QLatin1Char('9')) return false;
    return true;
}

// Ids are compared as numbers when both are decimal, so "9" sorts before "10".
bool idLess(QStringView a, QStringView b) {
    if (a.size() != b.size() && isDecimal(a) && isDecimal(b)) return a.size() < b.size();
    return a < b;
}

const QChar kSeparator(0x0001);

QJsonArray listOf(const Envelope& e, const char* name) {
    return e.member(QLatin1String(name)).toArray();
}
}  // namespace

DirectoryStore& DirectoryStore::instance() {
    static DirectoryStore store;
    return store;
}

DirectoryStore::DirectoryStore() = default;

void DirectoryStore::clear() {
    ++revision_;
    departments_.clear();
    users_.clear();
    topLevel_.clear();
    unplaced_.clear();
    departmentNodes_.clear();
    colleagueNodes_.clear();
    ordered_.clear();
    orderedValid_ = false;
    searchText_.clear();
    searchStarts_.clear();
    searchValid_ = false;
    md5Sign_.clear();
}

bool DirectoryStore::load(const QByteArray& body) {
    // Read into fresh containers; the directory the user has is replaced only by a whole,
    // successful reply.
    std::vector<std::unique_ptr<Department>> departments;
    std::vector<std::unique_ptr<Colleague>> people;
    OrgReplyParser parser(
        [&](OrgReplyParser::Department&& d) {
            auto node = std::make_unique<Department>();
            node->id = std::move(d.id);
            node->orgName = std::move(d.orgName);
            node->parentId = std::move(d.parentId);
            node->fullNamePinyin = std::move(d.fullNamePinyin);
            node->shortNamePinyin = std::move(d.shortNamePinyin);
            departments.push_back(std::move(node));
        },
        [&](Colleague&& c) { people.push_back(std::make_unique<Colleague>(std::move(c))); });
    if (!parser.parse(body)) return false;

    clear();
    if (departments.empty()) return true;  // nothing is built without departments

    // First every department, then the links, so a parent later in the list is found.
    departmentNodes_.reserve(departments.size());
    for (auto& node : departments) {
        // A department without an id, or a second one with the same id, is left out.
        if (node->id.isEmpty() || departments_.contains(node->id)) continue;
        departments_.insert(node->id, node.get());
        departmentNodes_.push_back(std::move(node));
    }
    linkDepartments();

    colleagueNodes_.reserve(people.size());
    users_.reserve(people.size());
    for (auto& person : people)
        if (Colleague* c = insertColleague(std::move(*person))) attach(c);
    refreshSelf();
    return true;
}

void DirectoryStore::linkDepartments() {
    for (const auto& node : departmentNodes_) {
        Department* parent = departments_.value(node->parentId);
        if (parent && parent != node.get()) node->parent = parent;
    }
    // A cycle in "parentId" would make the tree endless: the department at which a walk
    // up meets itself again loses its parent and joins the top level.
    QHash<Department*, int> state;  // 1: on the current walk, 2: known to reach the top
    for (const auto& start : departmentNodes_) {
        QVector<Department*> walk;
        Department* d = start.get();
        while (d && state.value(d) == 0) {
            state.insert(d, 1);
            walk.append(d);
            d = d->parent;
        }
        if (d && state.value(d) == 1) d->parent = nullptr;  // d closes a cycle
        for (Department* w : walk) state.insert(w, 2);
    }
    for (const auto& node : departmentNodes_) {
        if (node->parent)
            node->parent->children.append(node.get());
        else
            topLevel_.append(node.get());
    }
}

DirectoryStore::Colleague* DirectoryStore::insertColleague(Colleague&& record) {
    if (record.view(Colleague::Id).isEmpty()) return nullptr;
    auto found = users_.find(record.view(Colleague::Id));
    if (found != users_.end()) {
        // Known already: the newer record wins, keeping the node the views point at. The
        // map's key views the old buffer, so it is re-keyed with the new one.
        Colleague* existing = found->second;
        if (Department* old = departments_.value(existing->section()))
            old->members.removeOne(existing);
        else
            unplaced_.removeOne(existing);
        users_.erase(found);
        *existing = std::move(record);
        users_.emplace(existing->view(Colleague::Id), existing);
        searchValid_ = false;
        return existing;
    }
    auto node = std::make_unique<Colleague>(std::move(record));
    Colleague* raw = node.get();
    users_.emplace(raw->view(Colleague::Id), raw);
    colleagueNodes_.push_back(std::move(node));
    orderedValid_ = false;
    searchValid_ = false;
    return raw;
}

// A colleague belongs to the department whose id is its "section": department names are
// not unique ("技术部" exists in many branches), ids are.
// One whose department is unknown is kept apart rather than dropped: the views still
// have to find them.
void DirectoryStore::attach(Colleague* c) {
    ++revision_;
    if (Department* d = departments_.value(c->section()))
        d->members.append(c);
    else
        unplaced_.append(c);
}

QStringList DirectoryStore::addColleagues(const QByteArray& body) {
    const Envelope e = Envelope::parse(body);
    QStringList ids;
    if (!e.isSuccess()) return ids;
    QJsonArray list = e.results().toArray();
    if (list.isEmpty()) list = listOf(e, "allUserList");
    if (list.isEmpty()) list = listOf(e, "userList");
    if (list.isEmpty() && e.results().isObject()) list.append(e.results());  // one colleague
    for (const QJsonValue& v : list) {
        if (Colleague* c = insertColleague(Colleague::fromJson(v.toObject()))) {
            attach(c);
            ids << c->id();
        }
    }
    refreshSelf();
    return ids;
}

void DirectoryStore::setSelfId(const QString& id) {
    selfId_ = id;
    refreshSelf();
}

void DirectoryStore::refreshSelf() {
    if (const Colleague* me = colleague(selfId_))
        if (!me->view(Colleague::Md5Sign).isEmpty()) md5Sign_ = me->md5Sign();
}

const DirectoryStore::Colleague* DirectoryStore::colleague(const QString& id) const {
    auto it = users_.find(QStringView(id));
    return it == users_.end() ? nullptr : it->second;
}

const DirectoryStore::Department* DirectoryStore::department(const QString& id) const {
    return departments_.value(id);
}

const std::vector<DirectoryStore::Colleague*>& DirectoryStore::colleaguesInOrder() const {
    if (!orderedValid_) {
        ordered_.clear();
        ordered_.reserve(colleagueNodes_.size());
        for (const auto& c : colleagueNodes_) ordered_.push_back(c.get());
        std::sort(ordered_.begin(), ordered_.end(), [](const Colleague* a, const Colleague* b) {
            return idLess(a->view(Colleague::Id), b->view(Colleague::Id));
        });
        orderedValid_ = true;
    }
    return ordered_;
}

void DirectoryStore::buildSearchIndex() const {
    if (searchValid_) return;
    const std::vector<Colleague*>& ordered = colleaguesInOrder();
    searchText_.clear();
    searchStarts_.clear();
    searchStarts_.reserve(ordered.size());
    for (const Colleague* c : ordered) {
        searchStarts_.push_back(searchText_.size());
        for (Colleague::Field f :
             {Colleague::RealName, Colleague::ShortNamePinyin, Colleague::FullNamePinyin}) {
            searchText_.append(c->view(f));
            searchText_.append(kSeparator);
        }
    }
    searchValid_ = true;
}

void DirectoryStore::setOnline(const QString& id, bool online) {
    if (online)
        online_.insert(id);
    else
        online_.remove(id);
}

void DirectoryStore::setTribes(const QVector<Tribe>& tribes) {
    tribes_.clear();
    for (const Tribe& t : tribes) tribes_.insert(t.id, t);
}

void DirectoryStore::addTribe(const Tribe& tribe) { tribes_.insert(tribe.id, tribe); }

void DirectoryStore::removeTribe(const QString& id) { tribes_.remove(id); }

bool DirectoryStore::ownsTribe(const Tribe& tribe) const {
    bool ownerOk = false, selfOk = false;
    const qulonglong owner = tribe.ownerId.toULongLong(&ownerOk);
    const qulonglong self = selfId_.toULongLong(&selfOk);
    return ownerOk && selfOk && owner == self;
}

const DirectoryStore::Tribe* DirectoryStore::tribe(const QString& id) const {
    auto it = tribes_.constFind(id);
    return it == tribes_.constEnd() ? nullptr : &it.value();
}

QVector<const DirectoryStore::Tribe*> DirectoryStore::tribes() const {
    QStringList ids = tribes_.keys();
    std::sort(ids.begin(), ids.end(), idLess);
    QVector<const Tribe*> out;
    out.reserve(ids.size());
    for (const QString& id : ids) out.append(&tribes_.constFind(id).value());
    return out;
}

QVector<DirectoryStore::Hit> DirectoryStore::search(const QString& typed, SearchMode mode) const {
    QVector<Hit> hits;
    if (typed.isEmpty()) return hits;
    if (mode == SearchMode::Tribes) {
        QStringList ids = tribes_.keys();
        std::sort(ids.begin(), ids.end(), idLess);
        for (const QString& id : ids) {
            // A reference into the store: the const operator[] would hand back a copy.
            const Tribe& t = tribes_.constFind(id).value();
            if (t.name.contains(typed, Qt::CaseSensitive)) hits.append({nullptr, &t});
        }
        return hits;
    }
    // A separator nobody types keeps a match inside one name of one colleague.
    if (typed.contains(kSeparator)) return hits;
    buildSearchIndex();
    const QStringMatcher matcher(typed, Qt::CaseSensitive);
    const std::vector<Colleague*>& ordered = colleaguesInOrder();
    int from = 0;
    for (;;) {
        const int at = matcher.indexIn(searchText_, from);
        if (at < 0) break;
        const auto next = std::upper_bound(searchStarts_.begin(), searchStarts_.end(), at);
        const size_t index = size_t(next - searchStarts_.begin()) - 1;
        const Colleague* c = ordered[index];
        hits.append({c, nullptr});
        if (next == searchStarts_.end()) break;
        from = *next;  // one hit per colleague: go on with the next one
    }
    return hits;
}
