#pragma once

#include <QXmppClientExtension.h>
#include <QXmppMessage.h>
#include <QDateTime>
#include <QSet>
#include <QString>

// Queries the server's message archive (XEP-0313). Unlike QXmpp's own manager it keeps
// each result's archive id, which the store needs to drop duplicates and to page on.
class ArchiveExtension : public QXmppClientExtension {
    Q_OBJECT
public:
    // Returns the query id. `with` limits to one peer (bare address, may be empty);
    // `before` pages backwards from an archive id ("" for the newest page), `after`
    // forwards from one. Only one of `before`/`after` is used, `after` first. `archive` is
    // the archive to ask (a room's address; empty: the account's own); `start` leaves out
    // what is older, `end` what is newer (both to the second, inclusive).
    QString query(const QString& with, const QString& before, const QString& after, int max,
                  const QString& archive = QString(), const QDateTime& start = QDateTime(),
                  const QDateTime& end = QDateTime());

    bool handleStanza(const QDomElement& stanza) override;

Q_SIGNALS:
    void archivedMessage(const QString& queryId, const QString& archiveId,
                         const QXmppMessage& message, const QDateTime& stamp);
    // `ok` false when the server refused the query.
    void finished(const QString& queryId, bool ok, bool complete, const QString& first,
                  const QString& last);

private:
    QSet<QString> pending_;
};
