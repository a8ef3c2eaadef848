#pragma once

#include <QString>
#include <QStringList>

/// Where an application may keep its settings and data: absolute paths in the order in which
/// they are tried. They all lie under the user's library folder; a path that a name or an
/// identifier would lead out of its folder ("..", ".", nothing at all, a slash at the end) is left
/// out.
///
/// `identifier` may be null: what is built from it is left out then.
class LocationCandidates
{
public:
    LocationCandidates(const QString &name, const QString &identifier);

    QStringList prefs() const;
    QStringList data() const;

private:
    QString m_library;
    QString m_containerLibrary; ///< inside the application's container
    QString m_name;
    QString m_identifier;
};
