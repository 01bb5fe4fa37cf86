#pragma once

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

class Directory;
class RequestAccess;
class TaskEditor;

// The web pages about a signed-in caller's company that the client opens: a task and its
// forms (the task editor's), a project's tasks and its goals table.
class PageHandler {
public:
    PageHandler(Directory* directory, const RequestAccess* access, TaskEditor* tasks);

    void task(const httplib::Request& req, httplib::Response& res);
    void projectTasks(const httplib::Request& req, httplib::Response& res);
    void goals(const httplib::Request& req, httplib::Response& res);

private:
    Directory* directory_;
    const RequestAccess* access_;
    TaskEditor* tasks_;
};
