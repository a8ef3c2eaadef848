// The records without a window and without a display, on the current volume.
//
// "list" prints every application in the order of the window's list, its details resolved: one line
// of fields with a tab between two. The fields are name, identifier, version, size (as the window
// shows it), path, path of the preferences, date of their backup, path of the data, date of their
// backup (ISO 8601, UTC), and the widths of the icon's images in pixels, ascending, with commas. A
// field is "-" where the record has nothing. In a text a backslash, tab, line feed and carriage
// return are written as \\, \t, \n and \r, and the text "-" as \-; so a line holds all its fields
// and nothing else. A path's bytes are those of the disk, whatever its encoding.
//
// "backup" and "restore" do to one location what the window's commands do, without a question: they
// replace what is there. They answer by the exit status: 0 done, 1 not done, also when there is no
// such application, location or backup; then nothing is touched.

#include "bench/app_list.h"
#include "system/platform/PathEncoding.h"
#include "system/platform/files/StandardStreams.h"

#include <QGuiApplication>
#include <QIcon>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string_view>

namespace {

constexpr int exitUsage = 2;

QString field(const QString &text)
{
    if (text.isNull()) {
        return QStringLiteral("-");
    }
    if (text == u"-") {
        return QStringLiteral("\\-");
    }
    return QString(text)
        .replace(u'\\', QLatin1String("\\\\"))
        .replace(u'\t', QLatin1String("\\t"))
        .replace(u'\n', QLatin1String("\\n"))
        .replace(u'\r', QLatin1String("\\r"));
}

QString field(const QDateTime &date)
{
    return date.isValid() ? date.toUTC().toString(Qt::ISODate) : field(QString());
}

QString field(const QIcon &icon)
{
    std::set<int> widths;
    for (const QSize &size : icon.availableSizes()) {
        widths.insert(size.width());
    }
    QStringList texts;
    for (const int width : widths) {
        texts.append(QString::number(width));
    }
    return field(texts.isEmpty() ? QString() : texts.join(u','));
}

int list()
{
    platform::ArrayController controller;
    loadAppList(controller);
    for (const auto &record : controller.arrangedObjects()) {
        App &app = static_cast<App &>(*record);
        app.loadDetails();
        const QStringList fields = {
            field(app.name()),
            field(app.identifier()),
            field(app.version()),
            field(app.size() ? app.sizeMB() : QString()),
            field(app.path()),
            field(app.prefs()->path()),
            field(app.prefs()->backupDate()),
            field(app.data()->path()),
            field(app.data()->backupDate()),
            field(app.appIcon()),
        };
        std::puts(platform::bytesFromPath(fields.join(u'\t')).c_str());
    }
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

int printUsage()
{
    std::fputs("usage: records list | backup|restore prefs|data BUNDLE-PATH\n", stderr);
    return exitUsage;
}

bool backUp(Path &location)
{
    return location.found() && location.backUp();
}

bool restore(Path &location)
{
    return location.backedUp() && location.restore();
}

int perform(std::string_view operation, std::string_view kind, const char *bundlePath)
{
    const bool isKnown =
        (operation == "backup" || operation == "restore") && (kind == "prefs" || kind == "data");
    if (!isKnown) {
        return printUsage();
    }
    const auto app = appAtPath(platform::pathFromBytes(bundlePath));
    if (!app) {
        return EXIT_FAILURE;
    }
    app->loadDetails();
    Path &location = kind == "prefs" ? *app->prefs() : *app->data();
    const bool isDone = operation == "backup" ? backUp(location) : restore(location);
    return isDone ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char *argv[])
{
    platform::openStandardStreams();
    // As in the program: a reader that went away must not end a restore half-way.
    std::signal(SIGPIPE, SIG_IGN);
    qputenv("QT_QPA_PLATFORM", "offscreen"); // icons need an application, but no display
    int programNameOnly = qMin(argc, 1);
    const QGuiApplication application(programNameOnly, argv);
    if (argc == 2 && std::string_view(argv[1]) == "list") {
        return list();
    }
    return argc == 4 ? perform(argv[1], argv[2], argv[3]) : printUsage();
}
