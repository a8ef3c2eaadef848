#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <fcntl.h>
#include <pwd.h>

using platform::FileService;
using platform::Volume;

class VolumeTest : public QObject
{
    Q_OBJECT

private slots:
    void usersFolder();
    void homeFolders();
    void linksStayInside();
    void parents();
    void missingVolume();
};

void VolumeTest::usersFolder()
{
    const std::pair<QStringList, std::string> volumes[] = {
        {{"Users", "Users/anna"}, "Users/anna"},
        {{"users", "users/anna"}, "users/anna"},
        {{"users", "Users", "Users/anna"}, "Users/anna"},
        {{"users", "users/anna", "Users", "Users/anna"}, "users/anna"},
        {{"users", "Users"}, ""},
        {{"Other"}, ""}};
    for (const auto &[folders, found] : volumes) {
        const ScratchFolder scratch;
        for (const QString &folder : folders) {
            makeFolder(scratch.path(folder.toStdString()));
        }
        const Volume volume(scratch.path(), "anna");
        const std::string expected = found.empty() ? found : scratch.path(found);
        QCOMPARE(volume.hostPath("/users/anna"), expected);
        QCOMPARE(volume.hostPath("//users//anna/"), expected);
        if (!found.empty()) {
            writeFile(expected + "/file", "");
            QVERIFY(FileService(volume).exists("/users/anna/file"));
        }
    }
}

void VolumeTest::homeFolders()
{
    const passwd *self = ::getpwuid(::getuid());
    if (self == nullptr || ::access(self->pw_dir, X_OK) != 0) {
        QSKIP("this user has no home folder");
    }
    const Volume host("/proc/self/root", "anna"); // the host's root by another name
    QVERIFY(host.isHost());
    QCOMPARE(host.hostPath(std::string("/users/") + self->pw_name),
             QString(self->pw_dir).toStdString());
    QCOMPARE(host.hostPath("/users/nobody of this name"), std::string());
    QCOMPARE(host.hostPath("/"), std::string("/"));
}

void VolumeTest::linksStayInside()
{
    const ScratchFolder scratch;
    makeFolder(scratch.path("volume"));
    makeFolder(scratch.path("volume/folder"));
    writeFile(scratch.path("outside"), "");
    writeFile(scratch.path("volume/inside"), "");
    makeLink("/inside", scratch.path("volume/absolute"));
    makeLink("../../../../inside", scratch.path("volume/folder/upwards"));
    makeLink("../outside", scratch.path("volume/escape"));
    makeLink("/folder", scratch.path("volume/Users"));
    makeFolder(scratch.path("volume/folder/anna"));
    const Volume volume(scratch.path("volume"), "anna");
    const FileService files(volume);
    for (const char *path : {"/absolute", "/folder/upwards", "/../inside"}) {
        QVERIFY2(files.exists(path), path);
    }
    for (const std::string &path : {std::string("/escape"), std::string("/../outside"),
                                    std::string("inside"), '/' + std::string(5000, 'x')}) {
        QVERIFY2(!files.exists(path), path.c_str());
    }
    QCOMPARE(volume.hostPath("/users/anna"), scratch.path("volume/folder/anna"));
    QCOMPARE(volume.hostPath("/absolute"), scratch.path("volume/absolute"));
    QVERIFY(!volume.open("/absolute", O_RDONLY | O_NOFOLLOW).isOpen());
    QVERIFY((::fcntl(volume.open("/inside", O_RDONLY).get(), F_GETFD) & FD_CLOEXEC) != 0);
}

void VolumeTest::parents()
{
    const ScratchFolder scratch;
    makeFolder(scratch.path("folder"));
    const Volume volume(scratch.path(), "anna");
    std::string name;
    QVERIFY(volume.openParent("/folder//item//", name).isOpen());
    QCOMPARE(name, std::string("item"));
    QVERIFY(!volume.openParent("/none/item", name).isOpen());
    QCOMPARE(errno, ENOENT);
    using namespace std::string_view_literals;
    for (const std::string_view path :
         {""sv, "/"sv, "//"sv, "item"sv, "/folder/."sv, "/folder/.."sv, "/with\0zero"sv}) {
        QVERIFY(!volume.openParent(path, name).isOpen());
        QCOMPARE(errno, EINVAL);
    }
}

void VolumeTest::missingVolume()
{
    const ScratchFolder scratch;
    const Volume volume(scratch.path("none"), "anna");
    const FileService files(volume);
    std::string error;
    QVERIFY(!volume.isHost() && !files.exists("/"));
    QVERIFY(!files.attributes("/users/anna") && !files.contents("/"));
    QCOMPARE(files.totalSize("/"), 0U);
    QCOMPARE(volume.hostPath("/"), std::string());
    QVERIFY(!files.copy("/a", "/b", error));
    QVERIFY(!error.empty());
    QVERIFY(!files.remove("/a", error));
}

QTEST_GUILESS_MAIN(VolumeTest)

#include "VolumeTest.moc"
