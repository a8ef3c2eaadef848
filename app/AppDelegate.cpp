#include "app/AppDelegate.h"

AppDelegate::AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {}

void AppDelegate::applicationWillTerminate() {}

bool AppDelegate::applicationShouldTerminateAfterLastWindowClosed()
{
    return true;
}
