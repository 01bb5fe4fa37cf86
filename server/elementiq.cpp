#include "elementiq.h"

ElementIq::ElementIq(QXmppIq::Type type, const QString& to, const QXmppElement& query)
    : QXmppIq(type), query_(query) {
    setTo(to);
}

void ElementIq::toXmlElementFromChild(QXmlStreamWriter* writer) const { query_.toXml(writer); }
