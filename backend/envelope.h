#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

// The back end's reply envelope: "errorCode", "errorMsg", "results", "redirectUrl",
// "redirectToBeta", "client". The code is read first; the payload only on success.
class Envelope {
public:
    static constexpr int kSuccess = 0;

    static Envelope parse(const QByteArray& body);

    // The body was a JSON object.
    bool isValid() const { return valid_; }
    bool isSuccess() const { return valid_ && codeValid_ && code_ == kSuccess; }
    int errorCode() const { return code_; }
    const QString& errorMsg() const { return message_; }
    QJsonValue results() const;
    // A named payload list at the top level or inside "results" ("allDeptList", ...).
    QJsonValue member(const QString& name) const;
    QString redirectUrl() const { return object_.value(QStringLiteral("redirectUrl")).toString(); }
    bool redirectToBeta() const;
    const QJsonObject& object() const { return object_; }

private:
    bool valid_ = false;
    bool codeValid_ = false;
    int code_ = -1;
    QString message_;
    QJsonObject object_;
};
