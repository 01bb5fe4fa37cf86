#include "replyenvelope.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QByteArray jsonString(const QString& text) {
    // A one-element array is the cheapest way to get Qt's own string escaping.
    const QByteArray a = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return a.mid(1, a.size() - 2);
}

QByteArray head(int code, const QString& message) {
    return "{\"errorCode\":" + QByteArray::number(code) + ",\"errorMsg\":" + jsonString(message) +
           ",\"results\":";
}

QByteArray tail(const QString& client) {
    return ",\"redirectUrl\":\"\",\"redirectToBeta\":false,\"client\":" + jsonString(client) + '}';
}

QByteArray compose(int code, const QString& message, const QByteArray& results,
                   const QString& client) {
    return head(code, message) + results + tail(client);
}

}  // namespace

QString ReplyEnvelope::message(Code code) {
    switch (code) {
        case Ok:
            return QString();
        case BadParameter:
            return QStringLiteral("参数错误");
        case WrongCredentials:
            return QStringLiteral("用户名或密码错误");
        case NotSignedIn:
            return QStringLiteral("未登录或登录已过期");
        case Forbidden:
            return QStringLiteral("没有权限执行该操作");
        case TooManyAttempts:
            return QStringLiteral("密码错误次数过多，请稍后再试");
        case NotFound:
            return QStringLiteral("请求的数据不存在");
        case FileTooLarge:
            return QStringLiteral("文件过大");
        case BadFileName:
            return QStringLiteral("文件名无效");
        case BodyTooLarge:
            return QStringLiteral("请求数据过大");
        case UnknownAddress:
            return QStringLiteral("请求的地址不存在");
        case InternalError:
            break;
    }
    return QStringLiteral("服务器内部错误");
}

QByteArray ReplyEnvelope::success(const QJsonValue& results, const QString& client) {
    QByteArray payload;
    if (results.isObject()) {
        payload = QJsonDocument(results.toObject()).toJson(QJsonDocument::Compact);
    } else if (results.isArray()) {
        payload = QJsonDocument(results.toArray()).toJson(QJsonDocument::Compact);
    } else {
        payload = "{}";
    }
    return compose(Ok, QString(), payload, client);
}

QByteArray ReplyEnvelope::successRaw(const QByteArray& resultsJson, const QString& client) {
    return compose(Ok, QString(), resultsJson, client);
}

QByteArray ReplyEnvelope::successPrefix() { return head(Ok, QString()); }

QByteArray ReplyEnvelope::successSuffix(const QString& client) { return tail(client); }

QByteArray ReplyEnvelope::failure(Code code, const QString& client) {
    return compose(code, message(code), "{}", client);
}

QByteArray ReplyEnvelope::failure(Code code, const QString& message, const QString& client) {
    return compose(code, message, "{}", client);
}
