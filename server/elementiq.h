#pragma once

#include <QXmppElement.h>
#include <QXmppIq.h>

// An IQ carrying one prepared child element: the room owner and admin queries are written
// as elements, so every item and form field goes out exactly as built.
class ElementIq : public QXmppIq {
public:
    ElementIq(QXmppIq::Type type, const QString& to, const QXmppElement& query);

protected:
    void toXmlElementFromChild(QXmlStreamWriter* writer) const override;

private:
    QXmppElement query_;
};
