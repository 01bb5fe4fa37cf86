#pragma once

#include <QByteArray>
#include <QHash>
#include <QSet>
#include <QString>
#include <QVector>

#include <unordered_map>

#include "colleague.h"

#include <memory>
#include <vector>

class QJsonObject;
class QJsonArray;

// The company's organisation for the session: departments in a tree, colleagues by id,
// and the project tribes. One process-wide store; tests build their own.
class DirectoryStore {
public:
    using Colleague = ::Colleague;

    struct Department {
        QString id;
        QString orgName;
        QString parentId;
        QString fullNamePinyin;
        QString shortNamePinyin;
        Department* parent = nullptr;
        QVector<Department*> children;
        QVector<Colleague*> members;
    };

    struct Tribe {
        QString id;  // the project's id, also the IM tribe's id
        QString name;
        QString companyId;  // the company that owns the project
        QString ownerId;    // the project owner's user id
        QString sign;       // the owner's signature token (given to the owner only)
        bool left = false;  // the user is no longer a member (left, removed, dissolved)
    };

    enum class SearchMode { Colleagues, Tribes };
    // A search result: a colleague or a tribe. Texts are made when asked for, since a
    // short query can hit most of a large company.
    struct Hit {
        const Colleague* colleague = nullptr;
        const Tribe* tribe = nullptr;
        QString id() const { return colleague ? colleague->id() : tribe->id; }
        QString name() const { return colleague ? colleague->realName() : tribe->name; }
    };

    static DirectoryStore& instance();
    DirectoryStore();
    DirectoryStore(const DirectoryStore&) = delete;
    DirectoryStore& operator=(const DirectoryStore&) = delete;

    // Replaces the directory with an organisation reply (envelope included). Returns false,
    // leaving the previous directory untouched, when the reply is not a successful one.
    bool load(const QByteArray& body);
    // Adds or updates colleagues from a reply listing user records ("results" an array, or
    // an object holding "allUserList"/"userList"). Returns the ids added or updated.
    QStringList addColleagues(const QByteArray& body);
    void clear();

    void setSelfId(const QString& id);
    const QString& selfId() const { return selfId_; }
    // The signed-in user's company, from the log-in reply.
    void setCompanyId(const QString& id) { companyId_ = id; }
    const QString& companyId() const { return companyId_; }
    // The signed-in user's signature token, from their own directory entry.
    const QString& md5Sign() const { return md5Sign_; }

    const Colleague* colleague(const QString& id) const;
    const Department* department(const QString& id) const;
    bool isUser(const QString& id) const { return users_.count(QStringView(id)) != 0; }
    const QVector<Department*>& topLevel() const { return topLevel_; }
    // Colleagues whose department the directory does not hold, in reply order.
    const QVector<Colleague*>& unplaced() const { return unplaced_; }
    int colleagueCount() const { return int(users_.size()); }
    // Changes whenever departments or colleagues are added, moved or replaced, so that views
    // over the tree can tell theirs is out of date.
    quint64 revision() const { return revision_; }
    int departmentCount() const { return departments_.size(); }
    // Colleagues in ascending id order (the order search results keep).
    const std::vector<Colleague*>& colleaguesInOrder() const;

    // Online marks from the IM server's presence.
    void setOnline(const QString& id, bool online);
    bool isOnline(const QString& id) const { return online_.contains(id); }

    void setTribes(const QVector<Tribe>& tribes);
    void addTribe(const Tribe& tribe);
    void removeTribe(const QString& id);
    const Tribe* tribe(const QString& id) const;
    // The signed-in user owns the tribe (dissolves it rather than leaving it). Whole 64-bit
    // ids: two ids that share their low 32 bits are still different people.
    bool ownsTribe(const Tribe& tribe) const;
    // Every tribe record, in ascending id order.
    QVector<const Tribe*> tribes() const;

    // Case-sensitive "contains" over the real name and the two pinyin spellings (people
    // type either the characters or their pinyin); in tribe mode over tribe names.
    QVector<Hit> search(const QString& text, SearchMode mode = SearchMode::Colleagues) const;
    // Builds the search index now rather than at the first keystroke.
    void prepareSearch() const { buildSearchIndex(); }

private:
    struct ViewHash {
        size_t operator()(QStringView v) const { return qHash(v); }
    };

    Colleague* insertColleague(Colleague&& record);
    void attach(Colleague* c);
    void linkDepartments();
    void refreshSelf();
    void buildSearchIndex() const;

    std::vector<std::unique_ptr<Department>> departmentNodes_;
    std::vector<std::unique_ptr<Colleague>> colleagueNodes_;
    QHash<QString, Department*> departments_;
    // Keys are views into the colleagues' own buffers, which never move.
    std::unordered_map<QStringView, Colleague*, ViewHash> users_;
    QVector<Department*> topLevel_;
    QVector<Colleague*> unplaced_;
    mutable std::vector<Colleague*> ordered_;
    mutable bool orderedValid_ = false;
    // The three searched names of every colleague in id order, one after the other with a
    // separator nobody types, so one scan answers a keystroke.
    mutable QString searchText_;
    mutable std::vector<int> searchStarts_;
    mutable bool searchValid_ = false;
    QHash<QString, Tribe> tribes_;
    QSet<QString> online_;
    QString selfId_;
    QString companyId_;
    QString md5Sign_;
    quint64 revision_ = 0;
};
