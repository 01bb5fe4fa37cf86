#pragma once

#include <QByteArray>
#include <QString>

namespace httplib {
struct Response;
}  // namespace httplib

// The client's update description (/update/QX_update.ini) and the packages it names, from
// an update folder whose release.ini describes the release; without a folder, a description
// of the given versions and no packages.
class UpdatePublisher {
public:
    UpdatePublisher(const QString& updateDir, const QString& clientVersion,
                    const QString& frameworkVersion);

    QByteArray description(const QString& publicUrl) const;
    // Streams the package `name`, or answers 404.
    void package(httplib::Response& res, const QString& name) const;

private:
    QString updateDir_;
    QString clientVersion_;
    QString frameworkVersion_;
};
