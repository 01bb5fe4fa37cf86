#pragma once

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

class Directory;
class RequestAccess;

// The web pages about a signed-in caller's company that the client opens: a task (opening it
// marks it read for the caller), a new task's form, a project's tasks and its goals table.
class PageHandler {
public:
    PageHandler(Directory* directory, const RequestAccess* access);

    void task(const httplib::Request& req, httplib::Response& res);
    void projectTasks(const httplib::Request& req, httplib::Response& res);
    void goals(const httplib::Request& req, httplib::Response& res);

private:
    Directory* directory_;
    const RequestAccess* access_;
};
