// The room keeper's parts that need no server: the queue of rooms waiting to be brought in
// step, and the reading and writing of room configuration forms.
#include "mucprotocol.h"
#include "roomqueue.h"

#include <QBuffer>
#include <QDomDocument>
#include <QXmlStreamWriter>
#include <QtTest>

namespace {

QDomElement parse(const QString& xml) {
    static QList<QDomDocument> keep;  // the elements live as long as their documents
    keep.append(QDomDocument());
    keep.last().setContent(xml, true);
    return keep.last().documentElement();
}

QString written(const QXmppElement& element) {
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    QXmlStreamWriter writer(&buffer);
    element.toXml(&writer);
    return QString::fromUtf8(buffer.data());
}

// The fields submitted, var -> value.
QMap<QString, QString> submitted(const QXmppElement& form) {
    QMap<QString, QString> out;
    const QDomElement x = parse(written(form));
    for (QDomElement f = x.firstChildElement("field"); !f.isNull();
         f = f.nextSiblingElement("field")) {
        out.insert(f.attribute("var"), f.firstChildElement("value").text());
    }
    return out;
}

// A configuration form as Prosody sends it, trimmed to the fields that matter here.
QString prosodyForm(const QString& name, const QString& membersOnly, const QString& whois) {
    return QStringLiteral(
               "<iq type='result' xmlns='jabber:client'>"
               "<query xmlns='http://jabber.org/protocol/muc#owner'>"
               "<x xmlns='jabber:x:data' type='form'>"
               "<field var='FORM_TYPE' type='hidden'><value>"
               "http://jabber.org/protocol/muc#roomconfig</value></field>"
               "<field var='muc#roomconfig_roomname' type='text-single'>%1</field>"
               "<field var='muc#roomconfig_persistentroom' type='boolean'><value>1</value></field>"
               "<field var='muc#roomconfig_publicroom' type='boolean'><value>0</value></field>"
               "<field var='muc#roomconfig_membersonly' type='boolean'><value>%2</value></field>"
               "<field var='muc#roomconfig_whois' type='list-single'><value>%3</value></field>"
               "<field var='muc#roomconfig_allowinvites' type='boolean'><value>false</value>"
               "</field>"
               "<field var='muc#roomconfig_enablearchiving' type='boolean'><value>true</value>"
               "</field>"
               "<field var='muc#roomconfig_changesubject' type='boolean'><value>1</value>"
               "</field></x></query></iq>")
        .arg(name.isEmpty() ? QString() : QStringLiteral("<value>%1</value>").arg(name),
             membersOnly, whois);
}

}  // namespace

class RoomPartsTest : public QObject {
    Q_OBJECT

private slots:
    void queueKeepsEveryChange();
    void configurationIsSubmittedOnlyWhenItDiffers();
};

void RoomPartsTest::queueKeepsEveryChange() {
    RoomQueue q;
    QCOMPARE(q.state(7), RoomQueue::State::Ready);
    q.markAll({7, 8, 7});
    q.mark(8);
    QCOMPARE(q.waiting(), 2);
    QCOMPARE(q.state(8), RoomQueue::State::Pending);
    QCOMPARE(q.take(), 7);

    // A change while the room is being worked on: the pass may have read the directory
    // before it, so the room is worked on again.
    q.mark(7);
    QCOMPARE(q.take(), 8);
    QCOMPARE(q.take(), 0);
    q.done(7, true);
    QCOMPARE(q.state(7), RoomQueue::State::Pending);
    QCOMPARE(q.take(), 7);
    q.done(7, true);
    QCOMPARE(q.state(7), RoomQueue::State::Ready);

    // A failure is shown until a pass succeeds; marking again makes it wait again.
    q.done(8, false, QStringLiteral("configure: forbidden"));
    QString error;
    QCOMPARE(q.state(8, &error), RoomQueue::State::Failed);
    QCOMPARE(error, QStringLiteral("configure: forbidden"));
    q.mark(8);
    QCOMPARE(q.state(8), RoomQueue::State::Pending);
    QCOMPARE(q.take(), 8);
    q.done(8, true);
    QCOMPARE(q.state(8, &error), RoomQueue::State::Ready);
    QVERIFY(error.isEmpty());
    QCOMPARE(q.waiting(), 0);
    q.done(99, true);  // never taken: ignored
    QCOMPARE(q.state(99), RoomQueue::State::Ready);
}

void RoomPartsTest::configurationIsSubmittedOnlyWhenItDiffers() {
    const QMap<QString, QString> wanted =
        MucProtocol::projectRoomConfig(QStringLiteral("客户端 2.0"));

    // Already right (booleans in either spelling): nothing to send, unless told to.
    const QDomElement right = parse(prosodyForm(QStringLiteral("客户端 2.0"), "1", "anyone"));
    QVERIFY(MucProtocol::configSubmission(right, wanted, false).isNull());
    const QMap<QString, QString> unlock =
        submitted(MucProtocol::configSubmission(right, wanted, true));
    QCOMPARE(unlock.value("FORM_TYPE"),
             QStringLiteral("http://jabber.org/protocol/muc#roomconfig"));
    QCOMPARE(unlock.value("muc#roomconfig_roomname"), QStringLiteral("客户端 2.0"));

    // A new room: no name, open, anonymous. Only offered fields are sent (no "mam" here),
    // fields we do not care about are left alone.
    const QMap<QString, QString> fixed = submitted(MucProtocol::configSubmission(
        parse(prosodyForm(QString(), "0", "moderators")), wanted, false));
    QCOMPARE(fixed.value("muc#roomconfig_roomname"), QStringLiteral("客户端 2.0"));
    QCOMPARE(fixed.value("muc#roomconfig_membersonly"), QStringLiteral("1"));
    QCOMPARE(fixed.value("muc#roomconfig_whois"), QStringLiteral("anyone"));
    QCOMPARE(fixed.value("muc#roomconfig_allowinvites"), QStringLiteral("0"));
    QVERIFY(!fixed.contains("mam"));
    QVERIFY(!fixed.contains("muc#roomconfig_changesubject"));

    // ejabberd's form: its own name for the archive, and rooms moderated by default, which
    // would let a removed member back in.
    const QMap<QString, QString> ejabberd = submitted(MucProtocol::configSubmission(
        parse(QStringLiteral(
            "<iq type='result' xmlns='jabber:client'>"
            "<query xmlns='http://jabber.org/protocol/muc#owner'>"
            "<x xmlns='jabber:x:data' type='form'>"
            "<field var='muc#roomconfig_roomname' type='text-single'><value>客户端 2.0</value>"
            "</field>"
            "<field var='muc#roomconfig_moderatedroom' type='boolean'><value>1</value></field>"
            "<field var='mam' type='boolean'><value>0</value></field></x></query></iq>")),
        wanted, false));
    QCOMPARE(ejabberd.value("muc#roomconfig_moderatedroom"), QStringLiteral("0"));
    QCOMPARE(ejabberd.value("mam"), QStringLiteral("1"));
    QVERIFY(!ejabberd.contains("muc#roomconfig_enablearchiving"));
}

QTEST_GUILESS_MAIN(RoomPartsTest)
#include "tst_roomparts.moc"
