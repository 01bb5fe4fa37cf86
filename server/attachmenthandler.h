#pragma once

#include <QString>

namespace httplib {
class ContentReader;
struct Request;
struct Response;
}  // namespace httplib

class Directory;
class FileStore;
class RequestAccess;

// Files colleagues share and their pictures: an upload streamed to disk in the caller's own
// name, a download for callers of the owner's company only, and the avatars every colleague
// shows.
class AttachmentHandler {
public:
    AttachmentHandler(Directory* directory, const RequestAccess* access, FileStore* files,
                      const QString& publicUrl);

    void upload(const httplib::Request& req, httplib::Response& res,
                const httplib::ContentReader& reader);
    void download(const httplib::Request& req, httplib::Response& res, const QString& idText);
    void avatar(httplib::Response& res, const QString& idText);

private:
    Directory* directory_;
    const RequestAccess* access_;
    FileStore* files_;
    QString publicUrl_;
};
