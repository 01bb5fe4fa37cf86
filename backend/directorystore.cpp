#include "directorystore.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>

#include "envelope.h"

namespace {
// Ids are compared as numbers when both are decimal, so "9" sorts before "10".
bool idLess(const QString& a, const QString& b) {
    if (a.size() != b.size()) {
        bool aNum = false;
        bool bNum = false;
        a.toULongLong(&aNum);
        b.toULongLong(&bNum);
        if (aNum && bNum) return a.size() < b.size();
    }
    return a < b;
}

QString text(const QJsonValue& v) {
    if (v.isString()) return v.toString();
    if (v.isDouble()) return QString::number(v.toVariant().toLongLong());
    return QString();
}

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
    departments_.clear();
    users_.clear();
    topLevel_.clear();
    departmentNodes_.clear();
    colleagueNodes_.clear();
    ordered_.clear();
    orderedValid_ = false;
    md5Sign_.clear();
}

bool DirectoryStore::load(const QByteArray& body) {
    const Envelope e = Envelope::parse(body);
    if (!e.isSuccess()) return false;
    // A reply without a department list (or with something else in its place) is a failed
    // call; the directory the user has stays as it is.
    const QJsonValue deptValue = e.member(QStringLiteral("allDeptList"));
    if (!deptValue.isArray()) return false;
    const QJsonArray depts = deptValue.toArray();
    clear();
    if (depts.isEmpty()) return true;

    // First every department, then the links, so a parent later in the list is found.
    departmentNodes_.reserve(size_t(depts.size()));
    for (const QJsonValue& v : depts) {
        const QJsonObject o = v.toObject();
        auto node = std::make_unique<Department>();
        for (auto it = o.begin(); it != o.end(); ++it) {
            const QString& key = it.key();
            if (key == QLatin1String("id"))
                node->id = text(it.value());
            else if (key == QLatin1String("orgName"))
                node->orgName = text(it.value());
            else if (key == QLatin1String("parentId"))
                node->parentId = text(it.value());
            else if (key == QLatin1String("fullNamePinyin"))
                node->fullNamePinyin = text(it.value());
            else if (key == QLatin1String("shortNamePinyin"))
                node->shortNamePinyin = text(it.value());
        }
        // A department without an id, or a second one with the same id, is left out.
        if (node->id.isEmpty() || departments_.contains(node->id)) continue;
        departments_.insert(node->id, node.get());
        departmentNodes_.push_back(std::move(node));
    }
    linkDepartments();

    const QJsonArray people = listOf(e, "allUserList");
    colleagueNodes_.reserve(size_t(people.size()));
    users_.reserve(people.size());
    for (const QJsonValue& v : people) {
        if (Colleague* c = insertColleague(v.toObject())) attach(c);
    }
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

DirectoryStore::Colleague* DirectoryStore::insertColleague(const QJsonObject& o) {
    auto c = std::make_unique<Colleague>();
    for (auto it = o.begin(); it != o.end(); ++it) {
        const QString& key = it.key();
        QString* field = nullptr;
        switch (key.size() ? key.at(0).unicode() : 0) {
            case 'i':
                if (key == QLatin1String("id")) field = &c->id;
                break;
            case 'u':
                if (key == QLatin1String("userName"))
                    field = &c->userName;
                else if (key == QLatin1String("userIcon"))
                    field = &c->userIcon;
                break;
            case 'r':
                if (key == QLatin1String("realName")) field = &c->realName;
                break;
            case 'w':
                if (key == QLatin1String("workNick")) field = &c->workNick;
                break;
            case 'd':
                if (key == QLatin1String("deptName"))
                    field = &c->deptName;
                else if (key == QLatin1String("dateCreated"))
                    field = &c->dateCreated;
                break;
            case 's':
                if (key == QLatin1String("section"))
                    field = &c->section;
                else if (key == QLatin1String("shortNamePinyin"))
                    field = &c->shortNamePinyin;
                break;
            case 'm':
                if (key == QLatin1String("mobile"))
                    field = &c->mobile;
                else if (key == QLatin1String("md5Sign"))
                    field = &c->md5Sign;
                break;
            case 'e':
                if (key == QLatin1String("email")) field = &c->email;
                break;
            case 'f':
                if (key == QLatin1String("fullNamePinyin")) field = &c->fullNamePinyin;
                break;
            default:
                break;
        }
        if (field) *field = text(it.value());
    }
    if (c->id.isEmpty()) return nullptr;
    if (Colleague* existing = users_.value(c->id)) {
        // Known already: the newer record wins, keeping the node the views point at.
        Department* old = departments_.value(existing->section);
        if (old) old->members.removeOne(existing);
        *existing = std::move(*c);
        return existing;
    }
    Colleague* raw = c.get();
    users_.insert(raw->id, raw);
    colleagueNodes_.push_back(std::move(c));
    orderedValid_ = false;
    return raw;
}

// A colleague belongs to the department whose id is its "section": department names are
// not unique ("技术部" exists in many branches), ids are.
void DirectoryStore::attach(Colleague* c) {
    if (Department* d = departments_.value(c->section)) d->members.append(c);
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
        if (Colleague* c = insertColleague(v.toObject())) {
            attach(c);
            ids << c->id;
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
    if (const Colleague* me = users_.value(selfId_))
        if (!me->md5Sign.isEmpty()) md5Sign_ = me->md5Sign;
}

const DirectoryStore::Colleague* DirectoryStore::colleague(const QString& id) const {
    return users_.value(id);
}

const DirectoryStore::Department* DirectoryStore::department(const QString& id) const {
    return departments_.value(id);
}

const std::vector<DirectoryStore::Colleague*>& DirectoryStore::colleaguesInOrder() const {
    if (!orderedValid_) {
        ordered_.clear();
        ordered_.reserve(colleagueNodes_.size());
        for (const auto& c : colleagueNodes_) ordered_.push_back(c.get());
        std::sort(ordered_.begin(), ordered_.end(),
                  [](const Colleague* a, const Colleague* b) { return idLess(a->id, b->id); });
        orderedValid_ = true;
    }
    return ordered_;
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

const DirectoryStore::Tribe* DirectoryStore::tribe(const QString& id) const {
    auto it = tribes_.constFind(id);
    return it == tribes_.constEnd() ? nullptr : &it.value();
}

QVector<DirectoryStore::Hit> DirectoryStore::search(const QString& typed, SearchMode mode) const {
    QVector<Hit> hits;
    if (typed.isEmpty()) return hits;
    if (mode == SearchMode::Tribes) {
        QStringList ids = tribes_.keys();
        std::sort(ids.begin(), ids.end(), idLess);
        for (const QString& id : ids) {
            const Tribe& t = tribes_[id];
            if (t.name.contains(typed, Qt::CaseSensitive)) hits.append({t.id, t.name});
        }
        return hits;
    }
    for (const Colleague* c : colleaguesInOrder()) {
        if (c->realName.contains(typed, Qt::CaseSensitive) ||
            c->shortNamePinyin.contains(typed, Qt::CaseSensitive) ||
            c->fullNamePinyin.contains(typed, Qt::CaseSensitive))
            hits.append({c->id, c->realName});
    }
    return hits;
}
