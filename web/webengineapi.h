#pragma once

class QWidget;

// What the client asks of the web engine, as plain functions of the module that holds it
// (quelix-webengine). Only that module links the engine, so a client that never opens a
// web page never maps it; widgets and signals are reached through the meta-object system.
struct WebEngineApi {
    // A web view (a QWebEngineView) owned by `parent`.
    QWidget* (*create)(QWidget* parent);
    void (*load)(QWidget* view, const char* utf8Url);
    void (*setZoom)(QWidget* view, double factor);
    void (*stop)(QWidget* view);
    // Sets a cookie for `utf8Origin` (scheme, host and port) in the default profile, which
    // every view shares.
    void (*setCookie)(const char* utf8Origin, const char* utf8Name, const char* utf8Value);
};

// Exported by the module as "quelixWebEngineApi".
using WebEngineApiEntry = const WebEngineApi* (*)();
