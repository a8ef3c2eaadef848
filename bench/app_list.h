#pragma once

#include "model/App.h"
#include "system/Discovery.h"
#include "ui/platform/ArrayController.h"

/// Fills a controller with the applications of the current volume, in the order of the window's
/// list.
inline void loadAppList(platform::ArrayController &controller)
{
    controller.setSortDescriptors(
        {{QStringLiteral("name"), true, platform::caseInsensitiveCompare}});
    for (const QString &path : applicationPaths()) {
        if (auto app = appAtPath(path)) {
            controller.addObject(std::move(app));
        }
    }
    controller.rearrangeObjects();
}
