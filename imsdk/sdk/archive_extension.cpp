#include "sdk/archive_extension.h"

#include <QXmppClient.h>
#include <QXmppDataForm.h>
#include <QXmppMamIq.h>
#include <QXmppResultSet.h>
#include <QXmppUtils.h>
#include <QDomElement>
#include <QUuid>

namespace {
const char kMamNs[] = "urn:xmpp:mam:2";
}

QString ArchiveExtension::query(const QString& with, const QString& before, const QString& after,
                                int max, const QString& archive, const QDateTime& start,
                                const QDateTime& end) {
    QXmppMamQueryIq iq;
    iq.setType(QXmppIq::Set);
    if (!archive.isEmpty()) iq.setTo(archive);
    const QString queryId = QUuid::createUuid().toString(QUuid::WithoutBraces);
    iq.setId(queryId);
    iq.setQueryId(queryId);
    QList<QXmppDataForm::Field> fields;
    QXmppDataForm::Field formType(QXmppDataForm::Field::HiddenField);
    formType.setKey(QStringLiteral("FORM_TYPE"));
    formType.setValue(QLatin1String(kMamNs));
    fields << formType;
    if (!with.isEmpty()) {
        QXmppDataForm::Field withField;
        withField.setKey(QStringLiteral("with"));
        withField.setValue(with);
        fields << withField;
    }
    if (start.isValid()) {
        QXmppDataForm::Field startField;
        startField.setKey(QStringLiteral("start"));
        startField.setValue(QXmppUtils::datetimeToString(start));
        fields << startField;
    }
    if (end.isValid()) {
        QXmppDataForm::Field endField;
        endField.setKey(QStringLiteral("end"));
        endField.setValue(QXmppUtils::datetimeToString(end));
        fields << endField;
    }
    QXmppDataForm form(QXmppDataForm::Submit);
    form.setFields(fields);
    iq.setForm(form);
    QXmppResultSetQuery rsm;
    rsm.setMax(max);
    if (!after.isEmpty())
        rsm.setAfter(after);
    else
        // An empty <before/> asks for the newest page; without the element (a null text)
        // the server starts at the oldest.
        rsm.setBefore(before.isNull() ? QStringLiteral("") : before);
    iq.setResultSetQuery(rsm);
    pending_.insert(queryId);
    if (!client()->sendPacket(iq)) {
        pending_.remove(queryId);
        return QString();
    }
    return queryId;
}

bool ArchiveExtension::handleStanza(const QDomElement& stanza) {
    if (stanza.tagName() == QLatin1String("message")) {
        QDomElement result = stanza.firstChildElement(QStringLiteral("result"));
        if (result.isNull() || result.namespaceURI() != QLatin1String(kMamNs)) return false;
        const QString queryId = result.attribute(QStringLiteral("queryid"));
        if (!pending_.contains(queryId)) return false;
        QDomElement forwarded = result.firstChildElement(QStringLiteral("forwarded"));
        QDomElement inner = forwarded.firstChildElement(QStringLiteral("message"));
        if (inner.isNull()) return true;
        QXmppMessage message;
        message.parse(inner);
        QDateTime stamp =
            QXmppUtils::datetimeFromString(forwarded.firstChildElement(QStringLiteral("delay"))
                                               .attribute(QStringLiteral("stamp")));
        emit archivedMessage(queryId, result.attribute(QStringLiteral("id")), message, stamp);
        return true;
    }
    if (stanza.tagName() == QLatin1String("iq")) {
        const QString id = stanza.attribute(QStringLiteral("id"));
        if (!pending_.contains(id)) return false;
        const QString type = stanza.attribute(QStringLiteral("type"));
        if (type != QLatin1String("result") && type != QLatin1String("error")) return false;
        pending_.remove(id);
        if (type == QLatin1String("error")) {
            emit finished(id, false, true, QString(), QString());
            return true;
        }
        QXmppMamResultIq iq;
        iq.parse(stanza);
        emit finished(id, true, iq.complete(), iq.resultSetReply().first(),
                      iq.resultSetReply().last());
        return true;
    }
    return false;
}
