#pragma once

#include <QStringList>

#include <memory>

class App;

/// The absolute paths of the application bundles that the system's index knows, in its order,
/// without those in a library or a trash folder. Runs the index's query tool; every failure
/// gives the empty list. The list may hold empty texts.
QStringList applicationPaths();

/// The record of the bundle at `path`; none when there is no bundle there with a name.
std::shared_ptr<App> appAtPath(const QString &path);
