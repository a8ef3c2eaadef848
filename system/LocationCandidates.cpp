#include "system/LocationCandidates.h"

#include "system/platform/User.h"

namespace {

const QString applicationSupport = QStringLiteral("Application Support/");
const QString preferences = QStringLiteral("Preferences/");

/// Whether a text from a bundle names an item below the folder that it is appended to. With a
/// slash at the end it names one too, but the backup would lie inside that item, and a restore
/// would remove both.
bool staysBelowFolder(const QString &text)
{
    const QStringList components = text.split(u'/');
    return !components.last().isEmpty() && !components.contains(QLatin1String(".")) &&
           !components.contains(QLatin1String(".."));
}

QString usable(const QString &text)
{
    return staysBelowFolder(text) ? text : QString();
}

/// The identifier split at its first dot that does not lead it, every "-" behind that dot
/// replaced by "_": how some applications spell their identifier in a folder's name. Null when
/// there are no two pieces.
QString underscoredIdentifier(const QString &identifier)
{
    qsizetype start = 0;
    while (start < identifier.size() && identifier[start] == u'.') {
        ++start;
    }
    const qsizetype dot = identifier.indexOf(u'.', start);
    if (dot < 0 || dot + 1 == identifier.size()) {
        return {};
    }
    QString rest = identifier.mid(dot + 1);
    rest.replace(u'-', u'_');
    return identifier.mid(start, dot - start) + u'.' + rest;
}

} // namespace

LocationCandidates::LocationCandidates(const QString &name, const QString &identifier)
    : m_library(QStringLiteral("/users/") + platform::userName() + QStringLiteral("/Library/"))
    , m_containerLibrary(m_library + QStringLiteral("Containers/") + identifier +
                         QStringLiteral("/Data/Library/"))
    , m_name(usable(name))
    , m_identifier(usable(identifier))
{}

QStringList LocationCandidates::prefs() const
{
    if (m_identifier.isNull()) {
        return {};
    }
    const QString file = preferences + m_identifier + QStringLiteral(".plist");
    return {m_containerLibrary + file, m_library + file};
}

QStringList LocationCandidates::data() const
{
    QStringList candidates;
    const auto append = [&](const QString &library, const QString &folder) {
        if (!folder.isNull()) {
            candidates.append(library + applicationSupport + folder);
        }
    };
    if (!m_identifier.isNull()) {
        append(m_containerLibrary, m_name);
        append(m_containerLibrary, m_identifier);
        append(m_containerLibrary, underscoredIdentifier(m_identifier));
        append(m_library, m_identifier);
    }
    append(m_library, m_name);
    return candidates;
}
