#include "envelope.h"

#include <QJsonDocument>
#include <QJsonParseError>

Envelope Envelope::parse(const QByteArray& body) {
    Envelope e;
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) return e;
    e.valid_ = true;
    e.object_ = doc.object();
    // The code comes as a number or as its decimal text, depending on the endpoint.
    const QJsonValue code = e.object_.value(QStringLiteral("errorCode"));
    if (code.isDouble()) {
        e.code_ = code.toInt();
        e.codeValid_ = code.toDouble() == double(e.code_);
    } else if (code.isString()) {
        e.code_ = code.toString().trimmed().toInt(&e.codeValid_);
    }
    if (!e.codeValid_) e.code_ = -1;
    e.message_ = e.object_.value(QStringLiteral("errorMsg")).toString();
    return e;
}

QJsonValue Envelope::results() const {
    return isSuccess() ? object_.value(QStringLiteral("results")) : QJsonValue();
}

QJsonValue Envelope::member(const QString& name) const {
    if (!isSuccess()) return QJsonValue();
    if (object_.contains(name)) return object_.value(name);
    return object_.value(QStringLiteral("results")).toObject().value(name);
}

bool Envelope::redirectToBeta() const {
    const QJsonValue v = object_.value(QStringLiteral("redirectToBeta"));
    return v.isBool() ? v.toBool() : v.toString() == QLatin1String("true");
}
