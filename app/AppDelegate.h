#pragma once

#include "ui/platform/Application.h"

#include <QObject>

/// The application's delegate: has one decision to make, that the program ends with its window.
class AppDelegate : public QObject, public platform::ApplicationDelegate
{
    Q_OBJECT

public:
    void applicationDidFinishLaunching() override;
    void applicationWillTerminate() override;
    bool applicationShouldTerminateAfterLastWindowClosed() override;

    AppDelegate();
};
