#pragma once

class MainWindow;
class OpenIMManager;

// Joins the shell and the IM core: the log-in window hands the signed-in user to the IM
// core and hears back from it; messages reach the conversation pages. Start-up and the
// end-to-end tests assemble the client the same way through this.
class ClientSession {
public:
    static void connect(MainWindow* window, OpenIMManager* im);
};
