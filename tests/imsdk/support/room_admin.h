#pragma once

#include <QXmppConfiguration.h>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>

class QDomElement;
class QXmppClient;
class ProsodyServer;
class IqAnswers;

// Plays the company back end towards the XMPP server in the SDK's tests: makes project
// rooms (persistent, members-only, real addresses visible to members), sets and removes
// members and destroys rooms with the standard owner/admin requests, and sends the
// back end's membership notices. Runs on the test thread.
class RoomAdmin : public QObject {
    Q_OBJECT
public:
    explicit RoomAdmin(const ProsodyServer& server, const QString& account, const QString& secret);
    ~RoomAdmin() override;

    bool connectNow();
    QString roomJid(quint64 tribe) const;
    bool createRoom(quint64 tribe, const QString& title, const QString& owner,
                    const QStringList& members);
    // affiliation: "member", "owner", "none", "outcast"; reason rides with the change.
    bool setAffiliation(quint64 tribe, const QString& user, const QString& affiliation,
                        const QString& reason = QString());
    bool destroyRoom(quint64 tribe);
    // The back end's notice to `to`: event joined/quit/kicked/dismissed/renamed for `user`.
    void notice(const QString& to, quint64 tribe, const QString& event, const QString& user,
                const QString& title = QString());
    // A task card for `to` in the name of `forAccount` (the company's task assistant);
    // `kind` is the content's kind (16 for a card).
    void relayCard(const QString& to, const QString& forAccount, const QString& id,
                   const QString& json, int kind = 16);

private:
    // Sends a request and waits for its answer (kept in `answer` if given); true on a result.
    bool request(const QString& to, const QString& type,
                 const std::function<void(class QXmlStreamWriter*)>& query,
                 QDomElement* answer = nullptr);

    QXmppClient* client_;
    IqAnswers* answers_;
    QXmppConfiguration config_;
    QString domain_;
};
