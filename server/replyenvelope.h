#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QString>

// The one JSON reply shape every back-end address answers with. Success is "errorCode" 0;
// every failure carries one of the codes below and a Chinese "errorMsg" the client can
// show as it stands.
class ReplyEnvelope {
public:
    enum Code {
        Ok = 0,
        BadParameter = 1001,
        WrongCredentials = 1002,
        NotSignedIn = 1003,
        Forbidden = 1004,
        TooManyAttempts = 1005,
        NotFound = 1006,
        FileTooLarge = 1007,
        BadFileName = 1008,
        BodyTooLarge = 1009,
        UnknownAddress = 1010,
        InternalError = 1500,
    };

    static QString message(Code code);

    static QByteArray success(const QJsonValue& results, const QString& client = QString());
    // For payloads that are already serialised (the cached organisation reply): wraps the
    // bytes without parsing them again.
    static QByteArray successRaw(const QByteArray& resultsJson, const QString& client = QString());
    // The success envelope around a payload is successPrefix() + payload + successSuffix().
    static QByteArray successPrefix();
    static QByteArray successSuffix(const QString& client);
    static QByteArray failure(Code code, const QString& client = QString());
    static QByteArray failure(Code code, const QString& message, const QString& client);
};
