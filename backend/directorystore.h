#pragma once

#include <QByteArray>
#include <QHash>
#include <QSet>
#include <QString>
#include <QVector>

#include <memory>
#include <vector>

class QJsonObject;
class QJsonArray;

// The company's organisation for the session: departments in a tree, colleagues by id,
// and the project tribes. One process-wide store; tests build their own.
class DirectoryStore {
public:
    struct Colleague {
        QString id;
        QString userName;
        QString realName;
        QString workNick;
        QString userIcon;
        QString deptName;
        QString section;
        QString mobile;
        QString email;
        QString dateCreated;
        QString fullNamePinyin;
        QString shortNamePinyin;
        QString md5Sign;
        static constexpr const char* kKind = "user";  // tells colleague nodes from departments
    };

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
    };

    enum class SearchMode { Colleagues, Tribes };
    struct Hit {
        QString id;
        QString name;
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
    bool isUser(const QString& id) const { return users_.contains(id); }
    const QVector<Department*>& topLevel() const { return topLevel_; }
    int colleagueCount() const { return users_.size(); }
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

    // Case-sensitive "contains" over the real name and the two pinyin spellings (people
    // type either the characters or their pinyin); in tribe mode over tribe names.
    QVector<Hit> search(const QString& text, SearchMode mode = SearchMode::Colleagues) const;

private:
    Colleague* insertColleague(const QJsonObject& o);
    void attach(Colleague* c);
    void linkDepartments();
    void refreshSelf();

    std::vector<std::unique_ptr<Department>> departmentNodes_;
    std::vector<std::unique_ptr<Colleague>> colleagueNodes_;
    QHash<QString, Department*> departments_;
    QHash<QString, Colleague*> users_;
    QVector<Department*> topLevel_;
    mutable std::vector<Colleague*> ordered_;
    mutable bool orderedValid_ = false;
    QHash<QString, Tribe> tribes_;
    QSet<QString> online_;
    QString selfId_;
    QString companyId_;
    QString md5Sign_;
};
