#include "tribetips.h"

QString TribeTips::text(Event event, bool self, const QString& memberName) {
    switch (event) {
        case Joined:
            return self ? QStringLiteral("您已被邀请进该群。")
                        : memberName + QStringLiteral("已被邀请进该群");
        case Quit:
            return self ? QStringLiteral("您已主动退出该群！")
                        : memberName + QStringLiteral("已主动退出该群！");
        case Kicked:
            return self ? QStringLiteral("您已被群主请出该群!")
                        : memberName + QStringLiteral("已被群主请出该群!");
        case Dismissed:
            return QStringLiteral("该群刚刚被关闭，您已自动退出该群。");
    }
    return QString();
}
